#include <algorithm>
#include <cmath>

#include <fmt/format.h>

#include "cli/budget_json.h"
#include "cli/commands/commands.h"
#include "cost/budget.h"
#include "cost/cost_ledger.h"
#include "cost/money.h"

namespace quillora::cli {

namespace {

base::Json groupsJson(const std::vector<cost::CostGroup>& groups) {
  base::Json list = base::Json::array();
  for (const auto& group : groups) {
    list.push_back({{"name", group.name},
                    {"calls", group.calls},
                    {"tokens", group.tokens},
                    {"costUSD", base::jsonNumber(group.costUSD)},
                    {"unpriced", group.unpriced}});
  }
  return list;
}

base::Json reportJson(const cost::MonthSummary& summary,
                      const std::optional<cost::BudgetStatus>& budget) {
  base::Json doc = jsonResultHead("cost", true);
  doc["month"] = summary.month.text();
  doc["costUSD"] = base::jsonNumber(summary.costUSD);
  doc["tokens"] = summary.tokens;
  doc["calls"] = summary.calls;
  doc["unpriced"] = summary.unpriced;
  doc["failedCalls"] = summary.failedCalls;
  doc["byKind"] = groupsJson(summary.byKind);
  doc["byModel"] = groupsJson(summary.byModel);
  doc["budget"] = budget ? budgetJson(*budget) : base::Json(nullptr);
  return doc;
}

// A group whose calls all lack a price cost an unknown amount, not $0.00.
std::string groupCost(const cost::CostGroup& group) {
  return group.unpriced == group.calls ? "no price" : cost::formatUSD(group.costUSD);
}

// One aligned line per group: name, dollars, calls, tokens, and the unpriced calls if any.
std::string groupsText(const std::string& heading, const std::vector<cost::CostGroup>& groups) {
  size_t nameWidth = 0, costWidth = 0, callsWidth = 0, tokensWidth = 0;
  for (const auto& g : groups) {
    nameWidth = std::max(nameWidth, g.name.size());
    costWidth = std::max(costWidth, groupCost(g).size());
    callsWidth = std::max(callsWidth, std::to_string(g.calls).size());
    tokensWidth = std::max(tokensWidth, std::to_string(g.tokens).size());
  }
  std::string text = heading + "\n";
  for (const auto& g : groups) {
    text += fmt::format("  {:<{}}  {:>{}}  {:>{}} call(s)  {:>{}} tokens", g.name, nameWidth,
                        groupCost(g), costWidth, g.calls, callsWidth, g.tokens,
                        tokensWidth);
    if (g.unpriced > 0 && g.unpriced < g.calls) text += fmt::format(", {} without a price", g.unpriced);
    text += "\n";
  }
  return text;
}

std::string budgetLine(const cost::BudgetStatus& budget) {
  if (!budget.monthlyBudgetUSD) return "Budget: none (set cost.monthlyBudget in the config)\n";
  std::string spent = cost::formatUSD(budget.monthToDateUSD);
  std::string limit = cost::formatUSD(*budget.monthlyBudgetUSD);
  if (budget.exceeded && budget.mode == cost::BudgetMode::block) {
    return "Budget: used up (" + spent + " of " + limit +
           "), mode block: AI calls are refused until next month\n";
  }
  if (budget.exceeded) return "Budget: over (" + spent + " of " + limit + "), mode warn\n";
  auto share = static_cast<int>(std::floor(budget.monthToDateUSD / *budget.monthlyBudgetUSD * 100));
  return fmt::format("Budget: {} of {} used ({}%), mode {}\n", spent, limit, share,
                     cost::budgetModeName(budget.mode));
}

std::string reportText(const cost::MonthSummary& summary, bool currentMonth,
                       const std::optional<cost::BudgetStatus>& budget) {
  std::string month = summary.month.text() + (currentMonth ? " (month to date)" : "");
  std::string text;
  if (summary.calls == 0) {
    text = "No AI calls in " + month + ".\n";
  } else {
    text = fmt::format("AI spending in {}: {} for {} call(s), {} tokens\n", month,
                       cost::formatUSD(summary.costUSD), summary.calls, summary.tokens);
    text += "\n" + groupsText("By kind:", summary.byKind);
    text += "\n" + groupsText("By model:", summary.byModel);
    text += "\n";
  }
  if (budget) text += budgetLine(*budget);
  if (summary.failedCalls > 0) {
    text += fmt::format("{} call(s) failed; their tokens are counted.\n", summary.failedCalls);
  }
  if (summary.unpriced > 0) {
    text += fmt::format("{} call(s) have no price (add one under \"prices\" in the config).\n",
                        summary.unpriced);
  }
  return text;
}

}  // namespace

int runCost(CommandContext& context) {
  auto thisMonth = cost::YearMonth::containing(base::Clock::now());
  auto month = thisMonth;
  if (auto given = context.args.value("month")) {
    auto parsed = cost::YearMonth::parse(*given);
    if (!parsed) throw CLIUsageError("--month must look like 2026-10.");
    month = *parsed;
  }
  auto settings = cost::BudgetSettings::configured();
  auto summary = cost::CostLedger().summary(month);
  // The budget is a monthly one: it is reported for the current month only.
  std::optional<cost::BudgetStatus> budget;
  if (month == thisMonth) budget = cost::BudgetStatus::of(summary.costUSD, settings);

  if (context.format == "json") {
    writeJsonResult(context, reportJson(summary, budget));
  } else {
    writeResult(context, reportText(summary, month == thisMonth, budget));
  }
  return 0;
}

}  // namespace quillora::cli
