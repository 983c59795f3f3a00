#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

// Small byte-string helpers. Nothing here knows about Unicode; see text.h for that.
namespace quillora::base {

std::string_view trim(std::string_view s);
std::string trimmed(std::string_view s);
std::vector<std::string> split(std::string_view s, char separator);
// Splits on "\n", dropping a trailing "\r" of each line. A final newline gives no empty last line.
std::vector<std::string_view> splitLines(std::string_view s);
std::string join(const std::vector<std::string>& parts, std::string_view separator);
std::string toLowerASCII(std::string_view s);
std::string toUpperASCII(std::string_view s);
bool containsIgnoringCaseASCII(std::string_view haystack, std::string_view needle);
std::string replaceAll(std::string s, std::string_view from, std::string_view to);

// A whole decimal number with an optional sign and nothing else; nullopt otherwise.
std::optional<long long> parseInteger(std::string_view s);
// A finite decimal number in the POSIX locale; nullopt otherwise.
std::optional<double> parseDouble(std::string_view s);

// printf("%.*f") in the POSIX locale, whatever the process locale is.
std::string formatFixed(double value, int decimals);

}  // namespace quillora::base
