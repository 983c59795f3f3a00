#pragma once

#include "base/json.h"
#include "cost/budget.h"

namespace quillora::cli {

// The CLIBudget document of the JSON results (cost, analyze, triage): "monthToDateUSD",
// "monthlyBudgetUSD" (null without a budget), "mode" ("warn" or "block") and "exceeded".
base::Json budgetJson(const cost::BudgetStatus& status);

}  // namespace quillora::cli
