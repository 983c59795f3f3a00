#include "crash/stack_frame.h"

#include "base/strings.h"

namespace quillora::crash {

std::string StackFrame::displaySymbol() const {
  return symbol.empty() ? base::trimmed(raw) : symbol;
}

std::optional<std::string> StackFrame::location() const {
  if (!file) return std::nullopt;
  if (line && *line >= 1) return *file + ":" + std::to_string(*line);
  return *file;
}

void to_json(base::Json& json, const StackFrame& frame) {
  json = base::Json::object();
  json["index"] = frame.index;
  json["module"] = frame.module;
  json["symbol"] = frame.symbol;
  json["file"] = base::orNull(frame.file);
  json["line"] = base::orNull(frame.line);
  json["isInApp"] = frame.isInApp;
  json["raw"] = frame.raw;
}

void from_json(const base::Json& json, StackFrame& frame) {
  frame = StackFrame{};
  frame.index = static_cast<int>(base::readInteger(json, "index").value_or(0));
  frame.module = base::readString(json, "module").value_or("");
  frame.symbol = base::readString(json, "symbol").value_or("");
  frame.file = base::readString(json, "file");
  if (auto line = base::readInteger(json, "line")) frame.line = static_cast<int>(*line);
  frame.isInApp = base::readBool(json, "isInApp").value_or(false);
  frame.raw = base::readString(json, "raw").value_or("");
}

}  // namespace quillora::crash
