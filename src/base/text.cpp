#include "base/text.h"

#include <cstdlib>

#include <utf8proc.h>

namespace quillora::base {

namespace {
// Decodes one code point at s[i]; returns its length, or -1 for an invalid sequence.
utf8proc_ssize_t decode(std::string_view s, size_t i, utf8proc_int32_t* cp) {
  return utf8proc_iterate(reinterpret_cast<const utf8proc_uint8_t*>(s.data() + i),
                          static_cast<utf8proc_ssize_t>(s.size() - i), cp);
}
}  // namespace

bool isValidUTF8(std::string_view s) {
  for (size_t i = 0; i < s.size();) {
    if (static_cast<unsigned char>(s[i]) < 0x80) {
      ++i;
      continue;
    }
    utf8proc_int32_t cp = 0;
    utf8proc_ssize_t n = decode(s, i, &cp);
    if (n <= 0) return false;
    i += static_cast<size_t>(n);
  }
  return true;
}

std::string sanitizeUTF8(std::string_view s) {
  std::string out;
  out.reserve(s.size());
  for (size_t i = 0; i < s.size();) {
    if (static_cast<unsigned char>(s[i]) < 0x80) {
      out.push_back(s[i++]);
      continue;
    }
    utf8proc_int32_t cp = 0;
    utf8proc_ssize_t n = decode(s, i, &cp);
    if (n <= 0) {
      out.append("\xEF\xBF\xBD");
      ++i;
    } else {
      out.append(s.substr(i, static_cast<size_t>(n)));
      i += static_cast<size_t>(n);
    }
  }
  return out;
}

std::string_view prefixGraphemes(std::string_view s, size_t count) {
  if (count == 0) return s.substr(0, 0);
  size_t seen = 0;
  utf8proc_int32_t previous = -1;
  utf8proc_int32_t state = 0;
  for (size_t i = 0; i < s.size();) {
    utf8proc_int32_t cp = 0;
    utf8proc_ssize_t n = decode(s, i, &cp);
    size_t length = n <= 0 ? 1 : static_cast<size_t>(n);
    if (n <= 0) cp = 0xFFFD;
    bool boundary = previous < 0 || utf8proc_grapheme_break_stateful(previous, cp, &state);
    if (boundary) {
      if (seen == count) return s.substr(0, i);
      ++seen;
    }
    previous = n <= 0 ? -1 : cp;  // an invalid byte stands alone
    if (n <= 0) state = 0;
    i += length;
  }
  return s;
}

size_t graphemeCount(std::string_view s) {
  size_t seen = 0;
  utf8proc_int32_t previous = -1;
  utf8proc_int32_t state = 0;
  for (size_t i = 0; i < s.size();) {
    utf8proc_int32_t cp = 0;
    utf8proc_ssize_t n = decode(s, i, &cp);
    if (n <= 0) {
      ++seen;
      previous = -1;
      state = 0;
      ++i;
      continue;
    }
    if (previous < 0 || utf8proc_grapheme_break_stateful(previous, cp, &state)) ++seen;
    previous = cp;
    i += static_cast<size_t>(n);
  }
  return seen;
}

std::string foldCaseAndDiacritics(std::string_view s) {
  std::string valid;
  valid.reserve(s.size());
  for (size_t i = 0; i < s.size();) {
    utf8proc_int32_t cp = 0;
    utf8proc_ssize_t n = decode(s, i, &cp);
    if (n <= 0) {
      ++i;
      continue;
    }
    valid.append(s.substr(i, static_cast<size_t>(n)));
    i += static_cast<size_t>(n);
  }
  utf8proc_uint8_t* mapped = nullptr;
  utf8proc_ssize_t length = utf8proc_map(
      reinterpret_cast<const utf8proc_uint8_t*>(valid.data()),
      static_cast<utf8proc_ssize_t>(valid.size()), &mapped,
      static_cast<utf8proc_option_t>(UTF8PROC_COMPOSE | UTF8PROC_CASEFOLD | UTF8PROC_STRIPMARK |
                                     UTF8PROC_COMPAT));
  if (length < 0) return valid;
  std::string out(reinterpret_cast<char*>(mapped), static_cast<size_t>(length));
  std::free(mapped);
  return out;
}

}  // namespace quillora::base
