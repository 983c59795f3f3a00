#include "cost/analysis_usage.h"

namespace quillora::cost {

base::Json toJson(const AnalysisUsage& usage) {
  base::Json json = {
      {"backend", usage.backend},
      {"model", usage.model},
      {"inputTokens", usage.inputTokens},
      {"outputTokens", usage.outputTokens},
      {"cacheReadTokens", usage.cacheReadTokens},
      {"cacheWriteTokens", usage.cacheWriteTokens},
      {"duration", base::jsonNumber(usage.duration)},
  };
  if (usage.reportedCostUSD) json["reportedCostUSD"] = base::jsonNumber(*usage.reportedCostUSD);
  return json;
}

AnalysisUsage analysisUsageFromJson(const base::Json& json) {
  AnalysisUsage usage;
  usage.backend = base::readString(json, "backend").value_or("");
  usage.model = base::readString(json, "model").value_or("");
  usage.inputTokens = base::readInteger(json, "inputTokens").value_or(0);
  usage.outputTokens = base::readInteger(json, "outputTokens").value_or(0);
  usage.cacheReadTokens = base::readInteger(json, "cacheReadTokens").value_or(0);
  usage.cacheWriteTokens = base::readInteger(json, "cacheWriteTokens").value_or(0);
  usage.reportedCostUSD = base::readDouble(json, "reportedCostUSD");
  usage.duration = base::readDouble(json, "duration").value_or(0);
  return usage;
}

}  // namespace quillora::cost
