#pragma once

#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "base/json.h"
#include "cost/analysis_usage.h"

namespace quillora::cost {

// The counts one usage report of a provider carries; a count the report leaves out is nullopt,
// so that a later report of the same response can fill in what an earlier one lacked.
struct UsageReport {
  std::optional<long long> inputTokens;
  std::optional<long long> outputTokens;
  std::optional<long long> cacheReadTokens;
  std::optional<long long> cacheWriteTokens;
  std::optional<double> reportedCostUSD;

  // Anthropic's "usage": "input_tokens", "output_tokens", "cache_read_input_tokens",
  // "cache_creation_input_tokens".
  static UsageReport fromAnthropic(const base::Json& usage);
  // OpenAI's "usage". Its "input_tokens" include the cached ones
  // ("input_tokens_details.cached_tokens"), which are moved to the cache-read count so that no
  // token is priced twice.
  static UsageReport fromOpenAI(const base::Json& usage);
  // Gemini's "usageMetadata". Cached tokens are taken out of "promptTokenCount" as for OpenAI;
  // thinking tokens ("thoughtsTokenCount") are billed as output.
  static UsageReport fromGemini(const base::Json& usageMetadata);
  // The Claude Code result object: the sums over "modelUsage" ("inputTokens", "outputTokens",
  // "cacheReadInputTokens", "cacheCreationInputTokens"; every model the agent used) and
  // "total_cost_usd" as the reported cost. Without "modelUsage", its "usage" object is read as
  // Anthropic's.
  static UsageReport fromClaudeCode(const base::Json& result);
};

// Meters one AI call. Engines hand it every usage report of their streams; the caller turns the
// result into an AnalysisUsage when the call ends. Safe to use from several threads at once.
//
// Repeated reports within one response keep the last value of each count: providers report
// running totals, not increments (Anthropic sends the input count and an output count of 1 at
// message_start and the final cumulative output count at message_delta; Gemini repeats the
// whole usageMetadata in every chunk), so summing them would count tokens twice. Reports of
// separate responses (a retried request, a second request of the same call) are separate
// entries, each tagged with its sequence number, and those entries are summed.
class UsageMeter {
 public:
  // Merges a report into the current response's entry (starting one when none is open).
  void record(const UsageReport& report);
  // Closes the current response; the next report starts a new entry.
  void nextResponse();

  // The number of reports recorded so far.
  [[nodiscard]] int recorded() const;
  // The sum of all entries, or nullopt when no report came in (an engine that reports nothing).
  [[nodiscard]] std::optional<AnalysisUsage> usage(const std::string& backend,
                                                   const std::string& model,
                                                   double durationSeconds) const;

 private:
  struct Entry {
    int sequence = 0;
    UsageReport report;
  };
  mutable std::mutex m_mutex;
  std::vector<Entry> m_entries;
  bool m_responseOpen = false;
  int m_recorded = 0;
};

}  // namespace quillora::cost
