#include <gtest/gtest.h>

#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <set>

#include "base/json.h"
#include "base/notifications.h"
#include "base/regex.h"
#include "cost/cost_ledger.h"
#include "support/test_support.h"

namespace quillora::cost {
namespace {

using quillora::testing::readText;
using quillora::testing::TempDir;

base::Clock::time_point at(const char* iso) { return *base::parseISO8601(iso); }

AnalysisUsage usage(const std::string& model, long long input, long long output) {
  AnalysisUsage u;
  u.backend = "claude-api";
  u.model = model;
  u.inputTokens = input;
  u.outputTokens = output;
  u.duration = 12.5;
  return u;
}

class CostLedgerTest : public ::testing::Test {
 protected:
  TempDir home;
  CostLedger ledger{home.path()};
  PriceTable prices;
  std::filesystem::path file() const { return home.path() / "cost-ledger.json"; }
  void writeLedger(const std::string& text) const { home.write("cost-ledger.json", text); }
};

TEST_F(CostLedgerTest, RecordWritesOneSortedPrettyEntryAndReadsItBack) {
  auto entry = ledger.record(usage("claude-sonnet-5-5-20261001", 1000, 2000), "analysis",
                             std::string("5D0C6A52-2F4B-4E55-9E55-1E1F7B0E8C11"), false, prices,
                             at("2026-11-22T09:30:00Z"));
  EXPECT_TRUE(base::Regex("^[0-9A-F]{8}-[0-9A-F]{4}-4[0-9A-F]{3}-[89AB][0-9A-F]{3}-[0-9A-F]{12}$")
                  .test(entry.id));
  ASSERT_TRUE(entry.costUSD);
  EXPECT_NEAR(*entry.costUSD, 0.022, 1e-12);

  std::string expected = R"([
  {
    "costUSD": 0.022,
    "date": "2026-11-22T09:30:00Z",
    "failed": false,
    "id": ")" + entry.id + R"(",
    "kind": "analysis",
    "recordID": "5D0C6A52-2F4B-4E55-9E55-1E1F7B0E8C11",
    "usage": {
      "backend": "claude-api",
      "cacheReadTokens": 0,
      "cacheWriteTokens": 0,
      "duration": 12.5,
      "inputTokens": 1000,
      "model": "claude-sonnet-5-5-20261001",
      "outputTokens": 2000
    }
  }
]
)";
  EXPECT_EQ(readText(file()), expected);

  auto second = ledger.record(usage("mystery-model", 5, 6), "secondOpinion", std::nullopt, true,
                              prices, at("2026-11-23T10:00:00Z"));
  EXPECT_FALSE(second.costUSD);
  auto entries = ledger.entries();
  ASSERT_EQ(entries.size(), 2u);
  EXPECT_EQ(entries[0].id, entry.id);
  EXPECT_EQ(entries[0].usage, entry.usage);
  EXPECT_EQ(entries[0].date, at("2026-11-22T09:30:00Z"));
  EXPECT_EQ(entries[1].costUSD, std::nullopt);
  EXPECT_TRUE(entries[1].failed);
  // Absent optionals are left out of the file, not written as null.
  auto json = base::Json::parse(readText(file()));
  EXPECT_FALSE(json[1].contains("costUSD"));
  EXPECT_FALSE(json[1].contains("recordID"));
}

TEST_F(CostLedgerTest, MonthBoundaryIsInUTC) {
  writeLedger(R"([
  {"date": "2026-10-31T23:59:59Z", "kind": "a", "costUSD": 1, "usage": {"model": "m"}},
  {"date": "2026-11-01T00:00:00Z", "kind": "a", "costUSD": 2, "usage": {"model": "m"}},
  {"date": "2026-11-01T00:30:00+01:00", "kind": "a", "costUSD": 4, "usage": {"model": "m"}},
  {"date": "2026-10-31T23:30:00-01:00", "kind": "a", "costUSD": 8, "usage": {"model": "m"}},
  {"date": "2026-11-30T23:59:59.999Z", "kind": "a", "costUSD": 16, "usage": {"model": "m"}},
  {"date": "2026-12-01T00:00:00Z", "kind": "a", "costUSD": 32, "usage": {"model": "m"}}
])");
  EXPECT_EQ(ledger.summary(YearMonth{2026, 10}).costUSD, 1 + 4);
  EXPECT_EQ(ledger.summary(YearMonth{2026, 11}).costUSD, 2 + 8 + 16);
  EXPECT_EQ(ledger.monthToDate(at("2026-11-30T23:59:59Z")).costUSD, 2 + 8 + 16);
  EXPECT_EQ(ledger.monthToDate(at("2026-12-01T00:00:00Z")).costUSD, 32);
  EXPECT_EQ(ledger.monthToDate(at("2026-12-01T00:30:00+01:00")).costUSD, 2 + 8 + 16);
}

