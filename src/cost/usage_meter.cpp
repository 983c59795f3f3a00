#include "cost/usage_meter.h"

#include <algorithm>

namespace quillora::cost {

namespace {

std::optional<long long> count(const base::Json& object, std::string_view key) {
  auto value = base::readInteger(object, key);
  if (!value) return std::nullopt;
  return std::max(0LL, *value);  // a negative count is noise, not a refund
}

const base::Json* child(const base::Json& object, std::string_view key) {
  if (!object.is_object()) return nullptr;
  auto it = object.find(key);
  return it != object.end() && it->is_object() ? &*it : nullptr;
}

// Cached prompt tokens are part of the prompt count; split them out of it.
void splitCached(UsageReport& report, std::optional<long long> cached) {
  if (!cached) return;
  report.cacheReadTokens = cached;
  if (report.inputTokens) report.inputTokens = std::max(0LL, *report.inputTokens - *cached);
}

template <typename T>
void keepLast(std::optional<T>& into, const std::optional<T>& from) {
  if (from) into = from;
}

long long sumOf(const std::optional<long long>& a) { return a.value_or(0); }

}  // namespace

UsageReport UsageReport::fromAnthropic(const base::Json& usage) {
  UsageReport report;
  report.inputTokens = count(usage, "input_tokens");
  report.outputTokens = count(usage, "output_tokens");
  report.cacheReadTokens = count(usage, "cache_read_input_tokens");
  report.cacheWriteTokens = count(usage, "cache_creation_input_tokens");
  return report;
}

UsageReport UsageReport::fromOpenAI(const base::Json& usage) {
  UsageReport report;
  report.inputTokens = count(usage, "input_tokens");
  report.outputTokens = count(usage, "output_tokens");
  if (const base::Json* details = child(usage, "input_tokens_details")) {
    splitCached(report, count(*details, "cached_tokens"));
  }
  return report;
}

UsageReport UsageReport::fromGemini(const base::Json& usageMetadata) {
  UsageReport report;
  auto prompt = count(usageMetadata, "promptTokenCount");
  auto toolPrompt = count(usageMetadata, "toolUsePromptTokenCount");
  if (prompt || toolPrompt) report.inputTokens = sumOf(prompt) + sumOf(toolPrompt);
  auto candidates = count(usageMetadata, "candidatesTokenCount");
  auto thoughts = count(usageMetadata, "thoughtsTokenCount");
  if (candidates || thoughts) report.outputTokens = sumOf(candidates) + sumOf(thoughts);
  splitCached(report, count(usageMetadata, "cachedContentTokenCount"));
  return report;
}

UsageReport UsageReport::fromClaudeCode(const base::Json& result) {
  UsageReport report;
  const base::Json* models = child(result, "modelUsage");
  if (models && !models->empty()) {
    long long input = 0, output = 0, cacheRead = 0, cacheWrite = 0;
    for (const auto& [name, usage] : models->items()) {
      input += count(usage, "inputTokens").value_or(0);
      output += count(usage, "outputTokens").value_or(0);
      cacheRead += count(usage, "cacheReadInputTokens").value_or(0);
      cacheWrite += count(usage, "cacheCreationInputTokens").value_or(0);
    }
    report.inputTokens = input;
    report.outputTokens = output;
    report.cacheReadTokens = cacheRead;
    report.cacheWriteTokens = cacheWrite;
  } else if (const base::Json* usage = child(result, "usage")) {
    report = fromAnthropic(*usage);
  }
  report.reportedCostUSD = base::readDouble(result, "total_cost_usd");
  return report;
}

void UsageMeter::record(const UsageReport& report) {
  std::lock_guard guard(m_mutex);
  if (!m_responseOpen) {
    m_entries.push_back(Entry{static_cast<int>(m_entries.size()), {}});
    m_responseOpen = true;
  }
  UsageReport& into = m_entries.back().report;
  keepLast(into.inputTokens, report.inputTokens);
  keepLast(into.outputTokens, report.outputTokens);
  keepLast(into.cacheReadTokens, report.cacheReadTokens);
  keepLast(into.cacheWriteTokens, report.cacheWriteTokens);
  keepLast(into.reportedCostUSD, report.reportedCostUSD);
  ++m_recorded;
}

void UsageMeter::nextResponse() {
  std::lock_guard guard(m_mutex);
  m_responseOpen = false;
}

int UsageMeter::recorded() const {
  std::lock_guard guard(m_mutex);
  return m_recorded;
}

std::optional<AnalysisUsage> UsageMeter::usage(const std::string& backend, const std::string& model,
                                               double durationSeconds) const {
  std::lock_guard guard(m_mutex);
  if (m_entries.empty()) return std::nullopt;
  AnalysisUsage usage;
  usage.backend = backend;
  usage.model = model;
  usage.duration = durationSeconds;
  for (const Entry& entry : m_entries) {
    const UsageReport& r = entry.report;
    usage.inputTokens += r.inputTokens.value_or(0);
    usage.outputTokens += r.outputTokens.value_or(0);
    usage.cacheReadTokens += r.cacheReadTokens.value_or(0);
    usage.cacheWriteTokens += r.cacheWriteTokens.value_or(0);
    if (r.reportedCostUSD) usage.reportedCostUSD = usage.reportedCostUSD.value_or(0) + *r.reportedCostUSD;
  }
  return usage;
}

}  // namespace quillora::cost
