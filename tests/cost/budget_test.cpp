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

TEST(Budget, WarnModeGivesTheShareFromEightyPercentThenTheOverBudgetLine) {
  struct Case {
    double spent;
    std::optional<double> budget;
    std::optional<std::string> notice;
  };
  const Case cases[] = {
      {0, std::nullopt, std::nullopt},
      {1000, std::nullopt, std::nullopt},
      {39.99, 50, std::nullopt},
      {40, 50, "80% of this month's $50.00 AI budget is used."},
      {49.999, 50, "99% of this month's $50.00 AI budget is used."},
      {50, 50, "This month's AI spending ($50.00) is over the budget of $50.00"},
      {61.237, 50, "This month's AI spending ($61.24) is over the budget of $50.00"},
      {0.0034, 0.004, "85% of this month's $0.0040 AI budget is used."},
  };
  for (const auto& c : cases) {
    EXPECT_EQ(checkBudget(status(c.spent, c.budget, BudgetMode::warn)), c.notice) << c.spent;
  }
}

TEST(Budget, BlockModeRefusesOnceSpendReachesTheBudget) {
  EXPECT_EQ(checkBudget(status(39.99, 50, BudgetMode::block)), std::nullopt);
  EXPECT_EQ(checkBudget(status(45, 50, BudgetMode::block)),
            "90% of this month's $50.00 AI budget is used.");
  EXPECT_EQ(checkBudget(status(99, std::nullopt, BudgetMode::block)), std::nullopt);
  for (double spent : {50.0, 75.5}) {
    try {
      (void)checkBudget(status(spent, 50, BudgetMode::block));
      ADD_FAILURE() << "not refused at " << spent;
    } catch (const BudgetError& error) {
      EXPECT_EQ(error.kind(), "budget");
      EXPECT_EQ(std::string(error.what()),
                "This month's AI budget is used up (" +
                    std::string(spent == 50 ? "$50.00" : "$75.50") +
                    " of $50.00). Raise the budget or set it to warn only in Settings → Automation.");
    }
  }
}

class BudgetSettingsTest : public ::testing::Test {
 protected:
  void TearDown() override { base::Settings::shared().reset(); }
};

TEST_F(BudgetSettingsTest, SettingsGiveTheModeAndAPositiveBudget) {
  auto& settings = base::Settings::shared();
  settings.reset();
  auto none = BudgetSettings::configured();
  EXPECT_EQ(none.monthlyBudgetUSD, std::nullopt);
  EXPECT_EQ(none.mode, BudgetMode::warn);

  settings.reset(base::Json::parse(R"({"cost": {"monthlyBudget": 25, "budgetMode": "block"}})"));
  auto block = BudgetSettings::configured();
  EXPECT_EQ(block.monthlyBudgetUSD, 25);
  EXPECT_EQ(block.mode, BudgetMode::block);

  settings.reset(base::Json::parse(R"({"cost.monthlyBudget": 0})"));
  EXPECT_EQ(BudgetSettings::configured().monthlyBudgetUSD, std::nullopt);

  settings.reset(base::Json::parse(R"({"cost.budgetMode": "strict"})"));
  try {
    (void)BudgetSettings::configured();
    ADD_FAILURE() << "strict accepted";
  } catch (const ConfigError& error) {
    EXPECT_EQ(std::string(error.what()),
              "The setting \"cost.budgetMode\" must be \"warn\" or \"block\", not \"strict\".");
  }
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
