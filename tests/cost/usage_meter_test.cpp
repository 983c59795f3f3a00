#include <gtest/gtest.h>

#include <thread>
#include <vector>

#include "base/json.h"
#include "base/strings.h"
#include "cost/usage_meter.h"
#include "support/test_support.h"

namespace quillora::cost {
namespace {

using quillora::testing::fixture;
using quillora::testing::readText;

// The JSON payloads of a recorded stream: "data: " lines of SSE, or one object per line.
std::vector<base::Json> payloads(const std::string& file) {
  std::vector<base::Json> out;
  std::string text = readText(fixture("cost/" + file));
  for (auto line : base::splitLines(text)) {
    if (line.rfind("data: ", 0) == 0) line.remove_prefix(6);
    if (auto json = base::parseJson(line); json && json->is_object()) out.push_back(*json);
  }
  return out;
}

AnalysisUsage tokens(long long in, long long out, long long cacheRead, long long cacheWrite) {
  AnalysisUsage u;
  u.backend = "engine";
  u.model = "model";
  u.inputTokens = in;
  u.outputTokens = out;
  u.cacheReadTokens = cacheRead;
  u.cacheWriteTokens = cacheWrite;
  u.duration = 1.5;
  return u;
}

TEST(UsageMeter, AnthropicStreamKeepsTheFinalCumulativeOutputCount) {
  UsageMeter meter;
  for (const auto& event : payloads("anthropic_extended_thinking.sse")) {
    if (event.contains("message") && event["message"].contains("usage")) {
      meter.record(UsageReport::fromAnthropic(event["message"]["usage"]));
    } else if (event.contains("usage")) {
      meter.record(UsageReport::fromAnthropic(event["usage"]));
    }
  }
  EXPECT_EQ(meter.recorded(), 2);  // message_start and message_delta
  // message_start says 5 output tokens, message_delta 452 in all: not 457.
  EXPECT_EQ(meter.usage("engine", "model", 1.5), tokens(50, 452, 0, 0));
}

TEST(UsageMeter, OpenAICachedTokensMoveFromInputToCacheRead) {
  UsageMeter meter;
  for (const auto& event : payloads("openai_completed_cached_tokens.jsonl")) {
    if (event.contains("response") && event["response"]["usage"].is_object()) {
      meter.record(UsageReport::fromOpenAI(event["response"]["usage"]));
    }
  }
  EXPECT_EQ(meter.usage("engine", "model", 1.5), tokens(7112 - 3072, 463, 3072, 0));
}

TEST(UsageMeter, GeminiRepeatsItsTotalsAndBillsThoughtsAsOutput) {
  UsageMeter meter;
  for (const auto& chunk : payloads("gemini_thought_chunks.jsonl")) {
    if (chunk.contains("usageMetadata")) meter.record(UsageReport::fromGemini(chunk["usageMetadata"]));
  }
  EXPECT_EQ(meter.recorded(), 3);
  EXPECT_EQ(meter.usage("engine", "model", 1.5), tokens(9, 23 + 185, 0, 0));

  UsageMeter cached;
  cached.record(UsageReport::fromGemini(base::Json::parse(
      R"({"promptTokenCount": 1000, "cachedContentTokenCount": 800, "candidatesTokenCount": 7})")));
  EXPECT_EQ(cached.usage("engine", "model", 1.5), tokens(200, 7, 800, 0));
}

TEST(UsageMeter, ClaudeCodeResultSumsEveryModelAndKeepsTheReportedCost) {
  UsageMeter meter;
  meter.record(UsageReport::fromClaudeCode(base::Json::parse(readText(fixture("cost/claude_code_result_success.json")))));
  auto expected = tokens(38, 765, 28775, 31159);
  expected.reportedCostUSD = 0.24722425;
  EXPECT_EQ(meter.usage("engine", "model", 1.5), expected);

  UsageMeter twoModels;
  twoModels.record(UsageReport::fromClaudeCode(base::Json::parse(R"({
    "total_cost_usd": 0.3,
    "modelUsage": {"a": {"inputTokens": 1, "outputTokens": 2, "cacheReadInputTokens": 3, "cacheCreationInputTokens": 4},
                   "b": {"inputTokens": 10, "outputTokens": 20}}})")));
  auto both = tokens(11, 22, 3, 4);
  both.reportedCostUSD = 0.3;
  EXPECT_EQ(twoModels.usage("engine", "model", 1.5), both);
}

TEST(UsageMeter, SeparateResponsesAreSummedAndANeverUsedMeterHasNoUsage) {
  UsageMeter meter;
  EXPECT_EQ(meter.usage("engine", "model", 1.5), std::nullopt);
  meter.record(UsageReport{100, 1, 5, 7, std::nullopt});
  meter.record(UsageReport{std::nullopt, 40, std::nullopt, std::nullopt, std::nullopt});
  meter.nextResponse();  // a retried request
  meter.record(UsageReport{100, 60, 0, 0, std::nullopt});
  EXPECT_EQ(meter.usage("engine", "model", 1.5), tokens(200, 100, 5, 7));
  EXPECT_EQ(meter.recorded(), 3);
}

TEST(UsageMeter, ReportsFromManyThreadsAreAllCounted) {
  // Stream callbacks and the caller touch one meter from different threads.
  UsageMeter meter;
  std::vector<std::thread> threads;
  for (int t = 0; t < 8; ++t) {
    threads.emplace_back([&meter] {
      for (int i = 0; i < 1000; ++i) meter.record(UsageReport{1000, 5, std::nullopt, 2, std::nullopt});
    });
  }
  for (auto& thread : threads) thread.join();
  EXPECT_EQ(meter.recorded(), 8000);
  EXPECT_EQ(meter.usage("engine", "model", 1.5), tokens(1000, 5, 0, 2));
}

}  // namespace
}  // namespace quillora::cost
