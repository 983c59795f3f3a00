#include "ai/analysis_schema.h"

#include "ai/ai_error.h"
#include "base/strings.h"

namespace quillora::ai {

std::string_view fixAnalysisSchema() {
  static constexpr std::string_view schema = R"({
  "type": "object",
  "additionalProperties": false,
  "required": ["title", "severity", "confidence", "rootCause", "rootCauseCode", "fixSummary",
    "codeChanges", "reproSteps", "affectedFiles", "patch", "testSuggestions"],
  "properties": {
    "title": {"type": "string", "description": "Short ticket/PR title, under 80 characters."},
    "severity": {"type": "string", "enum": ["critical", "high", "medium", "low"]},
    "confidence": {"type": "string", "enum": ["high", "medium", "low"], "description": "How sure you are that the root cause and fix are right."},
    "rootCause": {"type": "string", "description": "Plain-language explanation of why the crash happens."},
    "rootCauseCode": {
      "type": "array",
      "description": "1-3 excerpts of the CURRENT code that cause the crash: the crashing line and, if different, where the bad value comes from.",
      "items": {
        "type": "object",
        "additionalProperties": false,
        "required": ["file", "line", "language", "code", "crashLine", "explanation"],
        "properties": {
          "file": {"type": "string", "description": "Repo-relative path."},
          "line": {"type": "integer", "description": "File line number of the first line of `code`; 0 if unknown."},
          "language": {"type": "string", "description": "swift, objc, csharp, kotlin, java, cpp, c."},
          "code": {"type": "string", "description": "3-15 lines copied exactly from the file, no line-number prefixes."},
          "crashLine": {"type": "integer", "description": "File line number inside `code` that crashes or produces the bad value; 0 if none."},
          "explanation": {"type": "string", "description": "One sentence: what goes wrong on that line."}
        }
      }
    },
    "fixSummary": {"type": "string", "description": "What the fix changes and why it prevents the crash."},
    "codeChanges": {
      "type": "array",
      "description": "The fix as concrete code edits, one entry per changed region, in the order a developer would read them.",
      "items": {
        "type": "object",
        "additionalProperties": false,
        "required": ["file", "line", "language", "explanation", "before", "after"],
        "properties": {
          "file": {"type": "string", "description": "Repo-relative path of the file being changed."},
          "line": {"type": "integer", "description": "Line number in the file where `before` starts; 0 if unknown."},
          "language": {"type": "string", "description": "Language of the snippet: swift, objc, csharp, kotlin, java, cpp, c."},
          "explanation": {"type": "string", "description": "One sentence: what this edit does and why."},
          "before": {"type": "string", "description": "The current code being replaced, copied exactly (no line-number prefixes), with 1-3 unchanged lines of context. Empty string when only adding new code."},
          "after": {"type": "string", "description": "The full replacement for `before`, same context lines included, ready to paste."}
        }
      }
    },
    "reproSteps": {"type": "array", "items": {"type": "string"}, "description": "Ordered, concrete steps a QA tester can follow to reproduce."},
    "affectedFiles": {"type": "array", "items": {"type": "string"}, "description": "Repo-relative paths the fix touches."},
    "patch": {"type": "string", "description": "Unified diff (git apply format, a/ b/ prefixes, repo-relative paths). Empty string if no code was available."},
    "testSuggestions": {"type": "array", "items": {"type": "string"}, "description": "Tests or checks that would catch a regression."}
  }
})";
  return schema;
}

std::string_view fixImplementationSchema() {
  static constexpr std::string_view schema = R"({
  "type": "object",
  "additionalProperties": false,
  "required": ["summary", "filesChanged"],
  "properties": {
    "summary": {"type": "string", "description": "What you changed, in 1-3 sentences."},
    "filesChanged": {"type": "array", "items": {"type": "string"}}
  }
})";
  return schema;
}

std::string insertSchema(const base::Json& body, std::string_view schema) {
  if (!base::parseJson(schema)) throw AIError::failed("The JSON schema for this request isn't valid JSON.");
  std::string quoted = "\"" + std::string(kSchemaPlaceholder) + "\"";
  return base::replaceAll(base::dumpJsonCompact(body), quoted, schema);
}

}  // namespace quillora::ai
