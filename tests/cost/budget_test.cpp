#include <gtest/gtest.h>

#include "base/error.h"
#include "base/settings.h"
#include "cost/budget.h"
#include "cost/cost_ledger.h"
#include "support/test_support.h"

namespace quillora::cost {
namespace {

BudgetStatus status(double spent, std::optional<double> budget, BudgetMode mode) {
  return BudgetStatus::of(spent, BudgetSettings{budget, mode});
}

TEST(Budget, NoticesFromEightyPercentAndBlockModeRefusesOnceSpendReachesTheBudget) {
  const auto warn = BudgetMode::warn;
  const auto block = BudgetMode::block;
  struct Case {
    double spent;
    std::optional<double> budget;
    BudgetMode mode;
    std::optional<std::string> notice;
    std::optional<std::string> refusal;
  } cases[] = {
      {1000, std::nullopt, warn, std::nullopt, std::nullopt},
      {99, std::nullopt, block, std::nullopt, std::nullopt},
      {39.99, 50, block, std::nullopt, std::nullopt},
      {40, 50, warn, "80% of this month's $50.00 AI budget is used.", std::nullopt},
      {45, 50, block, "90% of this month's $50.00 AI budget is used.", std::nullopt},
      {49.999, 50, warn, "99% of this month's $50.00 AI budget is used.", std::nullopt},
      {0.0034, 0.004, warn, "85% of this month's $0.0040 AI budget is used.", std::nullopt},
      {50, 50, warn, "This month's AI spending ($50.00) is over the budget of $50.00", std::nullopt},
      {61.237, 50, warn, "This month's AI spending ($61.24) is over the budget of $50.00", std::nullopt},
      {50, 50, block, std::nullopt, "$50.00 of $50.00"},
      {75.5, 50, block, std::nullopt, "$75.50 of $50.00"},
  };
  for (const auto& c : cases) {
    try {
      EXPECT_EQ(checkBudget(status(c.spent, c.budget, c.mode)), c.notice) << c.spent;
      EXPECT_EQ(c.refusal, std::nullopt) << "not refused at " << c.spent;
    } catch (const BudgetError& error) {
      EXPECT_EQ(error.kind(), "budget");
      EXPECT_EQ(std::optional<std::string>(error.what()),
                "This month's AI budget is used up (" + c.refusal.value_or("?") +
                    "). Raise the budget or set it to warn only in Settings → Automation.");
    }
  }
}

class BudgetSettingsTest : public ::testing::Test {
 protected:
  void TearDown() override { base::Settings::shared().reset(); }
};

TEST_F(BudgetSettingsTest, SettingsGiveTheModeAndOnlyAPositiveBudget) {
  auto& settings = base::Settings::shared();
  settings.reset();
  EXPECT_EQ(BudgetSettings::configured().monthlyBudgetUSD, std::nullopt);
  EXPECT_EQ(BudgetSettings::configured().mode, BudgetMode::warn);
  settings.reset(base::Json::parse(R"({"cost": {"monthlyBudget": 25, "budgetMode": "block"}})"));
  EXPECT_EQ(BudgetSettings::configured().monthlyBudgetUSD, 25);
  EXPECT_EQ(BudgetSettings::configured().mode, BudgetMode::block);
  settings.reset(base::Json::parse(R"({"cost.monthlyBudget": 0})"));
  EXPECT_EQ(BudgetSettings::configured().monthlyBudgetUSD, std::nullopt);
}

TEST_F(BudgetSettingsTest, TheCheckBeforeACallReadsTheLedgerAndTheSettings) {
  quillora::testing::TempDir home;
  CostLedger ledger(home.path());
  auto now = *base::parseISO8601("2026-11-22T09:30:00Z");
  AnalysisUsage usage{"claude-api", "claude-opus-5-5", 2'000'000, 0, 0, 0, std::nullopt, 3};
  ledger.record(usage, "analysis", std::nullopt, false, PriceTable(), now);  // $8

  base::Settings::shared().reset(
      base::Json::parse(R"({"cost": {"monthlyBudget": 8, "budgetMode": "block"}})"));
  EXPECT_THROW((void)checkBudgetBeforeCall(ledger, now), BudgetError);
  EXPECT_EQ(checkBudgetBeforeCall(ledger, *base::parseISO8601("2026-12-01T00:00:00Z")), std::nullopt);

  base::Settings::shared().reset(base::Json::parse(R"({"cost": {"monthlyBudget": 10}})"));
  EXPECT_EQ(checkBudgetBeforeCall(ledger, now), "80% of this month's $10.00 AI budget is used.");

  base::Settings::shared().reset(
      base::Json::parse(R"({"cost": {"monthlyBudget": 100}, "prices": {"x": {"input": 1}}})"));
  EXPECT_THROW((void)checkBudgetBeforeCall(ledger, now), ConfigError);
}

}  // namespace
}  // namespace quillora::cost
