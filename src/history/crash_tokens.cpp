#include "history/crash_tokens.h"

#include <algorithm>
#include <array>
#include <set>

#include "base/regex.h"
#include "base/strings.h"

namespace quillora::history {

namespace {

constexpr size_t kMaxFrameTokens = 8;
constexpr size_t kMaxTextTokens = 48;
constexpr std::string_view kInAppMark = "★";

struct FrameLine {
  bool isInApp = false;
  std::string_view module;
  std::string_view symbol;
};

// The inverse of topFrameLines(); a line in another shape counts as a symbol of a system frame.
FrameLine parseFrameLine(std::string_view line) {
  FrameLine out;
  size_t at = 0;
  while (at < line.size() && line[at] >= '0' && line[at] <= '9') ++at;
  if (at == 0 || at >= line.size() || line[at] != ' ') {
    out.symbol = base::trim(line);
    return out;
  }
  std::string_view rest = line.substr(at + 1);
  if (rest.starts_with(kInAppMark)) {
    out.isInApp = true;
    rest.remove_prefix(kInAppMark.size());
  } else if (rest.starts_with(" ")) {
    rest.remove_prefix(1);
  }
  if (rest.starts_with(" ")) rest.remove_prefix(1);
  size_t gap = rest.find("  ");
  if (gap == std::string_view::npos) {
    out.symbol = base::trim(rest);
    return out;
  }
  out.module = rest.substr(0, gap);
  out.symbol = base::trim(rest.substr(gap + 2));
  return out;
}

bool hasLetter(std::string_view s) {
  return std::any_of(s.begin(), s.end(), [](char c) {
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || static_cast<unsigned char>(c) >= 0x80;
  });
}

bool isWordByte(char c) {
  return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '_' ||
         static_cast<unsigned char>(c) >= 0x80;
}

bool isFillerWord(std::string_view word) {
  static constexpr std::array<std::string_view, 24> kFiller = {
      "the",  "and",  "for",  "with", "not",  "was",  "are",  "has",  "have", "this", "that", "from",
      "into", "but",  "its",  "can",  "cannot", "could", "been", "when", "while", "then", "there",
      "which"};
  return std::find(kFiller.begin(), kFiller.end(), word) != kFiller.end();
}

}  // namespace

std::vector<std::string> topFrameLines(const crash::CrashReport& report, size_t limit) {
  std::vector<std::string> lines;
  const crash::ThreadTrace* thread = report.crashedThread();
  if (!thread) return lines;
  size_t count = std::min(thread->frames.size(), limit);
  lines.reserve(count);
  for (size_t i = 0; i < count; ++i) {
    const crash::StackFrame& frame = thread->frames[i];
    std::string line = std::to_string(frame.index) + " " +
                       (frame.isInApp ? std::string(kInAppMark) : std::string(" ")) + " " +
                       frame.module + "  " + frame.displaySymbol();
    if (auto location = frame.location()) line += " (" + *location + ")";
    lines.push_back(std::move(line));
  }
  return lines;
}

std::string frameKey(std::string_view symbol) {
  // Offsets, addresses and IL2CPP's "[0x…]" differ between builds of the same code; so do the
  // numbers compilers put in lambda and closure names, which are kept as "#".
  static const base::Regex kBuildNoise(
      R"(\s*\+\s*(?:0x[0-9a-fA-F]+|\d+)|\[0x[0-9a-fA-F]+\]|\b0x[0-9a-fA-F]+\b)");
  static const base::Regex kNumber(R"(\d+)");
  static const base::Regex kSpaces(R"(\s+)");
  symbol = base::trim(symbol);
  for (size_t at = symbol.find('('); at != std::string_view::npos; at = symbol.find('(', at + 1)) {
    if (at >= 4) {
      symbol = symbol.substr(0, at);
      break;
    }
  }
  std::string key = kBuildNoise.replaceAll(symbol, "");
  key = kNumber.replaceAll(key, "#");
  key = kSpaces.replaceAll(key, " ");
  key = base::toLowerASCII(base::trim(key));
  if (!hasLetter(key)) return {};
  return key;
}

std::vector<std::string> frameTokens(const std::vector<std::string>& lines) {
  std::vector<FrameLine> frames;
  frames.reserve(lines.size());
  bool anyInApp = false;
  for (const std::string& line : lines) {
    frames.push_back(parseFrameLine(line));
    anyInApp = anyInApp || frames.back().isInApp;
  }
  std::vector<std::string> keys;
  for (const FrameLine& frame : frames) {
    if (keys.size() == kMaxFrameTokens) break;
    if (anyInApp && !frame.isInApp) continue;
    std::string key = frameKey(frame.symbol);
    // An unsymbolicated frame reduces to its module's name, which says little about the crash.
    if (key.empty() || key == base::toLowerASCII(base::trim(frame.module))) continue;
    if (std::find(keys.begin(), keys.end(), key) == keys.end()) keys.push_back(std::move(key));
  }
  return keys;
}

std::vector<std::string> textTokens(const std::vector<std::string_view>& texts) {
  // The first words win when there are too many: the exception and blamed symbol come first.
  std::set<std::string> words;
  for (std::string_view text : texts) {
    if (words.size() >= kMaxTextTokens) break;
    size_t at = 0;
    while (at < text.size()) {
      while (at < text.size() && !isWordByte(text[at])) ++at;
      size_t start = at;
      while (at < text.size() && isWordByte(text[at])) ++at;
      std::string_view word = text.substr(start, at - start);
      if (word.size() < 3) continue;
      if (std::any_of(word.begin(), word.end(), [](char c) { return c >= '0' && c <= '9'; })) continue;
      std::string lower = base::toLowerASCII(word);
      // Identifiers like "_player" and "player" are the same word.
      size_t first = lower.find_first_not_of('_');
      if (first == std::string::npos) continue;
      lower.erase(0, first);
      while (!lower.empty() && lower.back() == '_') lower.pop_back();
      if (lower.size() < 3 || isFillerWord(lower)) continue;
      if (words.size() >= kMaxTextTokens) break;
      words.insert(std::move(lower));
    }
  }
  return {words.begin(), words.end()};
}

}  // namespace quillora::history
