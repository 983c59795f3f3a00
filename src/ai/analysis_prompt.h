#pragma once

#include <string>

#include "ai/ai_backend.h"
#include "ai/analysis_language.h"
#include "ai/analysis_request.h"
#include "ai/fix_analysis.h"
#include "ai/structured_prompt.h"

// Assembles what the engines are asked, from fixed text pieces in a fixed order.
namespace quillora::ai {

// Traces of this many user-perceived characters or fewer are sent whole.
inline constexpr size_t kTraceCharacterLimit = 30'000;

// The prompt of an analysis. `filesReadable` is set for the engine that opens files and images
// itself (Claude Code). The system text uses the request's skill, or the platform's built-in one.
StructuredPrompt buildAnalysisPrompt(const AnalysisRequest& request, AIBackend engine,
                                     bool filesReadable, AnalysisLanguage language);
// The same with the configured "analysisLanguage" (throws ConfigError for a bad setting).
StructuredPrompt buildAnalysisPrompt(const AnalysisRequest& request, AIBackend engine,
                                     bool filesReadable);

// The user text: opening line, ticket, pictures, crash summary and trace, developer notes, source
// code, closing instruction — each piece only when its condition holds.
std::string buildUserText(const AnalysisRequest& request, bool filesReadable);

// "Sent the trace, notes and 2 source file(s) (9 KB) to Claude API", with the ticket and images
// when there are some. KB are the user text's UTF-8 bytes / 1024, at least 1.
std::string requestSummary(const AnalysisRequest& request, const std::string& userText,
                           AIBackend engine);

// "<crash_summary>\n…</crash_summary>\n\n": the report's summary text, ending with one line break.
std::string crashSummaryElement(const crash::CrashReport& report);
// "<stack_trace>\n<raw text>\n</stack_trace>\n\n", the raw text cut after 30,000 characters.
std::string stackTraceElement(const crash::CrashReport& report);

// The user text of the Claude Code implement step, after an analysis was accepted. `report` may be
// null (a ticket without a crash); its crash summary is included only when it has a trace.
std::string buildImplementPrompt(const FixAnalysis& analysis, const crash::CrashReport* report,
                                 const std::string& notes);

}  // namespace quillora::ai
