#pragma once

#include <optional>
#include <string>

#include "base/json.h"

namespace quillora::cost {

// Tokens and duration of one AI call, as the ledger stores it. `backend` is the engine's raw
// value ("claude-api", …); `reportedCostUSD` is a cost the engine reported itself (Claude Code).
struct AnalysisUsage {
  std::string backend;
  std::string model;
  long long inputTokens = 0;
  long long outputTokens = 0;
  long long cacheReadTokens = 0;
  long long cacheWriteTokens = 0;
  std::optional<double> reportedCostUSD;
  double duration = 0;  // seconds

  // Every token of the call: input, output and both cache kinds.
  [[nodiscard]] long long totalTokens() const {
    return inputTokens + outputTokens + cacheReadTokens + cacheWriteTokens;
  }
  // What the price depends on: input plus cache-read plus cache-write tokens.
  [[nodiscard]] long long promptTokens() const {
    return inputTokens + cacheReadTokens + cacheWriteTokens;
  }
  bool operator==(const AnalysisUsage&) const = default;
};

// The field names as keys; "reportedCostUSD" is left out when absent.
base::Json toJson(const AnalysisUsage& usage);
// Lenient: missing or malformed fields read as empty or 0.
AnalysisUsage analysisUsageFromJson(const base::Json& json);

}  // namespace quillora::cost
