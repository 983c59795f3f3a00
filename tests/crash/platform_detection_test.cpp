// Platform detection: the weighted scores and the decision order.
#include <gtest/gtest.h>

#include <filesystem>

#include "crash/parser_pattern.h"
#include "crash/platform_detection.h"
#include "support/test_support.h"

namespace quillora::crash {
namespace {

TEST(PlatformDetection, DecidesByWeightedScoresInItsOrder) {
  struct Case {
    const char* name;
    std::string text;
    CrashPlatform expected;
  };
  const std::vector<Case> cases = {
      {"empty text", "", CrashPlatform::unknown},
      {"prose only", "The game closed itself when I opened the shop.", CrashPlatform::unknown},
      {"a Unity game's iOS crash stays unity",
       "Crashed: com.apple.main-thread\nEXC_BAD_ACCESS KERN_INVALID_ADDRESS 0x18\n"
       "0  UnityFramework  0x0000000104a1c3a0 PlayerController_Update_m7F2C1A9B3E + 44\n"
       "1  UIKitCore  0x00000001a2b3c4d5 -[UIApplication _run] + 1000\n"
       "2  libsystem_kernel.dylib  0x00000001a2b3c4d5 __pthread_kill + 8\n",
       CrashPlatform::unity},
      {"one Unreal hint alone: 3 is not above 3, but it is the highest", "UObject was null",
       CrashPlatform::unreal},
      {"one Unreal hint loses to a higher Java score",
       "UObject\njava.lang.IllegalStateException\nCaused by: java.lang.NullPointerException\n",
       CrashPlatform::androidJava},
      {"two Unreal hints win outright over Java", "UObject UE4\njava.lang.X java.lang.Y java.lang.Z",
       CrashPlatform::unreal},
      {"unity wins a tie with unreal", "UnityEngine.Object UObject", CrashPlatform::unity},
      {"unreal above unity wins", "UnityEngine.Object UObject UE5", CrashPlatform::unreal},
      {"Java against native tie goes to Java (table order)", "java.lang.Foo\ntombstone\n",
       CrashPlatform::androidJava},
      {"a tie between unreal 3 and iOS 3 goes to unreal (table order)",
       "UObject\nEXC_BAD_ACCESS\nUIKitCore\ncom.apple.main-thread\n", CrashPlatform::unreal},
  };
  for (const Case& c : cases) EXPECT_EQ(detectPlatform(c.text), c.expected) << c.name;
}

// The scores must be exactly those of the detection table's patterns, each counted over the
// whole text in one piece, whatever way the scan is organised.
PlatformScores scoresByTheTable(std::string_view text) {
  auto count = [&](const char* pattern) {
    return countMatches(compileParserPattern(pattern, true), text);
  };
  PlatformScores scores;
  scores.unity = 3 * count(
      R"(UnityFramework|libunity\.so|libil2cpp\.so|il2cpp::|UnityEngine\.|\(at Assets/|\.cs:\d+|_m[0-9A-F]{8,}\b)");
  scores.unreal = 3 * count(
      R"(\w!\w.*\[.+:\d+\]|UnrealGame|UE4|UE5|libUnreal\.so|libUE4\.so|FDebug::|UObject|Assertion failed:.*\[File:)");
  scores.androidJava =
      2 * count(R"(^\s*at\s+[\w$.]+\.[\w$<>]+\([\w$.]+\.(?:java|kt):\d+\)|java\.lang\.|kotlin\.|^Caused by:)");
  scores.androidNative = 2 * count(R"(^\s*#\d+\s+pc\s+|\.so\b|tombstone|backtrace:)");
  scores.iOSNative = count(
      R"(^\s*\d+\s+\S+\s+0x[0-9a-fA-F]+\s|EXC_[A-Z_]+|com\.apple\.|\.swift:\d+|libsystem_kernel|UIKitCore)");
  return scores;
}

TEST(PlatformDetection, ScoresEqualTheTablePatternsCountedWhole) {
  std::vector<std::string> texts = {
      "UObject!Foo [a.cpp:1]",  // the `\w!` alternative right after another match
      "UE4!x [a:1] a!b [c:2] UE5",
      "x !a [b:1] y!z [c:2] !! a!!b [d:3]\n é!x [a:1] \xff!x [a:1]",
      "at java.lang.Thread.run(Thread.java:1)\n  at kotlin.A.b(A.kt:2)\nCaused by: java.lang.X",
      "libil2cpp.so il2cpp::vm (at Assets/A.cs:3) Foo_m0123456789 UnityEngine.X",
      "12\nfoo 0x1 bar\n  3 Game 0xAB x EXC_BAD_ACCESS com.apple.x a.swift:4 UIKitCore",
      "#00 pc 12 /a/libx.so (BuildId: 1) tombstone backtrace:\n   #1 pc 0 b.so\n",
      "",
  };
  for (const auto& entry : std::filesystem::recursive_directory_iterator(testing::fixture("crash"))) {
    if (entry.is_regular_file()) texts.push_back(testing::readText(entry.path()));
  }
  for (const std::string& text : texts) {
    PlatformScores fast = scorePlatforms(text);
    PlatformScores whole = scoresByTheTable(text);
    std::string head = text.substr(0, 60);
    EXPECT_EQ(fast.unity, whole.unity) << head;
    EXPECT_EQ(fast.unreal, whole.unreal) << head;
    EXPECT_EQ(fast.androidJava, whole.androidJava) << head;
    EXPECT_EQ(fast.androidNative, whole.androidNative) << head;
    EXPECT_EQ(fast.iOSNative, whole.iOSNative) << head;
  }
}

}  // namespace
}  // namespace quillora::crash
