#pragma once

#include <string>
#include <string_view>

namespace quillora::crash {

struct ExceptionInfo {
  std::string type;
  std::string message;
};

// The exception type and message of a trace. The patterns are tried one after another, each over
// the whole text, and the first that matches anywhere decides; a match never reaches past the end
// of its line. Lines are expected with their surrounding white space already removed (indented
// "Caused by:" lines are common). Thread headers ("Crashed: …") play no part, so a Crashlytics
// text still finds the "EXC_BREAKPOINT" line after its header.
//
// Where a pattern gives only a message: "Assertion failed:" sets the type "Assertion failed",
// "Fatal error:" sets "Fatal error", "Abort message:" sets "SIGABRT" (only aborts carry one), and
// "Termination Reason:" leaves the type empty. "Unhandled Exception: <text>" takes the type up to
// the first ":" or blank and the rest, trimmed, as the message.
ExceptionInfo findException(std::string_view text);

}  // namespace quillora::crash
