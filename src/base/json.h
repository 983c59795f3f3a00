#pragma once

#include <optional>
#include <string>
#include <string_view>

#include <nlohmann/json.hpp>

// The JSON conventions of every document the program writes, and the lenient readers every store
// and service client uses. nlohmann::json keeps object keys in a std::map, so output is sorted.
namespace quillora::base {

using Json = nlohmann::json;

// Pretty-printed with two spaces, sorted keys, "/" unescaped; invalid UTF-8 in strings is replaced
// with U+FFFD rather than throwing. No trailing newline.
std::string dumpJson(const Json& value);
// The same on one line (for logs and headers).
std::string dumpJsonCompact(const Json& value);

// A number that may not be finite: NaN and the infinities become "nan", "inf" and "-inf".
Json jsonNumber(double value);

template <typename T>
Json orNull(const std::optional<T>& value) {
  return value ? Json(*value) : Json(nullptr);
}
inline Json orNullNumber(const std::optional<double>& value) {
  return value ? jsonNumber(*value) : Json(nullptr);
}

// Parses text; on failure returns nullopt and sets *error to the parser's reason.
std::optional<Json> parseJson(std::string_view text, std::string* error = nullptr);

// Lenient readers: a missing key, null or wrong type gives nullopt; numbers are accepted where
// text is expected and numeric text where a number is expected.
std::optional<std::string> readString(const Json& object, std::string_view key);
std::optional<long long> readInteger(const Json& object, std::string_view key);
std::optional<double> readDouble(const Json& object, std::string_view key);
std::optional<bool> readBool(const Json& object, std::string_view key);

}  // namespace quillora::base
