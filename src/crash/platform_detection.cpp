#include "crash/platform_detection.h"

#include <memory>
#include <optional>

#include "crash/parser_pattern.h"

namespace quillora::crash {

namespace {

using base::Regex;
using base::RegexMatch;

// One detection pattern, an alternation, is scanned one alternative at a time ("streams"): a
// literal alternative is found with PCRE2's vectorised search for its first characters, and an
// alternative anchored at line starts only tries line starts. The `\w!\w…` alternative is
// searched from its rarer "!" (a look-behind would do the same but turns a megabyte of garbage
// into seconds), its word character checked by hand. Scanning the whole alternation at once makes
// PCRE2 attempt a match at nearly every byte, several times slower. Merging the streams keeps the
// count of the alternation exact: the next match is the leftmost one, ties going to the earlier
// alternative, and scanning resumes at its end.
struct Stream {
  std::shared_ptr<const Regex> regex;
  int alternative = 0;
  bool startsWithWordAndBang = false;  // searched from its "!", the \w before it checked by hand
};

struct Candidate {
  bool found = false;
  bool exhausted = false;
  size_t start = 0;
  size_t end = 0;
};

bool isWordCharacter(std::string_view character) {
  static const Regex word = compileParserPattern(R"(\w)");
  return word.fullMatch(character).has_value();
}

// The next match at or after `from` of one stream, whose start must not be before `offset`.
void advance(const Stream& stream, std::string_view text, size_t offset, Candidate& c) {
  if (!stream.startsWithWordAndBang) {
    auto match = stream.regex->search(text, offset);
    c.found = match.has_value();
    c.exhausted = !c.found;
    if (match) {
      c.start = match->start();
      c.end = match->end();
    }
    return;
  }
  // The match's "!" must follow a word character that starts at or after `offset`; "!"s that
  // don't are skipped without running the pattern.
  auto wordStart = [&](size_t bang) -> std::optional<size_t> {
    size_t before = bang;
    while (before > 0 && (static_cast<unsigned char>(text[before - 1]) & 0xC0) == 0x80) --before;
    if (before == 0 || before - 1 < offset) return std::nullopt;
    if (!isWordCharacter(text.substr(before - 1, bang - before + 1))) return std::nullopt;
    return before - 1;
  };
  size_t from = offset + 1;
  while (true) {
    size_t bang = text.find('!', from);
    while (bang != std::string_view::npos && !wordStart(bang)) bang = text.find('!', bang + 1);
    if (bang == std::string_view::npos) break;
    auto match = stream.regex->search(text, bang);
    if (!match) break;
    if (auto start = wordStart(match->start())) {
      c.found = true;
      c.start = *start;
      c.end = match->end();
      return;
    }
    from = match->start() + 1;
  }
  c.found = false;
  c.exhausted = true;
}

size_t countAlternation(const std::vector<Stream>& streams, std::string_view text) {
  std::vector<Candidate> candidates(streams.size());
  size_t count = 0;
  size_t offset = 0;
  while (offset <= text.size()) {
    const Candidate* best = nullptr;
    int bestAlternative = 0;
    for (size_t i = 0; i < streams.size(); ++i) {
      Candidate& c = candidates[i];
      if (c.exhausted) continue;
      if (!c.found || c.start < offset) advance(streams[i], text, offset, c);
      if (!c.found) continue;
      if (!best || c.start < best->start || (c.start == best->start && streams[i].alternative < bestAlternative)) {
        best = &c;
        bestAlternative = streams[i].alternative;
      }
    }
    if (!best) break;
    ++count;
    offset = best->end > best->start ? best->end : best->start + 1;
  }
  return count;
}

// Each alternative becomes its own stream.
std::vector<Stream> streamsOf(const std::vector<const char*>& alternatives) {
  std::vector<Stream> streams;
  for (size_t i = 0; i < alternatives.size(); ++i) {
    std::string_view alternative = alternatives[i];
    bool bang = alternative.substr(0, 3) == "\\w!";
    // Searched from its "!"; the word character before it is checked by hand.
    std::string pattern(alternative.substr(bang ? 2 : 0));
    // Compiled once per process: the streams live in function-local statics of the callers.
    streams.push_back({std::make_shared<const Regex>(compileParserPattern(pattern, true)), static_cast<int>(i), bang});
  }
  return streams;
}

size_t unityCount(std::string_view text) {
  static const std::vector<Stream> streams = streamsOf(
      {R"(UnityFramework)", R"(libunity\.so)", R"(libil2cpp\.so)", R"(il2cpp::)", R"(UnityEngine\.)",
       R"(\(at Assets/)", R"(\.cs:\d+)", R"(_m[0-9A-F]{8,}\b)"});
  return countAlternation(streams, text);
}

size_t unrealCount(std::string_view text) {
  static const std::vector<Stream> streams = streamsOf(
      {R"(\w!\w.*\[.+:\d+\])", R"(UnrealGame)", R"(UE4)", R"(UE5)", R"(libUnreal\.so)", R"(libUE4\.so)",
       R"(FDebug::)", R"(UObject)", R"(Assertion failed:.*\[File:)"});
  return countAlternation(streams, text);
}

size_t androidJavaCount(std::string_view text) {
  static const std::vector<Stream> streams = streamsOf(
      {R"(^\s*at\s+[\w$.]+\.[\w$<>]+\([\w$.]+\.(?:java|kt):\d+\))", R"(java\.lang\.)", R"(kotlin\.)",
       R"(^Caused by:)"});
  return countAlternation(streams, text);
}

size_t androidNativeCount(std::string_view text) {
  static const std::vector<Stream> streams =
      streamsOf({R"(^\s*#\d+\s+pc\s+)", R"(\.so\b)", R"(tombstone)", R"(backtrace:)"});
  return countAlternation(streams, text);
}

size_t iOSCount(std::string_view text) {
  static const std::vector<Stream> streams =
      streamsOf({R"(^\s*\d+\s+\S+\s+0x[0-9a-fA-F]+\s)", R"(EXC_[A-Z_]+)", R"(com\.apple\.)",
                 R"(\.swift:\d+)", R"(libsystem_kernel)", R"(UIKitCore)"});
  return countAlternation(streams, text);
}

}  // namespace

// The five patterns, as the table gives them (the scans above split them but count the same):
//   unity 3:  UnityFramework|libunity\.so|libil2cpp\.so|il2cpp::|UnityEngine\.|\(at Assets/|\.cs:\d+|_m[0-9A-F]{8,}\b
//   unreal 3: \w!\w.*\[.+:\d+\]|UnrealGame|UE4|UE5|libUnreal\.so|libUE4\.so|FDebug::|UObject|Assertion failed:.*\[File:
//   androidJava 2: ^\s*at\s+[\w$.]+\.[\w$<>]+\([\w$.]+\.(?:java|kt):\d+\)|java\.lang\.|kotlin\.|^Caused by:
//   androidNative 2: ^\s*#\d+\s+pc\s+|\.so\b|tombstone|backtrace:
//   iOSNative 1: ^\s*\d+\s+\S+\s+0x[0-9a-fA-F]+\s|EXC_[A-Z_]+|com\.apple\.|\.swift:\d+|libsystem_kernel|UIKitCore
PlatformScores scorePlatforms(std::string_view text) {
  PlatformScores scores;
  scores.unity = 3 * unityCount(text);
  scores.unreal = 3 * unrealCount(text);
  scores.androidJava = 2 * androidJavaCount(text);
  scores.androidNative = 2 * androidNativeCount(text);
  scores.iOSNative = iOSCount(text);
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
