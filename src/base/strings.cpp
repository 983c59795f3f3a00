#include "base/strings.h"

#include <cctype>
#include <charconv>
#include <cmath>

#include <fmt/format.h>

namespace quillora::base {

namespace {
bool isSpace(char c) {
  return c == ' ' || c == '\t' || c == '\n' || c == '\r' || c == '\f' || c == '\v';
}
}  // namespace

std::string_view trim(std::string_view s) {
  while (!s.empty() && isSpace(s.front())) s.remove_prefix(1);
  while (!s.empty() && isSpace(s.back())) s.remove_suffix(1);
  return s;
}

std::string trimmed(std::string_view s) { return std::string(trim(s)); }

std::vector<std::string> split(std::string_view s, char separator) {
  std::vector<std::string> parts;
  size_t start = 0;
  while (true) {
    size_t end = s.find(separator, start);
    if (end == std::string_view::npos) {
      parts.emplace_back(s.substr(start));
      return parts;
    }
    parts.emplace_back(s.substr(start, end - start));
    start = end + 1;
  }
}

std::vector<std::string_view> splitLines(std::string_view s) {
  std::vector<std::string_view> lines;
  size_t start = 0;
  while (start < s.size()) {
    size_t end = s.find('\n', start);
    if (end == std::string_view::npos) end = s.size();
    std::string_view line = s.substr(start, end - start);
    if (!line.empty() && line.back() == '\r') line.remove_suffix(1);
    lines.push_back(line);
    start = end + 1;
  }
  return lines;
}

std::string join(const std::vector<std::string>& parts, std::string_view separator) {
  std::string out;
  for (size_t i = 0; i < parts.size(); ++i) {
    if (i > 0) out += separator;
    out += parts[i];
  }
  return out;
}

std::string toLowerASCII(std::string_view s) {
  std::string out(s);
  for (char& c : out) {
    if (c >= 'A' && c <= 'Z') c = static_cast<char>(c - 'A' + 'a');
  }
  return out;
}

std::string toUpperASCII(std::string_view s) {
  std::string out(s);
  for (char& c : out) {
    if (c >= 'a' && c <= 'z') c = static_cast<char>(c - 'a' + 'A');
  }
  return out;
}

bool containsIgnoringCaseASCII(std::string_view haystack, std::string_view needle) {
  return toLowerASCII(haystack).find(toLowerASCII(needle)) != std::string::npos;
}

std::string replaceAll(std::string s, std::string_view from, std::string_view to) {
  if (from.empty()) return s;
  size_t pos = 0;
  while ((pos = s.find(from, pos)) != std::string::npos) {
    s.replace(pos, from.size(), to);
    pos += to.size();
  }
  return s;
}

std::optional<long long> parseInteger(std::string_view s) {
  if (s.empty()) return std::nullopt;
  if (s.front() == '+') s.remove_prefix(1);
  long long value = 0;
  auto [end, ec] = std::from_chars(s.data(), s.data() + s.size(), value);
  if (ec != std::errc() || end != s.data() + s.size()) return std::nullopt;
  return value;
}

std::optional<double> parseDouble(std::string_view s) {
  if (s.empty()) return std::nullopt;
  if (s.front() == '+') s.remove_prefix(1);
  double value = 0;
  auto [end, ec] = std::from_chars(s.data(), s.data() + s.size(), value);
  if (ec != std::errc() || end != s.data() + s.size() || !std::isfinite(value)) return std::nullopt;
  return value;
}

std::string formatFixed(double value, int decimals) {
  // {fmt} formats without consulting the C locale unless asked to.
  return fmt::format("{:.{}f}", value, decimals);
}

}  // namespace quillora::base
