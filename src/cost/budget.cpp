#include "cost/budget.h"

#include <cmath>

#include "base/settings.h"
#include "cost/cost_ledger.h"
#include "cost/money.h"
#include "cost/price_table.h"

namespace quillora::cost {

std::string_view budgetModeName(BudgetMode mode) {
  return mode == BudgetMode::block ? "block" : "warn";
}

BudgetSettings BudgetSettings::configured() {
  auto& settings = base::Settings::shared();
  BudgetSettings out;
  if (auto budget = settings.number("cost.monthlyBudget"); budget && std::isfinite(*budget) && *budget > 0) {
    out.monthlyBudgetUSD = budget;
  }
  if (auto mode = settings.text("cost.budgetMode")) {
    if (*mode == "block") {
      out.mode = BudgetMode::block;
    } else if (*mode != "warn") {
      throw ConfigError("The setting \"cost.budgetMode\" must be \"warn\" or \"block\", not \"" +
                        *mode + "\".");
    }
  }
  return out;
}

BudgetStatus BudgetStatus::of(double monthToDateUSD, const BudgetSettings& settings) {
  BudgetStatus status;
  status.monthToDateUSD = monthToDateUSD;
  status.monthlyBudgetUSD = settings.monthlyBudgetUSD;
  status.mode = settings.mode;
  status.exceeded = settings.monthlyBudgetUSD && monthToDateUSD >= *settings.monthlyBudgetUSD;
  return status;
}

BudgetError::BudgetError(double spentUSD, double budgetUSD)
    : Error("This month's AI budget is used up (" + formatUSD(spentUSD) + " of " +
            formatUSD(budgetUSD) +
            "). Raise the budget or set it to warn only in Settings → Automation."),
      m_spent(spentUSD),
      m_budget(budgetUSD) {}

std::optional<std::string> checkBudget(const BudgetStatus& status) {
  if (!status.monthlyBudgetUSD) return std::nullopt;
  double budget = *status.monthlyBudgetUSD;
  double spent = status.monthToDateUSD;
  if (status.exceeded) {
    if (status.mode == BudgetMode::block) throw BudgetError(spent, budget);
    return "This month's AI spending (" + formatUSD(spent) + ") is over the budget of " +
           formatUSD(budget);
  }
  // The share is rounded down so that it never reads 100% before the budget is reached.
  double share = spent / budget * 100;
  if (share < 80) return std::nullopt;
  return std::to_string(static_cast<int>(std::floor(share))) + "% of this month's " +
         formatUSD(budget) + " AI budget is used.";
}

BudgetStatus currentBudgetStatus(const CostLedger& ledger, base::Clock::time_point now) {
  BudgetSettings settings = BudgetSettings::configured();
  return BudgetStatus::of(ledger.monthToDate(now).costUSD, settings);
}

std::optional<std::string> checkBudgetBeforeCall(const CostLedger& ledger,
                                                 base::Clock::time_point now) {
  (void)PriceTable::configured();
  return checkBudget(currentBudgetStatus(ledger, now));
}

}  // namespace quillora::cost
