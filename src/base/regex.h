#pragma once

#include <cstddef>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

// Perl-compatible regular expressions (look-ahead, multi-line anchors), compiled once with JIT.
// A Regex is immutable after construction and may be used from several threads at once.
namespace quillora::base {

struct RegexOptions {
  bool caseless = false;
  bool multiline = false;  // ^ and $ match at line breaks
  bool dotAll = false;
};

class RegexMatch {
 public:
  // The text of a capture group; empty when the group did not take part in the match.
  [[nodiscard]] std::string_view group(size_t index) const;
  [[nodiscard]] std::string_view group(std::string_view name) const;
  [[nodiscard]] bool hasGroup(size_t index) const;
  [[nodiscard]] size_t start(size_t index = 0) const { return m_spans.at(index).first; }
  [[nodiscard]] size_t end(size_t index = 0) const { return m_spans.at(index).second; }
  [[nodiscard]] size_t groupCount() const { return m_spans.size(); }

 private:
  friend class Regex;
  std::string_view m_subject;
  std::vector<std::pair<size_t, size_t>> m_spans;
  const class Regex* m_regex = nullptr;
};

class Regex {
 public:
  // Patterns are the program's own, so a pattern that doesn't compile is a programming error and
  // throws std::logic_error naming the pattern and PCRE2's reason. Subjects need not be valid
  // UTF-8: invalid sequences simply don't match.
  explicit Regex(std::string_view pattern, RegexOptions options = {});
  ~Regex();
  Regex(Regex&&) noexcept;
  Regex& operator=(Regex&&) noexcept;
  Regex(const Regex&) = delete;
  Regex& operator=(const Regex&) = delete;

  // The first match at or after offset.
  [[nodiscard]] std::optional<RegexMatch> search(std::string_view subject, size_t offset = 0) const;
  [[nodiscard]] bool test(std::string_view subject) const { return search(subject).has_value(); }
  // A match that covers the whole subject.
  [[nodiscard]] std::optional<RegexMatch> fullMatch(std::string_view subject) const;
  // Every non-overlapping match, left to right.
  [[nodiscard]] std::vector<RegexMatch> searchAll(std::string_view subject) const;
  // Replaces every match; "$1" / "${name}" in the replacement refer to groups.
  [[nodiscard]] std::string replaceAll(std::string_view subject, std::string_view replacement) const;
  [[nodiscard]] const std::string& pattern() const { return m_pattern; }

 private:
  friend class RegexMatch;
  [[nodiscard]] std::optional<RegexMatch> run(std::string_view subject, size_t offset,
                                              bool anchoredWhole) const;
  [[nodiscard]] int groupNumber(std::string_view name) const;

  std::string m_pattern;
  struct Compiled;
  std::unique_ptr<Compiled> m_compiled;
};

}  // namespace quillora::base
