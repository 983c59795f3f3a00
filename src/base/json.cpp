#include "base/json.h"

#include <cmath>

#include "base/strings.h"

namespace quillora::base {

std::string dumpJson(const Json& value) {
  return value.dump(2, ' ', false, Json::error_handler_t::replace);
}

std::string dumpJsonCompact(const Json& value) {
  return value.dump(-1, ' ', false, Json::error_handler_t::replace);
}

Json jsonNumber(double value) {
  if (std::isnan(value)) return "nan";
  if (std::isinf(value)) return value > 0 ? "inf" : "-inf";
  return value;
}

std::optional<Json> parseJson(std::string_view text, std::string* error) {
  try {
    return Json::parse(text.begin(), text.end());
  } catch (const Json::parse_error& e) {
    if (error) {
      // nlohmann prefixes its reasons with "[json.exception.parse_error.101] "; users need the rest.
      std::string reason = e.what();
      if (auto pos = reason.find("] "); pos != std::string::npos) reason = reason.substr(pos + 2);
      *error = reason;
    }
    return std::nullopt;
  }
}

namespace {
const Json* member(const Json& object, std::string_view key) {
  if (!object.is_object()) return nullptr;
  auto it = object.find(key);
  if (it == object.end() || it->is_null()) return nullptr;
  return &*it;
}
}  // namespace

std::optional<std::string> readString(const Json& object, std::string_view key) {
  const Json* v = member(object, key);
  if (!v) return std::nullopt;
  if (v->is_string()) return v->get<std::string>();
  if (v->is_number_integer()) return std::to_string(v->get<long long>());
  if (v->is_number_unsigned()) return std::to_string(v->get<unsigned long long>());
  if (v->is_number_float()) return v->dump();
  if (v->is_boolean()) return v->get<bool>() ? "true" : "false";
  return std::nullopt;
}

std::optional<long long> readInteger(const Json& object, std::string_view key) {
  const Json* v = member(object, key);
  if (!v) return std::nullopt;
  if (v->is_number_integer() || v->is_number_unsigned()) return v->get<long long>();
  if (v->is_number_float()) {
    double d = v->get<double>();
    if (std::isfinite(d) && d == std::floor(d)) return static_cast<long long>(d);
    return std::nullopt;
  }
  if (v->is_string()) return parseInteger(trim(v->get<std::string>()));
  return std::nullopt;
}

std::optional<double> readDouble(const Json& object, std::string_view key) {
  const Json* v = member(object, key);
  if (!v) return std::nullopt;
  if (v->is_number()) return v->get<double>();
  if (v->is_string()) return parseDouble(trim(v->get<std::string>()));
  return std::nullopt;
}

std::optional<bool> readBool(const Json& object, std::string_view key) {
  const Json* v = member(object, key);
  if (!v) return std::nullopt;
  if (v->is_boolean()) return v->get<bool>();
  if (v->is_number_integer()) return v->get<long long>() != 0;
  if (v->is_string()) {
    std::string s = toLowerASCII(trim(v->get<std::string>()));
    if (s == "true" || s == "yes" || s == "1") return true;
    if (s == "false" || s == "no" || s == "0") return false;
  }
  return std::nullopt;
}

}  // namespace quillora::base
