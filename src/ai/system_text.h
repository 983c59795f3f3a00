#pragma once

#include <string>
#include <string_view>

#include "ai/analysis_language.h"

// The system text every engine gets: the skill, the output contract, the language instruction.
namespace quillora::ai {

// The fixed rules every answer must follow, starting "# Quillora output contract".
std::string_view outputContract();

// "\n\nWrite the human-readable text in <language>: …", or empty when the answer language
// (after resolving `app`) is English.
std::string languageInstruction(AnalysisLanguage language);

// skill + "\n\n" + output contract + language instruction.
std::string buildSystemText(std::string_view skill, AnalysisLanguage language);
// The same with the configured "analysisLanguage" (throws ConfigError for a bad setting).
std::string buildSystemText(std::string_view skill);

}  // namespace quillora::ai
