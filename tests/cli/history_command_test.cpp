// `quillora history` on a prepared store: exact output, documents and exit codes.
#include <gtest/gtest.h>

#include <fstream>

#include "base/json.h"
#include "crash/apple_crash_log_reader.h"
#include "crash/crash_signature.h"
#include "history/history_store.h"
#include "support/history_samples.h"
#include "support/test_support.h"

namespace quillora::testing {
namespace {

class HistoryCommand : public ::testing::Test {
 protected:
  void SetUp() override {
    history::HistoryStore store(home.path());
    auto unity = sampleRecord(unityCrash(), "Player used after destroy", "2026-10-01T09:30:00Z", "sig-a");
    unity.id = "3F2A9C1B-0000-4000-8000-000000000001";
    unity.costUSD = 0.0421;
    store.save(unity);

    auto native = sampleRecord(nativeCrash({{"GameCore::Shop::Buy(int) + 12", "Shop.cpp", 77}}, 1),
                               "Shop buys with an empty wallet", "2026-10-02T18:05:00Z", "sig-b");
    native.id = "7C01D2E4-0000-4000-8000-000000000002";
    native.subject.kind = "crashReport";
    native.subject.source = "sentry";
    native.subject.appName = "Space Miners";
    native.subject.issueID = "4242";
    native.subject.issueTitle = "EXC_BAD_ACCESS in Shop::Buy";
    native.analysis.severity = "critical";
    native.branch = "quillora/fix-shop";
    native.baseBranch = "main";
    native.verification = "testsPass";
    native.ticketKeys = {"GAME-12"};
    native.analysis.reproSteps = {"Open the shop", "Buy with 0 coins"};
    store.save(native);

    auto ticket = sampleRecord(unityCrash("Game.Inventory.Add ()"), "Inventory null slot",
                               "2026-10-03T07:00:00Z", "sig-c");
    ticket.id = "7C01AAAA-0000-4000-8000-000000000003";
    ticket.subject.kind = "ticket";
    ticket.subject.ticketService = "jira";
    ticket.subject.ticketKey = "GAME-7";
    ticket.subject.ticketTitle = "Crash when picking up loot";
    store.save(ticket);
  }

  RunResult quillora(const std::vector<std::string>& args) {
    RunOptions opts;
    opts.env["TZ"] = "UTC";
    return runQuillora(home.path(), args, opts);
  }

