#pragma once

#include <string>
#include <string_view>

#include "crash/crash_report.h"
#include "crash/stack_trace_parser.h"

namespace quillora::crash {

enum class AppleCrashLogKind {
  none,  // not an Apple crash log
  ips,   // JSON: a one-line JSON header, then the JSON body with threads and usedImages
  text,  // the classic .crash text (possibly led by the .ips header line, as Xcode exports it)
};

// Tells an Apple crash log by its content, whatever the file is called. Cheap on text that is no
// Apple log: it looks at the first line and a few header keys only.
AppleCrashLogKind appleCrashLogKind(std::string_view text);

// Reads an Apple crash log into the CrashReport the stack-trace parser would give for the same
// crash. An .ips log is first rendered as classic text (which becomes the report's rawText, so
// engines read frames rather than JSON) and parsed; then, for both kinds, an uncaught
// Objective-C/Swift exception named in "Application Specific Information" gives the exception
// type and message, frames in the "0xBASE + offset (symbol + n)" form get their symbol, and
// .ips frames from system images (under /System/, /usr/lib/, …) are not in-app unless a configured
// prefix says so. Never throws: an .ips body that isn't valid JSON is parsed as plain text.
CrashReport readAppleCrashLog(std::string text, const StackTraceParser& parser);

// Reads any crash text: Apple crash logs through readAppleCrashLog, everything else through the
// parser.
CrashReport readCrashText(std::string text, const StackTraceParser& parser);

}  // namespace quillora::crash
