#include "crash/platform_detection.h"

#include "crash/parser_pattern.h"

namespace quillora::crash {

PlatformScores scorePlatforms(std::string_view text) {
  static const base::Regex unity = compileParserPattern(
      R"(UnityFramework|libunity\.so|libil2cpp\.so|il2cpp::|UnityEngine\.|\(at Assets/|\.cs:\d+|_m[0-9A-F]{8,}\b)",
      true);
  static const base::Regex unreal = compileParserPattern(
      R"(\w!\w.*\[.+:\d+\]|UnrealGame|UE4|UE5|libUnreal\.so|libUE4\.so|FDebug::|UObject|Assertion failed:.*\[File:)",
      true);
  static const base::Regex androidJava = compileParserPattern(
      R"(^\s*at\s+[\w$.]+\.[\w$<>]+\([\w$.]+\.(?:java|kt):\d+\)|java\.lang\.|kotlin\.|^Caused by:)", true);
  static const base::Regex androidNative =
      compileParserPattern(R"(^\s*#\d+\s+pc\s+|\.so\b|tombstone|backtrace:)", true);
  static const base::Regex iOSNative = compileParserPattern(
      R"(^\s*\d+\s+\S+\s+0x[0-9a-fA-F]+\s|EXC_[A-Z_]+|com\.apple\.|\.swift:\d+|libsystem_kernel|UIKitCore)",
      true);
  PlatformScores scores;
  scores.unity = 3 * countMatches(unity, text);
  scores.unreal = 3 * countMatches(unreal, text);
  scores.androidJava = 2 * countMatches(androidJava, text);
  scores.androidNative = 2 * countMatches(androidNative, text);
  scores.iOSNative = countMatches(iOSNative, text);
  return scores;
}

CrashPlatform decidePlatform(const PlatformScores& scores) {
  // A Unity game on iOS or Android stays unity even though Apple or Android frames are present.
  if (scores.unity >= 1 && scores.unity >= scores.unreal) return CrashPlatform::unity;
  if (scores.unreal > 3) return CrashPlatform::unreal;
  // Ties go to the earlier entry: the order of the detection table.
  const std::pair<CrashPlatform, size_t> ranked[] = {
      {CrashPlatform::unity, scores.unity},
      {CrashPlatform::unreal, scores.unreal},
      {CrashPlatform::androidJava, scores.androidJava},
      {CrashPlatform::androidNative, scores.androidNative},
      {CrashPlatform::iOSNative, scores.iOSNative},
  };
  CrashPlatform best = CrashPlatform::unknown;
  size_t bestScore = 0;
  for (const auto& [platform, score] : ranked) {
    if (score > bestScore) {
      best = platform;
      bestScore = score;
    }
  }
  return best;
}

}  // namespace quillora::crash
