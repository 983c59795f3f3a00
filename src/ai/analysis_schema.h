#pragma once

#include <string>
#include <string_view>

#include "base/json.h"

// The fixed JSON schemas sent to the engines, and their insertion into a request body.
namespace quillora::ai {

// The schema of FixAnalysis, sent verbatim (two-space layout, keys in the order models read best).
std::string_view fixAnalysisSchema();
// The schema of FixImplementation (the implement step of the Claude Code engine).
std::string_view fixImplementationSchema();

// The names under which engines that name their schema pass it.
inline constexpr std::string_view kFixAnalysisSchemaName = "fix_analysis";
inline constexpr std::string_view kFixImplementationSchemaName = "fix_implementation";

// The string value that marks the schema's place in a request body.
inline constexpr std::string_view kSchemaPlaceholder = "__QUILLORA_SCHEMA__";

// Serialises `body` on one line and replaces the quoted placeholder with the schema text as it
// stands, so the schema keeps its own key order and layout. Throws AIError failed "The JSON schema
// for this request isn't valid JSON." when the schema doesn't parse; nothing is sent then.
std::string insertSchema(const base::Json& body, std::string_view schema);

}  // namespace quillora::ai
