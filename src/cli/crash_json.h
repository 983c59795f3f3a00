#pragma once

#include <optional>
#include <string>

#include "base/json.h"
#include "crash/crash_report.h"

namespace quillora::cli {

// Where a crash came from, for the "kind", "file", "app" and "issue" keys of CLICrash.
struct CrashOrigin {
  std::string kind = "trace";       // "trace" or "issue"
  std::optional<std::string> file;  // the --trace path; nullopt for stdin and issues
  base::Json app = nullptr;         // CLIApp or null
  base::Json issue = nullptr;       // CLIIssue or null
};

// The CLICrash object of analyze results: origin, platform display name, exception, headline
// (the report's title), blamed frame and location (or null), frame counts over all threads and
// the duplicate signature. Optional values are explicit nulls.
base::Json crashJson(const crash::CrashReport& report, const CrashOrigin& origin);

// The same facts as text lines for text reports, each ending in "\n": "Platform: …",
// "Exception: …", "Message: …" (when there is one), "Headline: …", "Blamed frame: …",
// "<k> of <n> frames in your code" and "Signature: …".
std::string crashFactsText(const crash::CrashReport& report);

}  // namespace quillora::cli