  TempDir home;
};

TEST_F(HistoryCommand, ListsNewestFirstAndTellsHowManyMore) {
  auto all = quillora({"history"});
  EXPECT_EQ(all.exitCode, 0) << all.err;
  EXPECT_EQ(all.err, "");
  EXPECT_EQ(all.out,
            "7C01AAAA  2026-10-03 07:00  high      Inventory null slot — Jira GAME-7: Crash when picking up loot\n"
            "7C01D2E4  2026-10-02 18:05  critical  Shop buys with an empty wallet — Sentry: Space Miners · EXC_BAD_ACCESS in Shop::Buy\n"
            "3F2A9C1B  2026-10-01 09:30  high      Player used after destroy — Pasted trace: NullReferenceException in Game.Player.Update\n");
  auto cut = quillora({"history", "list", "--limit", "1"});
  EXPECT_EQ(cut.out,
            "7C01AAAA  2026-10-03 07:00  high      Inventory null slot — Jira GAME-7: Crash when picking up loot\n"
            "2 more (use --limit)\n");
}

TEST_F(HistoryCommand, SearchesCaseInsensitivelyWithinTheLimit) {
  auto found = quillora({"history", "search", "NULLREFERENCE", "--limit=1"});
  EXPECT_EQ(found.exitCode, 0);
  EXPECT_EQ(found.out,
            "7C01AAAA  2026-10-03 07:00  high      Inventory null slot — Jira GAME-7: Crash when picking up loot\n"
            "1 more (use --limit)\n");
  auto bySource = quillora({"history", "search", "sentry"});
  EXPECT_EQ(bySource.out,
            "7C01D2E4  2026-10-02 18:05  critical  Shop buys with an empty wallet — Sentry: Space Miners · EXC_BAD_ACCESS in Shop::Buy\n");
  auto none = quillora({"history", "search", "zebra"});
  EXPECT_EQ(none.out, "No analyses match 'zebra'.\n");
  EXPECT_EQ(none.exitCode, 0);
}

TEST_F(HistoryCommand, ListAndSearchWriteRecordSummariesInJson) {
  auto list = quillora({"history", "--format", "json", "--limit", "2"});
  auto doc = *base::parseJson(list.out);
  EXPECT_EQ(doc["command"], "history");
  EXPECT_EQ(doc["ok"], true);
  EXPECT_EQ(doc["schemaVersion"], 1);
  EXPECT_EQ(doc["query"], nullptr);
  EXPECT_EQ(doc["total"], 3);
  ASSERT_EQ(doc["records"].size(), 2u);
  EXPECT_EQ(doc["records"][1], base::Json::parse(R"J({
    "id": "7C01D2E4-0000-4000-8000-000000000002", "date": "2026-10-02T18:05:00Z", "origin": "pasted",
    "title": "Shop buys with an empty wallet",
    "subject": "Sentry: Space Miners · EXC_BAD_ACCESS in Shop::Buy", "kind": "crashReport",
    "platform": "iOS / macOS (Swift, Obj-C)", "exceptionType": "EXC_BAD_ACCESS (SIGSEGV)",
    "signature": "sig-b", "severity": "critical", "confidence": "medium",
    "engine": "Claude API (claude-opus-5-5)", "costUSD": null, "appID": null, "appName": "Space Miners",
    "issueID": "4242", "issueTitle": "EXC_BAD_ACCESS in Shop::Buy", "issueURL": null,
    "ticketKeys": ["GAME-12"], "branch": "quillora/fix-shop", "pullRequestURL": null,
    "verification": "testsPass", "fixStatus": null})J"));
  auto search = *base::parseJson(quillora({"history", "search", "shop", "--format=json"}).out);
  EXPECT_EQ(search["query"], "shop");
  EXPECT_EQ(search["total"], 1);
}

TEST_F(HistoryCommand, ShowsAWholeRecordByAPrefixOfSixCharacters) {
  auto shown = quillora({"history", "show", "7c01d2"});
  EXPECT_EQ(shown.exitCode, 0) << shown.err;
  EXPECT_EQ(shown.out,
            "Shop buys with an empty wallet\n"
            "Record: 7C01D2E4-0000-4000-8000-000000000002\n"
            "Date: 2026-10-02 18:05\n"
            "Origin: pasted\n"
            "Subject: Sentry: Space Miners · EXC_BAD_ACCESS in Shop::Buy\n"
            "Platform: iOS / macOS (Swift, Obj-C)\n"
            "Exception: EXC_BAD_ACCESS (SIGSEGV)\n"
            "Message: KERN_INVALID_ADDRESS at 0x0000000000000010\n"
            "Blamed frame: GameCore::Shop::Buy(int) + 12 (Shop.cpp:77)\n"
            "Severity: critical · Confidence: medium\n"
            "Engine: Claude API (claude-opus-5-5)\n"
            "Branch: quillora/fix-shop (from main)\n"
            "Verification: testsPass\n"
            "Tickets: GAME-12\n"
            "\n"
            "Root cause\n"
            "The player object is used after it was destroyed.\n"
            "\n"
            "Fix\n"
            "Check the player before use.\n"
            "\n"
            "Steps to reproduce\n"
            "1. Open the shop\n"
            "2. Buy with 0 coins\n"
            "\n"
            "Top frames\n"
            "0 ★ SpaceMiners  GameCore::Shop::Buy(int) + 12 (Shop.cpp:77)\n");
  auto json = *base::parseJson(quillora({"history", "show", "3F2A9C1B-0000-4000-8000-000000000001",
                                         "--format", "json"}).out);
  EXPECT_EQ(json["summary"]["id"], "3F2A9C1B-0000-4000-8000-000000000001");
  EXPECT_EQ(json["record"]["id"], "3F2A9C1B-0000-4000-8000-000000000001");
  EXPECT_EQ(json["record"]["costUSD"], 0.0421);
  EXPECT_EQ(json["record"]["analysis"]["title"], "Player used after destroy");
  EXPECT_EQ(json["record"]["rawTrace"].get<std::string>().rfind("NullReferenceException: ", 0), 0u);
}

TEST_F(HistoryCommand, AnUnknownOrTooShortReferenceIsNoRecord) {
  std::ofstream(home.path() / "history" / "3F2A9C1B-0000-4000-8000-000000000001.json") << "{";
  struct Case {
    std::string reference;
    std::string err;
  };
  for (const Case& c : std::vector<Case>{
           {"FFFFFF", "quillora: error: No history record FFFFFF.\n"},
           {"7C01D", "quillora: error: No history record 7C01D.\n"},  // five characters: no prefix match
           {"7C01", "quillora: error: No history record 7C01.\n"},
           {"3F2A9C", "quillora: error: No history record 3F2A9C.\n"},  // its file is unreadable
       }) {
    auto r = quillora({"history", "show", c.reference});
    EXPECT_EQ(r.err, c.err);
    EXPECT_EQ(r.exitCode, 1) << c.reference;
    EXPECT_EQ(r.out, "");
  }
}

TEST(HistoryCommandEmpty, SaysTheHistoryIsEmpty) {
  TempDir home;
  auto r = runQuillora(home.path(), {"history", "search", "anything"});
  EXPECT_EQ(r.out, "No analyses in the history.\n");
  EXPECT_EQ(r.exitCode, 0);
  EXPECT_FALSE(std::filesystem::exists(home.path() / "history"));
}

}  // namespace
}  // namespace quillora::testing

