#include "history/index_file.h"

#include <algorithm>
#include <charconv>
#include <cstring>
#include "base/text.h"

namespace quillora::history {

namespace {

constexpr size_t kBad = std::string_view::npos;

// A structural scanner: it finds where values begin and end and leaves their meaning to
// nlohmann::json. Positions past the end or kBad mean the text is malformed.
class Scanner {
 public:
  explicit Scanner(std::string_view text) : m_text(text) {}

  size_t skipSpace(size_t at) const {
    while (at < m_text.size() && (m_text[at] == ' ' || m_text[at] == '\n' || m_text[at] == '\r' || m_text[at] == '\t')) ++at;
    return at;
  }

  // `at` is on the opening quote; returns the position after the closing one.
  // *unusual is set for text whose folded form the raw bytes don't show: other than ASCII, or
  // written as "\u" escapes. memchr finds the closing quote; the scan for odd bytes runs only
  // until the first one is seen.
  size_t skipString(size_t at, bool* unusual) const {
    const char* data = m_text.data();
    size_t start = at + 1;
    for (size_t from = start;;) {
      const void* found = std::memchr(data + from, '"', m_text.size() - from);
      if (!found) return kBad;
      size_t quote = static_cast<size_t>(static_cast<const char*>(found) - data);
      size_t backslashes = 0;
      while (quote - backslashes > start && data[quote - backslashes - 1] == '\\') ++backslashes;
      if (backslashes % 2 == 1) {
        from = quote + 1;
        continue;
      }
      if (!*unusual) {
        unsigned char high = 0;
        for (size_t i = start; i < quote; ++i) high |= static_cast<unsigned char>(data[i]);
        if (high & 0x80) {
          *unusual = true;
        } else if (std::memchr(data + start, '\\', quote - start) &&
                   m_text.substr(start, quote - start).find("\\u") != std::string_view::npos) {
          *unusual = true;
        }
      }
      return quote + 1;
    }
  }

  // Any value: a string, an object or array (nesting counted, strings skipped), or a scalar.
  size_t skipValue(size_t at, bool* unusual) const {
    if (at >= m_text.size()) return kBad;
    char c = m_text[at];
    if (c == '"') return skipString(at, unusual);
    if (c == '{' || c == '[') {
      std::vector<char> open;
      while (at < m_text.size()) {
        c = m_text[at];
        if (c == '"') {
          at = skipString(at, unusual);
          if (at == kBad) return kBad;
          continue;
        }
        if (c == '{' || c == '[') open.push_back(c == '{' ? '}' : ']');
        else if (c == '}' || c == ']') {
          if (open.empty() || open.back() != c) return kBad;
          open.pop_back();
          if (open.empty()) return at + 1;
        }
        ++at;
      }
      return kBad;
    }
    size_t start = at;
    while (at < m_text.size() && m_text[at] != ',' && m_text[at] != '}' && m_text[at] != ']' &&
           m_text[at] != ' ' && m_text[at] != '\n' && m_text[at] != '\r' && m_text[at] != '\t')
      ++at;
    return at == start ? kBad : at;
  }

