#include "crash/crash_report.h"

#include "base/strings.h"
#include "base/text.h"

namespace quillora::crash {

const ThreadTrace* CrashReport::crashedThread() const {
  for (const ThreadTrace& thread : threads) {
    if (thread.isCrashed) return &thread;
  }
  return threads.empty() ? nullptr : &threads.front();
}

const StackFrame* CrashReport::blamedFrame() const {
  const ThreadTrace* thread = crashedThread();
  if (!thread) return nullptr;
  for (const StackFrame& frame : thread->frames) {
    if (frame.isInApp) return &frame;
  }
  return nullptr;
}

std::string CrashReport::title() const {
  std::string out = exceptionType.empty() ? std::string("Crash") : exceptionType;
  if (const StackFrame* frame = blamedFrame()) {
    out += " in " + shortSymbol(frame->displaySymbol(), kTitleSymbolLimit);
  }
  return out;
}

std::string CrashReport::summaryText() const {
  std::string out = "Platform: " + std::string(displayName(platform));
  out += "\nException: " + (exceptionType.empty() ? std::string("(unknown)") : exceptionType);
  if (!exceptionMessage.empty()) out += "\nMessage: " + exceptionMessage;
  if (const StackFrame* frame = blamedFrame()) {
    out += "\nBlamed frame: " + frame->displaySymbol();
    if (auto location = frame->location()) out += " (" + *location + ")";
  }
  if (const ThreadTrace* thread = crashedThread()) {
    out += "\nCrashed thread: " + thread->name;
    size_t count = std::min(thread->frames.size(), kSummaryFrameLimit);
    for (size_t i = 0; i < count; ++i) {
      const StackFrame& frame = thread->frames[i];
      out += "\n" + std::to_string(frame.index) + " " + (frame.isInApp ? "★" : " ") + " " +
             frame.module + "  " + frame.displaySymbol();
      if (auto location = frame.location()) out += " (" + *location + ")";
    }
  }
  return out;
}

size_t CrashReport::frameCount() const {
  size_t count = 0;
  for (const ThreadTrace& thread : threads) count += thread.frames.size();
  return count;
}

size_t CrashReport::inAppFrameCount() const {
  size_t count = 0;
  for (const ThreadTrace& thread : threads) {
    for (const StackFrame& frame : thread.frames) count += frame.isInApp ? 1 : 0;
  }
  return count;
}

std::string shortSymbol(std::string_view symbol, size_t limit) {
  // "f(x)" keeps its parenthesis: one this close to the start is part of the name, not a list
  // of parameters.
  for (size_t at = symbol.find('('); at != std::string_view::npos; at = symbol.find('(', at + 1)) {
    if (base::graphemeCount(symbol.substr(0, at)) >= 4) {
      symbol = symbol.substr(0, at);
      break;
    }
  }
  std::string_view cut = base::trim(symbol);
  if (base::graphemeCount(cut) <= limit) return std::string(cut);
  return std::string(base::prefixGraphemes(cut, limit)) + "…";
}

void to_json(base::Json& json, const CrashReport& report) {
  json = base::Json::object();
  json["platform"] = report.platform;
  json["exceptionType"] = report.exceptionType;
  json["exceptionMessage"] = report.exceptionMessage;
  json["threads"] = base::Json::array();
  for (const ThreadTrace& thread : report.threads) json["threads"].push_back(thread);
  json["rawText"] = report.rawText;
}

void from_json(const base::Json& json, CrashReport& report) {
  report = CrashReport{};
  if (json.is_object() && json.contains("platform")) report.platform = json["platform"].get<CrashPlatform>();
  report.exceptionType = base::readString(json, "exceptionType").value_or("");
  report.exceptionMessage = base::readString(json, "exceptionMessage").value_or("");
  if (json.is_object() && json.contains("threads") && json["threads"].is_array()) {
    for (const base::Json& item : json["threads"]) {
      if (item.is_object()) report.threads.push_back(item.get<ThreadTrace>());
    }
  }
  report.rawText = base::readString(json, "rawText").value_or("");
}

}  // namespace quillora::crash
