#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "base/error.h"
#include "base/time.h"

namespace quillora::cost {

class CostLedger;

// "warn": calls go on over the budget with a notice; "block": calls are refused once the month's
// spend reaches the budget.
enum class BudgetMode { warn, block };

std::string_view budgetModeName(BudgetMode mode);

// The budget the user configured.
struct BudgetSettings {
  // Dollars per calendar month (UTC). Unset, or not above zero, means no budget.
  std::optional<double> monthlyBudgetUSD;
  BudgetMode mode = BudgetMode::warn;

  // "cost.monthlyBudget" and "cost.budgetMode" ("warn", the default, or "block"). Throws
  // ConfigError for another mode.
  static BudgetSettings configured();
};

// Where this month's spending stands against the budget.
struct BudgetStatus {
  double monthToDateUSD = 0;
  std::optional<double> monthlyBudgetUSD;
  BudgetMode mode = BudgetMode::warn;
  bool exceeded = false;  // spend has reached the budget (equal counts)

  static BudgetStatus of(double monthToDateUSD, const BudgetSettings& settings);
};

// The budget is used up in "block" mode. Exit 3.
class BudgetError : public Error {
 public:
  // "This month's AI budget is used up ($<spent> of $<budget>). Raise the budget or set it to
  // warn only in Settings → Automation."
  BudgetError(double spentUSD, double budgetUSD);
  [[nodiscard]] std::string kind() const override { return "budget"; }
  [[nodiscard]] double spentUSD() const { return m_spent; }
  [[nodiscard]] double budgetUSD() const { return m_budget; }

 private:
  double m_spent;
  double m_budget;
};

// The budget rule before an AI call. Throws BudgetError in "block" mode once spend has reached
// the budget. Otherwise returns the notice to show as a warning, if any: over the budget ("This
// month's AI spending ($<spent>) is over the budget of $<budget>"), or from 80% of it ("<share>%
// of this month's $<budget> AI budget is used.").
std::optional<std::string> checkBudget(const BudgetStatus& status);

// The status now: the configured budget against the ledger's month to date. Throws ConfigError
// for a bad mode and LedgerError for a damaged ledger.
BudgetStatus currentBudgetStatus(const CostLedger& ledger,
                                 base::Clock::time_point now = base::Clock::now());

// What every engine calls before each AI call: the configured budget against the ledger, the
// rule above, and the configured prices checked so that a malformed override fails before any
// money is spent rather than when the call is recorded. Returns the warning to show, if any.
std::optional<std::string> checkBudgetBeforeCall(const CostLedger& ledger,
                                                 base::Clock::time_point now = base::Clock::now());

}  // namespace quillora::cost
