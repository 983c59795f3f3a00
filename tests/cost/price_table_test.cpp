#include <gtest/gtest.h>

#include "base/error.h"
#include "base/settings.h"
#include "base/time.h"
#include "cost/price_table.h"

namespace quillora::cost {
namespace {

base::Clock::time_point at(const char* iso) { return *base::parseISO8601(iso); }

const auto kNov = at("2026-11-22T09:30:00Z");

AnalysisUsage usage(const std::string& model, long long input, long long output = 0,
                    long long cacheRead = 0, long long cacheWrite = 0) {
  AnalysisUsage u;
  u.backend = "claude-api";
  u.model = model;
  u.inputTokens = input;
  u.outputTokens = output;
  u.cacheReadTokens = cacheRead;
  u.cacheWriteTokens = cacheWrite;
  return u;
}

TEST(PriceTable, VersionedNamesFindTheirBaseRowOnlyWithTheExactSuffixForms) {
  const std::pair<const char*, const char*> cases[] = {  // "": no price
      {"claude-sonnet-5-5", "claude-sonnet-5-5"},
      {"claude-sonnet-5-5-20261001", "claude-sonnet-5-5"},
      {"claude-sonnet-5-5@latest", "claude-sonnet-5-5"},
      {"claude-sonnet-5-5-2026-10-01", "claude-sonnet-5-5"},
      {"claude-sonnet-5-5_exp", "claude-sonnet-5-5"},
      {"claude-sonnet-5-5.preview", "claude-sonnet-5-5"},
      {"claude-sonnet-5-5-123", "claude-sonnet-5-5"},
      {"claude-sonnet-5-5-latest-thinking", "claude-sonnet-5-5"},  // only the start must match
      {"gemini-3.5-flash-lite-preview-06-17", "gemini-3.5-flash-lite"},
      {"claude-sonnet-5-5-12", ""},
      {"claude-sonnet-5-5latest", ""},
      {"claude-sonnet-5-5/latest", ""},
      {"claude-sonnet-5-5-v2", ""},
      {"claude-sonnet-5", ""},
      {"Claude-Sonnet-5-5", ""},
      {"", ""},
  };
  PriceTable table;
  for (const auto& [model, row] : cases) {
    auto match = table.lookup(model, kNov, 1000);
    EXPECT_EQ(match ? match->model : std::string(), row) << model;
  }
}

TEST(PriceTable, CostsFollowTheFormulaWithLongContextAndDatedRates) {
  struct Case {
    const char* what;
    AnalysisUsage usage;
    const char* date;
    double dollars;
  };
  // Built-in rows where they are the only ones with a long-context threshold or a dated change.
  const Case cases[] = {
      {"haiku at the threshold", usage("claude-haiku-5-5", 100'000, 1000),
       "2026-11-22T09:30:00Z", (0.1 * 100'000 + 0.5 * 1000) / 1e6},
      {"haiku one token over", usage("claude-haiku-5-5", 100'001, 1000), "2026-11-22T09:30:00Z",
       (0.5 * 100'001 + 2.5 * 1000) / 1e6},
      {"cache tokens count toward the prompt", usage("claude-haiku-5-5", 90'000, 0, 10'000, 1),
       "2026-11-22T09:30:00Z", (0.5 * 90'000 + 0.05 * 10'000 + 0.625 * 1) / 1e6},
      {"output doesn't count toward the prompt", usage("claude-haiku-5-5", 100'000, 500'000),
       "2026-11-22T09:30:00Z", (0.1 * 100'000 + 0.5 * 500'000) / 1e6},
      {"gpt at 272,000", usage("gpt-6-astra", 272'000, 10), "2026-11-22T09:30:00Z",
       (10 * 272'000 + 50 * 10) / 1e6},
      {"gpt long context above 272,000", usage("gpt-6-astra", 272'001, 10), "2026-11-22T09:30:00Z",
       (20 * 272'001 + 75 * 10) / 1e6},
      {"flash before the change", usage("gemini-3.8-flash", 1'000'000, 1'000'000, 1'000'000),
       "2027-01-01T07:59:59Z", 0.75 + 3.75 + 0.075},
      {"flash from 08:00 UTC of the change day", usage("gemini-3.8-flash", 1'000'000, 1'000'000, 1'000'000),
       "2027-01-01T08:00:00Z", 1.5 + 7.5 + 0.15},
      {"the change is at 08:00 UTC, not local time", usage("gemini-3.8-flash", 1'000'000),
       "2027-01-01T08:30:00+01:00", 0.75},
  };
  PriceTable table;
  for (const auto& c : cases) {
    auto cost = table.cost(c.usage, at(c.date));
    ASSERT_TRUE(cost) << c.what;
    EXPECT_NEAR(*cost, c.dollars, 1e-12) << c.what;
  }
}

TEST(PriceTable, ReportedCostsWinAndNeverGoNegativeAndAnUnknownModelIsUnpricedNotFree) {
  PriceTable table;
  const std::pair<const char*, double> reported[] = {
      {"claude-sonnet-5-5", -0.01}, {"claude-sonnet-5-5", 0.0}, {"claude-sonnet-5-5", 0.2472},
      {"claude-opus-4-5-20251101", 0.5}};  // no row needed
  for (const auto& [model, dollars] : reported) {
    auto u = usage(model, 1'000'000);
    u.reportedCostUSD = dollars;
    EXPECT_EQ(table.cost(u, kNov), std::max(dollars, 0.0)) << model << " " << dollars;
  }
  EXPECT_EQ(table.cost(usage("mystery-model", 1000, 1000), kNov), std::nullopt);
  EXPECT_EQ(table.cost(usage("mystery-model", 0, 0), kNov), std::nullopt);
}

TEST(PriceTable, OverridesWinHaveNoDatesOrLongContextAndTakeSuffixes) {
  PriceTable table(base::Json::parse(R"({
    "claude-haiku-5-5": {"input": 1, "output": 2},
    "house-model": {"input": 3, "output": 4, "cacheRead": 0.5, "cacheWrite": "6"},
    "house-model-mini": {"input": 0.1, "output": 0.2}
  })"));
  auto haiku = table.lookup("claude-haiku-5-5", kNov, 500'000);
  ASSERT_TRUE(haiku);
  EXPECT_EQ(haiku->source, Source::override);
  // Without cache prices, cached tokens cost the input price.
  EXPECT_NEAR(*table.cost(usage("claude-haiku-5-5", 500'000, 0, 1000, 10), kNov), (500'000 + 1000 + 10) / 1e6,
              1e-12);
  EXPECT_NEAR(*table.cost(usage("house-model-20260101", 1000, 2000, 3000, 4000), kNov),
              (3 * 1000 + 4 * 2000 + 0.5 * 3000 + 6 * 4000) / 1e6, 1e-12);
  auto mini = table.lookup("house-model-mini@latest", kNov, 10);
  ASSERT_TRUE(mini);
  EXPECT_EQ(mini->model, "house-model-mini");  // the longest known name
  EXPECT_EQ(table.lookup("claude-sonnet-5-5", kNov, 10)->source, Source::builtIn);
}

TEST(PriceTable, MalformedOverridesAreRefusedNamingTheModel) {
  const std::string tail =
      "\" under \"prices\" needs \"input\" and \"output\" (and optionally \"cacheRead\" and "
      "\"cacheWrite\") as dollars per million tokens, none negative.";
  for (const char* text : {R"({"m": {"input": 1}})", R"({"m": {"input": 1, "output": -2}})",
                           R"({"m": {"input": "cheap", "output": 2}})", R"({"m": 3})",
                           R"({"m": {"input": 1, "output": 2, "cacheRead": true}})"}) {
    try {
      PriceTable table(base::Json::parse(text));
      ADD_FAILURE() << text << " was accepted";
    } catch (const ConfigError& error) {
      EXPECT_EQ(std::string(error.what()), "The price of \"m" + tail) << text;
    }
  }
}

TEST(PriceTable, ConfiguredReadsThePricesAliasOfTheRunConfiguration) {
  auto& settings = base::Settings::shared();
  settings.reset(base::Json::parse(R"({"prices": {"house-model": {"input": 3, "output": 4}}})"));
  auto match = PriceTable::configured().lookup("house-model", kNov, 1);
  settings.reset();
  ASSERT_TRUE(match);
  EXPECT_EQ(match->source, Source::override);
  EXPECT_EQ(match->price.output, 4);
}

}  // namespace
}  // namespace quillora::cost
