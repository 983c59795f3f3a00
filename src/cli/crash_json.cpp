#include "cli/crash_json.h"

#include <fmt/format.h>

#include "crash/crash_signature.h"

namespace quillora::cli {

base::Json crashJson(const crash::CrashReport& report, const CrashOrigin& origin) {
  const crash::StackFrame* blamed = report.blamedFrame();
  base::Json json = base::Json::object();
  json["kind"] = origin.kind;
  json["file"] = base::orNull(origin.file);
  json["app"] = origin.app;
  json["issue"] = origin.issue;
  json["platform"] = std::string(crash::displayName(report.platform));
  json["exceptionType"] = report.exceptionType;
  json["exceptionMessage"] = report.exceptionMessage;
  json["headline"] = report.title();
  json["blameFrame"] = blamed ? base::Json(blamed->displaySymbol()) : base::Json(nullptr);
  json["blameLocation"] = blamed ? base::orNull(blamed->location()) : base::Json(nullptr);
  json["frames"] = report.frameCount();
  json["inAppFrames"] = report.inAppFrameCount();
  json["signature"] = crash::crashSignature(report);
  return json;
}

std::string crashFactsText(const crash::CrashReport& report) {
  std::string out;
  out += "Platform: " + std::string(crash::displayName(report.platform)) + "\n";
  out += "Exception: " + (report.exceptionType.empty() ? std::string("(unknown)") : report.exceptionType) + "\n";
  if (!report.exceptionMessage.empty()) out += "Message: " + report.exceptionMessage + "\n";
  out += "Headline: " + report.title() + "\n";
  if (const crash::StackFrame* blamed = report.blamedFrame()) {
    out += "Blamed frame: " + blamed->displaySymbol();
    if (auto location = blamed->location()) out += " (" + *location + ")";
    out += "\n";
  } else {
    out += "Blamed frame: none\n";
  }
  out += fmt::format("{} of {} frames in your code\n", report.inAppFrameCount(), report.frameCount());
  out += "Signature: " + crash::crashSignature(report) + "\n";
  return out;
}

}  // namespace quillora::cli
