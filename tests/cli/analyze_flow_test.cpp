// A whole analyze run through the built binary, with the Claude Code engine played by a fake
// `claude` that prints recorded stream-json lines.
#include <gtest/gtest.h>

#include <fstream>

#include "base/json.h"
#include "support/test_support.h"

namespace quillora::testing {
namespace {

class AnalyzeFlow : public ::testing::Test {
 protected:
  TempDir home;
  TempDir work;
  std::filesystem::path repo = work.path() / "game";
  std::filesystem::path trace = sourceDir() / "examples/crashes/unity-nullref.txt";

  void SetUp() override {
    std::filesystem::copy(sourceDir() / "examples" / "dungeon-game", repo,
                          std::filesystem::copy_options::recursive);
    std::string stream = readText(fixture("claude_code/real_system_init.json")) + "\n" +
                         readText(fixture("claude_code/derived_result_structured.json")) + "\n";
    work.write("stream.ndjson", stream);
    auto fake = work.write("bin/claude", "#!/bin/sh\ncat > /dev/null\ncat '" +
                                             (work.path() / "stream.ndjson").string() + "'\n");
    std::filesystem::permissions(fake, std::filesystem::perms::owner_all);
    work.write("config.json", "{\"claudePath\": \"" + fake.string() + "\"}");
  }

  RunResult analyze(std::vector<std::string> extra) {
    std::vector<std::string> args = {"analyze", "--config", "config.json", "--engine",
                                     "claude-code", "--repo", repo.string(), "--trace",
                                     trace.string()};
    args.insert(args.end(), extra.begin(), extra.end());
    RunOptions opts;
    opts.cwd = work.path();
    return runQuillora(home.path(), args, opts);
  }
};

TEST_F(AnalyzeFlow, JsonResultHasEveryKeyAndTheRunIsSavedAndReported) {
  auto r = analyze({"--format", "json", "--save-history", "--markdown-out", "report.md"});
  ASSERT_EQ(r.exitCode, 0) << r.err;
  EXPECT_NE(r.err.find("Note: Claude Code (opus) reads the repository and sends the crash and code "
                       "to Anthropic. Running the Quillora command line counts as consent to that.\n"),
            std::string::npos) << r.err;
  EXPECT_NE(r.err.find("Asking Claude Code CLI…\n"), std::string::npos) << r.err;
  EXPECT_NE(r.err.find("Answered in "), std::string::npos);
  EXPECT_NE(r.err.find("Saved to the history: "), std::string::npos);
  EXPECT_NE(r.err.find("Wrote report.md\n"), std::string::npos);

  auto doc = base::Json::parse(r.out);
  EXPECT_EQ(missingAnalyzeResultKeys(doc), std::vector<std::string>{});
  EXPECT_EQ(doc["ok"], true);
  EXPECT_EQ(doc["engine"]["name"], "claude-code");
  EXPECT_TRUE(doc["symbolication"].is_null());
  EXPECT_TRUE(doc["branch"].is_null());
  EXPECT_TRUE(doc["verification"].is_null());
  EXPECT_TRUE(doc["historyRecordID"].is_string());
  EXPECT_FALSE(doc["analysis"]["title"].get<std::string>().empty());
  EXPECT_EQ(doc["crash"]["exceptionType"], "NullReferenceException");
  // Claude Code reports its own cost; that is the run's cost.
  EXPECT_DOUBLE_EQ(doc["usage"]["reportedCostUSD"].get<double>(), 0.24722425);
  EXPECT_DOUBLE_EQ(doc["costUSD"].get<double>(), 0.24722425);
  EXPECT_EQ(doc["budget"]["mode"], "warn");

  std::string markdown = readText(work.path() / "report.md");
  EXPECT_EQ(markdown.rfind("# Quillora: " + doc["analysis"]["title"].get<std::string>() + "\n", 0), 0u);
  EXPECT_NE(markdown.find("Unity"), std::string::npos);

  // The saved record is there for history, and the ledger has the call.
  auto history = runQuillora(home.path(), {"history", "show", doc["historyRecordID"]});
  EXPECT_EQ(history.exitCode, 0) << history.err;
  auto cost = runQuillora(home.path(), {"cost", "--format", "json"});
  EXPECT_EQ(base::Json::parse(cost.out)["calls"], 1) << cost.out;

  // A second run of the same crash finds the first as a duplicate.
  auto again = analyze({"--format", "json"});
  ASSERT_EQ(again.exitCode, 0) << again.err;
  EXPECT_NE(again.err.find("Possible duplicate: "), std::string::npos) << again.err;
  EXPECT_FALSE(base::Json::parse(again.out)["duplicates"].empty());
}

TEST_F(AnalyzeFlow, TextReportAndABranchWithoutAPatchIsRefused) {
  auto text = analyze({});
  ASSERT_EQ(text.exitCode, 0) << text.err;
  EXPECT_NE(text.out.find("Severity: "), std::string::npos) << text.out;
  EXPECT_NE(text.out.find(" of 1 frames in your code"), std::string::npos) << text.out;
  EXPECT_NE(text.out.find("Claude Code CLI (opus) · "), std::string::npos) << text.out;
  EXPECT_NE(text.out.find(" tokens ("), std::string::npos) << text.out;

  // The recorded answer has no patch, so Claude Code is asked to make the change; this fake
  // agent changes nothing, and the flow says so and leaves the checkout as it was.
  ASSERT_EQ(run("/bin/sh", {"-c", "cd '" + repo.string() +
                                      "' && git init -q -b main && git add -A && git -c user.name=t "
                                      "-c user.email=t@e commit -qm init"}).exitCode, 0);
  auto branch = analyze({"--branch", "--verify", "--fail-on-unverified"});
  EXPECT_EQ(branch.exitCode, 1);
  EXPECT_NE(branch.err.find("Claude Code is editing the code on "
                            "fix/crash-nullreferenceexception-in-playercontroller-ondam…\n"
                            "Claude Code started (claude-opus-4-5-20251101)\n"),
            std::string::npos) << branch.err;
  EXPECT_NE(branch.err.find("quillora: error: There is nothing to commit: Claude Code changed no "
                            "file.\n"),
            std::string::npos) << branch.err;
  auto head = run("/bin/sh", {"-c", "cd '" + repo.string() + "' && git branch --show-current && git branch | wc -l"});
  EXPECT_EQ(head.out, "main\n1\n");
}

TEST_F(AnalyzeFlow, ClaudeCodeSearchesByItselfWhenNoFrameMatchesAFile) {
  trace = work.write("elsewhere.txt",
                          "NullReferenceException: Object reference not set to an instance of an "
                          "object.\nGame.Audio.Mixer.Fade () (at Assets/Scripts/Audio/Mixer.cs:12)\n");
  auto r = analyze({});
  ASSERT_EQ(r.exitCode, 0) << r.err;
  EXPECT_NE(r.err.find("No direct match; Claude Code will search the repository itself\n"),
            std::string::npos) << r.err;
  EXPECT_LT(r.err.find("No direct match"), r.err.find("Asking Claude Code CLI…"));
}

}  // namespace
}  // namespace quillora::testing
