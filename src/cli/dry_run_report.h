#pragma once

#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "ai/code_snippet.h"
#include "ai/structured_prompt.h"
#include "base/json.h"
#include "cli/analyze_options.h"
#include "crash/crash_report.h"

namespace quillora::cli {

// What `analyze --dry-run` shows: exactly what would leave the machine, prepared without a key and
// without sending anything.
struct DryRun {
  ai::StructuredPrompt prompt;
  std::vector<ai::CodeSnippet> snippets;
  size_t inputBytes = 0;  // system text + user text + schema, as they would be sent
  long long estimatedInputTokens = 0;  // inputBytes / 4, rounded up
  // The price of the call with the estimated input and 1,000 to 8,000 output tokens; nullopt when
  // the model has no price.
  std::optional<std::pair<double, double>> costRangeUSD;
};

// The output tokens the cost range assumes: a short answer and a long one with a large patch.
inline constexpr long long kLowOutputTokens = 1'000;
inline constexpr long long kHighOutputTokens = 8'000;

// Collects the source excerpts (with --repo; progress lines go to standard error through
// CLIOutput) and builds the prompt the chosen engine would get. Throws ConfigError for a bad
// "skillFile", "analysisLanguage" or price override setting.
DryRun prepareDryRun(const AnalyzeOptions& options, const crash::CrashReport& report);

// The dry run as a text or Markdown result. `traceText` is the crash text as read; `crashFacts`
// (lines ending in "\n") is shown after the crash line of the text result.
std::string renderDryRunText(const DryRun& dryRun, const AnalyzeOptions& options,
                             const std::string& traceText, const std::string& crashFacts = "");
std::string renderDryRunMarkdown(const DryRun& dryRun, const AnalyzeOptions& options,
                                 const std::string& traceText);
// The "dryRun" object of the JSON result.
base::Json dryRunJson(const DryRun& dryRun, const AnalyzeOptions& options,
                      const std::string& traceText);

}  // namespace quillora::cli