 private:
  std::string_view m_text;
};

// A whole number, written as a number or as numeric text (the lenient readers accept both).
std::optional<long long> wholeNumber(std::string_view value) {
  if (value.size() >= 2 && value.front() == '"' && value.back() == '"') value = value.substr(1, value.size() - 2);
  long long number = 0;
  auto [end, error] = std::from_chars(value.data(), value.data() + value.size(), number);
  if (error != std::errc() || end != value.data() + value.size()) return std::nullopt;
  return number;
}

}  // namespace

std::optional<IndexFile> IndexFile::split(std::string text) {
  IndexFile file;
  file.m_text = std::move(text);
  std::string_view t = file.m_text;
  Scanner scan(t);
  bool ignored = false;
  size_t at = scan.skipSpace(0);
  if (at >= t.size() || t[at] != '{') return std::nullopt;
  at = scan.skipSpace(at + 1);
  if (at < t.size() && t[at] == '}') return scan.skipSpace(at + 1) == t.size() ? std::optional(std::move(file)) : std::nullopt;
  while (true) {
    if (at >= t.size() || t[at] != '"') return std::nullopt;
    size_t keyEnd = scan.skipString(at, &ignored);
    if (keyEnd == kBad) return std::nullopt;
    std::string_view key = t.substr(at + 1, keyEnd - at - 2);
    at = scan.skipSpace(keyEnd);
    if (at >= t.size() || t[at] != ':') return std::nullopt;
    at = scan.skipSpace(at + 1);
    if (key == "summaries") {
      if (at >= t.size() || t[at] != '[') return std::nullopt;
      file.m_spans.clear();
      at = scan.skipSpace(at + 1);
      if (at < t.size() && t[at] == ']') {
        ++at;
      } else {
        while (true) {
          Span span;
          span.begin = at;
          span.end = scan.skipValue(at, &span.unusual);
          if (span.end == kBad) return std::nullopt;
          file.m_spans.push_back(span);
          at = scan.skipSpace(span.end);
          if (at < t.size() && t[at] == ',') {
            at = scan.skipSpace(at + 1);
            continue;
          }
          if (at < t.size() && t[at] == ']') {
            ++at;
            break;
          }
          return std::nullopt;
        }
      }
    } else {
      size_t end = scan.skipValue(at, &ignored);
      if (end == kBad) return std::nullopt;
      if (key == "version") file.m_version = wholeNumber(t.substr(at, end - at));
      if (key == "signatureVersion") file.m_signatureVersion = wholeNumber(t.substr(at, end - at));
      at = end;
    }
    at = scan.skipSpace(at);
    if (at < t.size() && t[at] == ',') {
      at = scan.skipSpace(at + 1);
      continue;
    }
    if (at < t.size() && t[at] == '}') break;
    return std::nullopt;
  }
  if (scan.skipSpace(at + 1) != t.size()) return std::nullopt;
  return file;
}

std::string IndexFile::compose(int version, int signatureVersion, const std::vector<std::string_view>& elements) {
  size_t size = 64;
  for (std::string_view element : elements) size += element.size() + 1;
  std::string text;
  text.reserve(size);
  // Keys in sorted order, as every document the program writes.
  text += "{\"signatureVersion\":" + std::to_string(signatureVersion) + ",\"summaries\":[";
  for (size_t i = 0; i < elements.size(); ++i) {
    if (i > 0) text += ',';
    text += elements[i];
  }
  text += "],\"version\":" + std::to_string(version) + "}\n";
  return text;
}

std::string_view IndexFile::element(size_t index) const {
  const Span& span = m_spans.at(index);
  return std::string_view(m_text).substr(span.begin, span.end - span.begin);
}

bool IndexFile::isPlainNeedle(std::string_view needle) {
  // The source names in the search text ("Google Play") are stored as raw values ("googleplay").
  static constexpr std::string_view kSourceNames = "crashlytics\nsentry\nbugsnag\nbacktrace\ngoogle play\napp store";
  return !needle.empty() && kSourceNames.find(needle) == std::string_view::npos &&
         std::all_of(needle.begin(), needle.end(), [](char c) {
           auto u = static_cast<unsigned char>(c);
           return u >= 0x20 && u < 0x80 && c != '"' && c != '\\' && c != '/';
         });
}

void RawFolder::fold(std::string_view raw, std::string& out) {
  out.resize(raw.size());
  size_t length = 0;
  for (size_t at = 0; at < raw.size();) {
    size_t end = at;
    while (end < raw.size() && static_cast<unsigned char>(raw[end]) < 0x80) ++end;
    for (size_t i = at; i < end; ++i) {
      char c = raw[i];
      out[length++] = (c >= 'A' && c <= 'Z') ? static_cast<char>(c + 32) : c;
    }
    if (end == raw.size()) break;
    at = end;
    while (end < raw.size() && static_cast<unsigned char>(raw[end]) >= 0x80) ++end;
    std::string_view run = raw.substr(at, end - at);
    const std::string* folded = nullptr;
    for (const auto& [original, replacement] : m_runs) {
      if (original == run) {
        folded = &replacement;
        break;
      }
    }
    std::string fresh;
    if (!folded) {
      fresh = base::foldCaseAndDiacritics(run);
      if (m_runs.size() < 32) {
        m_runs.emplace_back(std::string(run), fresh);
        folded = &m_runs.back().second;
      } else {
        folded = &fresh;
      }
    }
    // Folding can lengthen a run ("ﬁ" → "fi").
    if (length + folded->size() + (raw.size() - end) > out.size()) {
      out.resize(length + folded->size() + (raw.size() - end));
    }
    std::copy(folded->begin(), folded->end(), out.begin() + static_cast<std::ptrdiff_t>(length));
    length += folded->size();
    at = end;
  }
  out.resize(length);
}

std::vector<size_t> IndexFile::elementsMayContain(std::string_view needle) const {
  std::vector<size_t> found;
  RawFolder folder;
  std::string folded;
  for (size_t index = 0; index < m_spans.size(); ++index) {
    const Span& span = m_spans[index];
    std::string_view raw = std::string_view(m_text).substr(span.begin, span.end - span.begin);
    if (!span.unusual) {
      folded.assign(raw);
      for (char& c : folded) c = (c >= 'A' && c <= 'Z') ? static_cast<char>(c + 32) : c;
    } else if (raw.find("\\u") != std::string_view::npos) {
      found.push_back(index);  // escaped text: only decoding tells
      continue;
    } else {
      folder.fold(raw, folded);
    }
    if (folded.find(needle) != std::string::npos) found.push_back(index);
  }
  return found;
}

std::optional<std::vector<IndexFile::Field>> IndexFile::fields(std::string_view element) {
  Scanner scan(element);
  bool ignored = false;
  std::vector<Field> out;
  size_t at = scan.skipSpace(0);
  if (at >= element.size() || element[at] != '{') return std::nullopt;
  at = scan.skipSpace(at + 1);
  if (at < element.size() && element[at] == '}') return out;
  while (true) {
    if (at >= element.size() || element[at] != '"') return std::nullopt;
    size_t keyEnd = scan.skipString(at, &ignored);
    if (keyEnd == kBad) return std::nullopt;
    std::string_view key = element.substr(at + 1, keyEnd - at - 2);
    at = scan.skipSpace(keyEnd);
    if (at >= element.size() || element[at] != ':') return std::nullopt;
    at = scan.skipSpace(at + 1);
    size_t end = scan.skipValue(at, &ignored);
    if (end == kBad) return std::nullopt;
    out.emplace_back(key, element.substr(at, end - at));
    at = scan.skipSpace(end);
    if (at < element.size() && element[at] == ',') {
      at = scan.skipSpace(at + 1);
      continue;
    }
    if (at < element.size() && element[at] == '}') return out;
    return std::nullopt;
  }
}

}  // namespace quillora::history
