#include "crash/normalized_crash.h"

namespace quillora::crash {

namespace {

std::optional<int> readInt(const base::Json& json, std::string_view key) {
  if (auto value = base::readInteger(json, key)) return static_cast<int>(*value);
  return std::nullopt;
}

const base::Json* arrayMember(const base::Json& json, const char* key) {
  if (!json.is_object()) return nullptr;
  auto it = json.find(key);
  return it != json.end() && it->is_array() ? &*it : nullptr;
}

template <typename T>
std::vector<T> readObjects(const base::Json& json, const char* key) {
  std::vector<T> out;
  if (const base::Json* list = arrayMember(json, key)) {
    for (const base::Json& item : *list) {
      if (item.is_object()) out.push_back(item.get<T>());
    }
  }
  return out;
}

std::vector<std::string> readStrings(const base::Json& json, const char* key) {
  std::vector<std::string> out;
  if (const base::Json* list = arrayMember(json, key)) {
    for (const base::Json& item : *list) {
      if (item.is_string()) out.push_back(item.get<std::string>());
    }
  }
  return out;
}

template <typename T>
base::Json encodeList(const std::vector<T>& items) {
  base::Json list = base::Json::array();
  for (const T& item : items) list.push_back(item);
  return list;
}

}  // namespace

void to_json(base::Json& json, const NormalizedCrash::Frame& frame) {
  json = {{"function", frame.function},          {"module", frame.module},
          {"file", base::orNull(frame.file)},    {"line", base::orNull(frame.line)},
          {"column", base::orNull(frame.column)}, {"inApp", base::orNull(frame.inApp)},
          {"address", base::orNull(frame.address)}};
}

void from_json(const base::Json& json, NormalizedCrash::Frame& frame) {
  frame = {};
  frame.function = base::readString(json, "function").value_or("");
  frame.module = base::readString(json, "module").value_or("");
  frame.file = base::readString(json, "file");
  frame.line = readInt(json, "line");
  frame.column = readInt(json, "column");
  frame.inApp = base::readBool(json, "inApp");
  frame.address = base::readString(json, "address");
}

void to_json(base::Json& json, const NormalizedCrash::Exception& exception) {
  json = {{"type", exception.type},
          {"message", exception.message},
          {"frames", encodeList(exception.frames)},
          {"isCrashed", exception.isCrashed}};
}

void from_json(const base::Json& json, NormalizedCrash::Exception& exception) {
  exception = {};
  exception.type = base::readString(json, "type").value_or("");
  exception.message = base::readString(json, "message").value_or("");
  exception.frames = readObjects<NormalizedCrash::Frame>(json, "frames");
  exception.isCrashed = base::readBool(json, "isCrashed").value_or(false);
}

void to_json(base::Json& json, const NormalizedCrash::Thread& thread) {
  json = {{"name", thread.name}, {"crashed", thread.crashed}, {"frames", encodeList(thread.frames)}};
}

void from_json(const base::Json& json, NormalizedCrash::Thread& thread) {
  thread = {};
  thread.name = base::readString(json, "name").value_or("");
  thread.crashed = base::readBool(json, "crashed").value_or(false);
  thread.frames = readObjects<NormalizedCrash::Frame>(json, "frames");
}

void to_json(base::Json& json, const NormalizedCrash& crash) {
  base::Json tags = base::Json::array();
  for (const auto& [key, value] : crash.tags) tags.push_back({key, value});
  json = {{"platformHint", crash.platformHint},
          {"exceptions", encodeList(crash.exceptions)},
          {"threads", encodeList(crash.threads)},
          {"rawText", base::orNull(crash.rawText)},
          {"appVersion", base::orNull(crash.appVersion)},
          {"device", base::orNull(crash.device)},
          {"os", base::orNull(crash.os)},
          {"eventTime", base::orNull(crash.eventTime)},
          {"bundleID", base::orNull(crash.bundleID)},
          {"breadcrumbs", crash.breadcrumbs},
          {"tags", tags},
          {"logs", crash.logs},
          {"extra", crash.extra}};
}

void from_json(const base::Json& json, NormalizedCrash& crash) {
  crash = {};
  crash.platformHint = base::readString(json, "platformHint").value_or("");
  crash.exceptions = readObjects<NormalizedCrash::Exception>(json, "exceptions");
  crash.threads = readObjects<NormalizedCrash::Thread>(json, "threads");
  crash.rawText = base::readString(json, "rawText");
  crash.appVersion = base::readString(json, "appVersion");
  crash.device = base::readString(json, "device");
  crash.os = base::readString(json, "os");
  crash.eventTime = base::readString(json, "eventTime");
  crash.bundleID = base::readString(json, "bundleID");
  crash.breadcrumbs = readStrings(json, "breadcrumbs");
  if (const base::Json* list = arrayMember(json, "tags")) {
    for (const base::Json& pair : *list) {
      if (pair.is_array() && pair.size() == 2 && pair[0].is_string() && pair[1].is_string()) {
        crash.tags.emplace_back(pair[0].get<std::string>(), pair[1].get<std::string>());
      }
    }
  }
  crash.logs = readStrings(json, "logs");
  crash.extra = readStrings(json, "extra");
}

}  // namespace quillora::crash
