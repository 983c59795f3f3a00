#include "crash/thread_trace.h"

namespace quillora::crash {

void to_json(base::Json& json, const ThreadTrace& thread) {
  json = base::Json::object();
  json["name"] = thread.name;
  json["isCrashed"] = thread.isCrashed;
  json["frames"] = base::Json::array();
  for (const StackFrame& frame : thread.frames) json["frames"].push_back(frame);
}

void from_json(const base::Json& json, ThreadTrace& thread) {
  thread = ThreadTrace{};
  thread.name = base::readString(json, "name").value_or("");
  thread.isCrashed = base::readBool(json, "isCrashed").value_or(false);
  if (json.is_object() && json.contains("frames") && json["frames"].is_array()) {
    for (const base::Json& item : json["frames"]) {
      if (item.is_object()) thread.frames.push_back(item.get<StackFrame>());
    }
  }
}

}  // namespace quillora::crash