TEST_F(CostLedgerTest, AppendingKeepsEveryExistingByteIncludingWhatTheReaderSkips) {
  std::string old = R"([
  {"id": "A", "date": "2026-11-02T10:00:00Z", "kind": "analysis", "costUSD": "0.5",
   "usage": {"model": "m", "inputTokens": "10"}, "note": "from a newer version"},
  42,
  {"id": "B", "date": "not a date", "kind": "analysis"}
]
)";
  writeLedger(old);
  ledger.record(usage("claude-sonnet-5-5", 1, 1), "analysis", std::nullopt, false, prices,
                at("2026-11-03T10:00:00Z"));
  std::string text = readText(file());
  EXPECT_EQ(text.substr(0, old.find("\n]")), old.substr(0, old.find("\n]")));
  auto json = base::Json::parse(text);
  ASSERT_EQ(json.size(), 4u);
  EXPECT_EQ(json[0]["note"], "from a newer version");
  EXPECT_EQ(json[1], 42);

  auto entries = ledger.entries();  // 42 and the undated entry are skipped
  ASSERT_EQ(entries.size(), 2u);
  EXPECT_EQ(entries[0].costUSD, 0.5);
  EXPECT_EQ(entries[0].usage.inputTokens, 10);
}

TEST_F(CostLedgerTest, EmptyOrBlankFilesAreEmptyLedgers) {
  for (const char* text : {"", "  \n", "[]", "[\n]\n"}) {
    writeLedger(text);
    EXPECT_TRUE(ledger.entries().empty()) << text;
    ledger.record(usage("m", 1, 1), "analysis", std::nullopt, false, prices, at("2026-11-03T10:00:00Z"));
    EXPECT_EQ(ledger.entries().size(), 1u) << text;
    EXPECT_TRUE(base::parseJson(readText(file()))) << text;
  }
}

TEST_F(CostLedgerTest, ADamagedLedgerIsNeverOverwritten) {
  const std::string tail =
      "). Quillora won't write to it until it is repaired: fix the JSON (a list of entries) in a "
      "text editor, or move the file aside to start an empty ledger.";
  struct Case {
    std::string text;
    std::string reason;
  };
  const Case cases[] = {
      {"{\"entries\": []}", "it isn't a JSON list"},
      {"[1] [2]", "parse error at line 1, column 5: syntax error while parsing value - unexpected '['; expected end of input"},
  };
  for (const auto& c : cases) {
    writeLedger(c.text);
    std::string message = "The cost ledger " + file().string() + " is damaged (" + c.reason + tail;
    try {
      ledger.record(usage("m", 1, 1), "analysis", std::nullopt, false, prices);
      ADD_FAILURE() << "recorded into " << c.text;
    } catch (const LedgerError& error) {
      EXPECT_EQ(error.what(), message);
      EXPECT_EQ(error.kind(), "ledger");
    }
    EXPECT_EQ(readText(file()), c.text);
    EXPECT_THROW((void)ledger.summary(YearMonth{2026, 11}), LedgerError);
  }
}

TEST_F(CostLedgerTest, EveryRecordIsAnnouncedInProcessAndToOtherProcesses) {
  std::atomic<int> calls = 0;
  auto token = base::addChangeObserver("costLedger", [&] { ++calls; });
  ledger.record(usage("m", 1, 1), "analysis", std::nullopt, false, prices);
  ledger.record(usage("m", 1, 1), "analysis", std::nullopt, false, prices);
  base::removeChangeObserver(token);
  ledger.record(usage("m", 1, 1), "analysis", std::nullopt, false, prices);
  EXPECT_EQ(calls, 2);
  EXPECT_TRUE(std::filesystem::exists(
      home.path() / "notifications" / "com.veldmoor.Quillora.costLedgerDidChange"));
}

TEST_F(CostLedgerTest, ParallelProcessesLoseNoEntry) {
  constexpr int kProcesses = 8;
  constexpr int kRecords = 50;
  std::vector<pid_t> children;
  for (int p = 0; p < kProcesses; ++p) {
    pid_t pid = fork();
    ASSERT_GE(pid, 0);
    if (pid == 0) {
      try {
        CostLedger own(home.path());
        for (int i = 0; i < kRecords; ++i)
          own.record(usage("claude-haiku-5-5", 1000, i), "analysis", std::nullopt, false, prices);
        _exit(0);
      } catch (...) {
        _exit(1);
      }
    }
    children.push_back(pid);
  }
  for (pid_t pid : children) {
    int status = 0;
    ASSERT_EQ(waitpid(pid, &status, 0), pid);
    EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0);
  }
  auto entries = ledger.entries();
  ASSERT_EQ(entries.size(), static_cast<size_t>(kProcesses * kRecords));
  std::set<std::string> ids;
  for (const auto& entry : entries) ids.insert(entry.id);
  EXPECT_EQ(ids.size(), entries.size());
}

}  // namespace
}  // namespace quillora::cost
