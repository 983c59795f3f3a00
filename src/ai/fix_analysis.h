#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "base/json.h"

// The structured answer every engine returns, and the answer of the implement step.
namespace quillora::ai {

// One excerpt of the current code behind the crash (an item of `rootCauseCode`).
struct CodeExcerpt {
  std::string file;  // repo-relative
  long long line = 0;  // file line of the first line of `code`; 0 if unknown
  std::string language;
  std::string code;  // 3 to 15 lines copied from the file
  long long crashLine = 0;  // file line of the crashing line; 0 if none
  std::string explanation;
  bool operator==(const CodeExcerpt&) const = default;
};

// One edited region of the fix (an item of `codeChanges`).
struct CodeChange {
  std::string file;
  long long line = 0;  // where `before` starts; 0 if unknown
  std::string language;
  std::string explanation;
  std::string before;  // empty when only adding code
  std::string after;
  bool operator==(const CodeChange&) const = default;
};

// The analysis of one crash.
struct FixAnalysis {
  std::string title;
  std::string severity = "medium";
  std::string confidence = "low";
  std::string rootCause;
  std::vector<CodeExcerpt> rootCauseCode;
  std::string fixSummary;
  std::vector<std::string> reproSteps;
  std::vector<std::string> affectedFiles;
  std::string patch;
  std::vector<std::string> testSuggestions;
  std::vector<CodeChange> codeChanges;
  bool operator==(const FixAnalysis&) const = default;
};

// What the implement step of the Claude Code engine reports.
struct FixImplementation {
  std::string summary;
  std::vector<std::string> filesChanged;
  bool operator==(const FixImplementation&) const = default;
};

// JSON with the field names as keys.
base::Json toJson(const CodeExcerpt& excerpt);
base::Json toJson(const CodeChange& change);
base::Json toJson(const FixAnalysis& analysis);
base::Json toJson(const FixImplementation& implementation);

// Lenient decoding: only `title` is required; a missing `severity` is "medium", a missing
// `confidence` "low", other missing fields empty. Excerpts and changes need all six keys; an item
// without them (or any other malformed list element) is skipped. nullopt when `title` is missing
// or the value is not an object.
std::optional<FixAnalysis> fixAnalysisFromJson(const base::Json& json);
// Both keys may be missing; nullopt only when the value is not an object.
std::optional<FixImplementation> fixImplementationFromJson(const base::Json& json);

// Decodes an engine's answer text: the trimmed text as a whole, then the slice from the first "{"
// to the last "}" (so prose and code fences around the JSON don't matter). Throws AIError
// badResponse "empty response" or "not JSON".
FixAnalysis decodeFixAnalysis(std::string_view answer);
FixImplementation decodeFixImplementation(std::string_view answer);

}  // namespace quillora::ai
