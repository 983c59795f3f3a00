#include "cli/budget_json.h"

namespace quillora::cli {

base::Json budgetJson(const cost::BudgetStatus& status) {
  return {
      {"monthToDateUSD", base::jsonNumber(status.monthToDateUSD)},
      {"monthlyBudgetUSD", base::orNullNumber(status.monthlyBudgetUSD)},
      {"mode", std::string(cost::budgetModeName(status.mode))},
      {"exceeded", status.exceeded},
  };
}

}  // namespace quillora::cli
