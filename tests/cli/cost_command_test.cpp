// End-to-end tests of `quillora cost` on prepared ledgers: exact stdout, stderr and exit code.
#include <gtest/gtest.h>

#include "base/json.h"
#include "base/time.h"
#include "cost/month_summary.h"
#include "support/test_support.h"

namespace quillora::testing {
namespace {

// Three calls in October 2026 (one failed, one unpriced) and one at the last second of September.
const char* kOctoberLedger = R"([
  {"id": "1", "date": "2026-10-02T10:00:00Z", "kind": "analysis", "costUSD": 0.0323, "failed": false,
   "usage": {"backend": "claude-api", "model": "claude-sonnet-5-5", "inputTokens": 1000, "outputTokens": 2000,
             "cacheReadTokens": 3000, "cacheWriteTokens": 4000, "duration": 10}},
  {"id": "2", "date": "2026-10-03T10:00:00Z", "kind": "triage", "costUSD": 1.5, "failed": true,
   "usage": {"backend": "openai", "model": "gpt-6-astra", "inputTokens": 100000, "outputTokens": 10000,
             "cacheReadTokens": 0, "cacheWriteTokens": 0, "duration": 10}},
  {"id": "3", "date": "2026-10-04T10:00:00Z", "kind": "analysis", "failed": false,
   "usage": {"backend": "gemini", "model": "mystery-model", "inputTokens": 300, "outputTokens": 200,
             "cacheReadTokens": 0, "cacheWriteTokens": 0, "duration": 10}},
  {"id": "4", "date": "2026-09-30T23:59:59Z", "kind": "analysis", "costUSD": 9, "failed": false,
   "usage": {"backend": "claude-api", "model": "claude-opus-5-5", "inputTokens": 1, "outputTokens": 1}}
]
)";

class CostCommand : public ::testing::Test {
 protected:
  TempDir home;
  TempDir work;
  RunResult quillora(const std::vector<std::string>& args) {
    RunOptions opts;
    opts.cwd = work.path();
    return runQuillora(home.path(), args, opts);
  }
  static std::string thisMonth() {
    return cost::YearMonth::containing(base::Clock::now()).text();
  }
};

TEST_F(CostCommand, TextReportOfAPastMonthGroupsByKindAndModel) {
  home.write("cost-ledger.json", kOctoberLedger);
  auto r = quillora({"cost", "--month", "2026-10"});
  EXPECT_EQ(r.out, R"(AI spending in 2026-10: $1.53 for 3 call(s), 120500 tokens

By kind:
  triage    $1.50  1 call(s)  110000 tokens
  analysis  $0.03  2 call(s)   10500 tokens, 1 without a price

By model:
  gpt-6-astra           $1.50  1 call(s)  110000 tokens
  claude-sonnet-5-5     $0.03  1 call(s)   10000 tokens
  mystery-model      no price  1 call(s)     500 tokens

1 call(s) failed; their tokens are counted.
1 call(s) have no price (add one under "prices" in the config).
)");
  EXPECT_EQ(r.err, "");
  EXPECT_EQ(r.exitCode, 0);

  auto september = quillora({"cost", "--month", "2026-09"});
  EXPECT_EQ(september.out.substr(0, september.out.find('\n')),
            "AI spending in 2026-09: $9.00 for 1 call(s), 2 tokens");
}

TEST_F(CostCommand, JsonReportOfAPastMonthHasNoBudget) {
  home.write("cost-ledger.json", kOctoberLedger);
  auto r = quillora({"cost", "--month=2026-10", "--format", "json"});
  EXPECT_EQ(r.exitCode, 0);
  auto doc = base::Json::parse(r.out);
  EXPECT_EQ(doc["budget"], nullptr);
  EXPECT_EQ(doc["month"], "2026-10");
  EXPECT_EQ(doc["calls"], 3);
  EXPECT_EQ(doc["failedCalls"], 1);
  EXPECT_EQ(doc["unpriced"], 1);
  EXPECT_EQ(doc["tokens"], 120500);
  EXPECT_DOUBLE_EQ(doc["costUSD"].get<double>(), 1.5323);
  EXPECT_EQ(doc["byKind"][1], base::Json::parse(R"({"calls": 2, "costUSD": 0.0323, "name": "analysis",
                                                     "tokens": 10500, "unpriced": 1})"));
  // A model without a price counts as 0.0 in JSON, written as a number.
  EXPECT_NE(r.out.find(R"("costUSD": 0.0,
      "name": "mystery-model")"),
            std::string::npos)
      << r.out;
}

