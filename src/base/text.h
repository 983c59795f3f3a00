#pragma once

#include <cstddef>
#include <string>
#include <string_view>

// Unicode-aware text helpers (utf8proc). Input need not be valid UTF-8: invalid bytes count as one
// character each and are passed through or replaced as each function says.
namespace quillora::base {

bool isValidUTF8(std::string_view s);
// Replaces every invalid UTF-8 sequence with U+FFFD.
std::string sanitizeUTF8(std::string_view s);
// Number of user-perceived characters (extended grapheme clusters).
size_t graphemeCount(std::string_view s);
// The longest prefix holding at most `count` user-perceived characters.
std::string_view prefixGraphemes(std::string_view s, size_t count);
// Lower case with diacritics removed ("Café Ünïcode" → "cafe unicode"); invalid bytes are dropped.
std::string foldCaseAndDiacritics(std::string_view s);

}  // namespace quillora::base