namespace quillora::testing {
namespace {

// analyze looks for earlier analyses of the crash before anything is sent, unless told not to.
TEST(AnalyzeDuplicates, AnEarlierAnalysisOfTheSameCrashIsAPossibleDuplicate) {
  TempDir home;
  auto report = crash::readCrashText(readText(sourceDir() / "examples/crashes/unity-nullref.txt"),
                                     crash::StackTraceParser());
  auto record = sampleRecord(report, "Weapon is null after it broke", "2026-10-01T09:30:00Z",
                             crash::crashSignature(report));
  record.id = "5EED0000-0000-4000-8000-000000000001";
  history::HistoryStore(home.path()).save(record);

  RunOptions opts;
  opts.cwd = sourceDir();
  opts.env["TZ"] = "UTC";
  std::vector<std::string> args = {"analyze", "--trace", "examples/crashes/unity-nullref.txt", "--dry-run",
                                    "--format", "json"};
  auto r = runQuillora(home.path(), args, opts);
  ASSERT_EQ(r.exitCode, 0) << r.err;
  EXPECT_NE(r.err.find("Possible duplicate: Weapon is null after it broke — same crash signature "
                       "(history record 5EED0000, 2026-10-01 09:30, score 1.00)\n"),
            std::string::npos)
      << r.err;
  auto doc = *base::parseJson(r.out);
  ASSERT_EQ(doc["duplicates"].size(), 1u);
  EXPECT_EQ(doc["duplicates"][0], base::Json::parse(R"({
    "kind": "history", "score": 1.0, "basis": "signature", "reason": "same crash signature",
    "headline": "Weapon is null after it broke",
    "detail": "Pasted trace: NullReferenceException in Game.Player.PlayerController.Update",
    "date": "2026-10-01T09:30:00Z", "recordID": "5EED0000-0000-4000-8000-000000000001",
    "ticketKey": null, "issueID": null, "appID": null, "pullRequestURL": null, "fixState": null,
    "fixVersion": null})"));

  args.push_back("--no-duplicates");
  auto skipped = runQuillora(home.path(), args, opts);
  EXPECT_EQ(skipped.err.find("Possible duplicate"), std::string::npos);
  EXPECT_EQ((*base::parseJson(skipped.out))["duplicates"], base::Json::array());
}

}  // namespace
}  // namespace quillora::testing