TEST_F(CostCommand, TheCurrentMonthReportsTheBudget) {
  std::string now = base::formatISO8601(base::Clock::now());
  home.write("cost-ledger.json", R"([{"id": "1", "date": ")" + now + R"(", "kind": "analysis",
    "costUSD": 42.5, "failed": false, "usage": {"backend": "claude-api", "model": "claude-opus-5-5",
    "inputTokens": 10000000, "outputTokens": 125000}}])");
  work.write("block.json", R"({"cost": {"monthlyBudget": 40, "budgetMode": "block"}})");
  work.write("warn.json", R"({"cost": {"monthlyBudget": 50}})");

  auto blocked = quillora({"cost", "--config", "block.json"});
  EXPECT_EQ(blocked.out, "AI spending in " + thisMonth() + R"( (month to date): $42.50 for 1 call(s), 10125000 tokens

By kind:
  analysis  $42.50  1 call(s)  10125000 tokens

By model:
  claude-opus-5-5  $42.50  1 call(s)  10125000 tokens

Budget: used up ($42.50 of $40.00), mode block: AI calls are refused until next month
)");
  EXPECT_EQ(blocked.exitCode, 0);  // reporting is not spending

  auto warned = quillora({"cost", "--config", "warn.json", "--format", "json"});
  auto budget = warned.out.substr(warned.out.find("\"budget\""));
  EXPECT_EQ(budget.substr(0, budget.find('}') + 1), R"("budget": {
    "exceeded": false,
    "mode": "warn",
    "monthToDateUSD": 42.5,
    "monthlyBudgetUSD": 50.0
  })");
  auto text = quillora({"cost", "--config", "warn.json"});
  EXPECT_NE(text.out.find("\nBudget: $42.50 of $50.00 used (85%), mode warn\n"), std::string::npos)
      << text.out;
}

TEST_F(CostCommand, AMissingLedgerIsAnEmptyMonth) {
  auto r = quillora({"cost"});
  EXPECT_EQ(r.out, "No AI calls in " + thisMonth() +
                       " (month to date).\nBudget: none (set cost.monthlyBudget in the config)\n");
  EXPECT_EQ(r.exitCode, 0);
  auto json = quillora({"cost", "--format", "json"});
  EXPECT_NE(json.out.find(R"("budget": {
    "exceeded": false,
    "mode": "warn",
    "monthToDateUSD": 0.0,
    "monthlyBudgetUSD": null
  })"), std::string::npos) << json.out;
  EXPECT_NE(json.out.find("\"byKind\": [],"), std::string::npos);
  EXPECT_FALSE(std::filesystem::exists(home.path() / "cost-ledger.json"));
}

TEST_F(CostCommand, ADamagedLedgerIsNamedAndLeftAlone) {
  const std::string damaged = "[\n  {\"id\": \"1\", \"costUSD\": 1.5,,}\n]\n";
  auto path = home.write("cost-ledger.json", damaged);
  std::string message = "The cost ledger " + path.string() +
                        " is damaged (parse error at line 2, column 30: syntax error while parsing "
                        "object key - unexpected ','; expected string literal). Quillora won't "
                        "write to it until it is repaired: fix the JSON (a list of entries) in a "
                        "text editor, or move the file aside to start an empty ledger.";
  auto r = quillora({"cost"});
  EXPECT_EQ(r.err, "quillora: error: " + message + "\n");
  EXPECT_EQ(r.out, "");
  EXPECT_EQ(r.exitCode, 1);
  auto json = quillora({"cost", "--format", "json"});
  EXPECT_NE(json.out.find("\"kind\": \"ledger\""), std::string::npos) << json.out;
  EXPECT_EQ(json.exitCode, 1);
  EXPECT_EQ(readText(path), damaged);
}

TEST_F(CostCommand, OutWritesTheReportAndBadSettingsExitTwo) {
  home.write("cost-ledger.json", kOctoberLedger);
  auto r = quillora({"cost", "--month", "2026-10", "--out", "report.txt"});
  EXPECT_EQ(r.out, "");
  EXPECT_EQ(r.err, "Wrote report.txt\n");
  EXPECT_EQ(readText(work.path() / "report.txt").substr(0, 23), "AI spending in 2026-10:");

  work.write("mode.json", R"({"cost": {"budgetMode": "strict"}})");
  auto bad = quillora({"cost", "--config", "mode.json"});
  EXPECT_EQ(bad.err,
            "quillora: error: The setting \"cost.budgetMode\" must be \"warn\" or \"block\", not "
            "\"strict\".\n");
  EXPECT_EQ(bad.exitCode, 2);
}

}  // namespace
}  // namespace quillora::testing
