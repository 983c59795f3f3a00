#include "cli/analyze_branch.h"

#include <gtest/gtest.h>

#include <fstream>

#include "base/settings.h"
#include "support/git_repo.h"
#include "support/history_samples.h"

namespace quillora::cli {
namespace {

using testing::GitRepo;
using testing::GitSandbox;

// A `claude` that, like the agent in its implement step, edits a file of its working folder and
// answers with a result event; it keeps its arguments for the test.
std::filesystem::path writeFakeClaude(const std::filesystem::path& dir) {
  std::filesystem::path script = dir / "claude";
  std::filesystem::copy_file(testing::fixture("claude_code/derived_result_implementation.json"),
                             dir / "result.json");
  std::ofstream(script) << "#!/bin/sh\n"
                        << "cat > /dev/null\n"
                        << "printf '%s\\n' \"$@\" > '" << dir.string() << "/args'\n"
                        << "printf 'class Player { /* guarded */ }\\n' > Player.cs\n"
                        << "cat '" << dir.string() << "/result.json'\n";
  std::filesystem::permissions(script, std::filesystem::perms::owner_all);
  return script;
}

class AnalyzeBranchTest : public ::testing::Test {
 protected:
  void TearDown() override { base::Settings::shared().reset(); }

  AnalyzeOptions options(ai::AIBackend backend) const {
    AnalyzeOptions o;
    o.repo = repo.root().string();
    o.backend = backend;
    o.model = "opus";
    o.branch = true;
    o.branchName = "fix/claude";
    return o;
  }

  GitSandbox sandbox;
  GitRepo repo;
};

TEST_F(AnalyzeBranchTest, ClaudeCodeMakesTheChangeWhenThereIsNoPatch) {
  std::filesystem::path claude = writeFakeClaude(sandbox.home());
  base::Settings::shared().reset(base::Json{{"claudePath", claude.string()}});
  ai::FixAnalysis analysis;
  analysis.title = "NullReferenceException in Player.Update";
  crash::CrashReport report;
  AnalyzeOptions o = options(ai::AIBackend::claudeCode);

  git::ImplementStep step = claudeCodeImplementStep(o, analysis, report, {}, nullptr);
  ASSERT_TRUE(step);
  git::FixBranchResult result = makeAnalyzeBranch(o, analysis, commitCrashOf(report), step);
  EXPECT_EQ(result.method, "claude-code");
  EXPECT_EQ(result.summary, "Added a null check before `health` is used.");
  EXPECT_EQ(result.filesChanged, std::vector<std::string>{"Player.cs"});
  EXPECT_EQ(repo.read("Player.cs"), "class Player { /* guarded */ }\n");
  std::string args = testing::readText(sandbox.home() / "args");
  EXPECT_NE(args.find("acceptEdits\n"), std::string::npos) << args;
  EXPECT_NE(args.find("Read,Grep,Glob,Edit,Write\n"), std::string::npos) << args;
}

TEST_F(AnalyzeBranchTest, ClaudeCodeIsOfferedOnlyToItsOwnRunsAndWhenItCanBeFound) {
  std::filesystem::path claude = writeFakeClaude(sandbox.home());
  base::Settings::shared().reset(base::Json{{"claudePath", claude.string()}});
  ai::FixAnalysis analysis;
  crash::CrashReport report;
  EXPECT_FALSE(claudeCodeImplementStep(options(ai::AIBackend::claudeAPI), analysis, report, {},
                                       nullptr));
  base::Settings::shared().reset(
      base::Json{{"claudePath", (sandbox.home() / "missing").string()}});
  EXPECT_FALSE(claudeCodeImplementStep(options(ai::AIBackend::claudeCode), analysis, report, {},
                                       nullptr));
}

TEST_F(AnalyzeBranchTest, TheSavedRecordGetsTheBranchAndItsBase) {
  std::filesystem::create_directories(sandbox.home() / "store");
  history::HistoryStore store(sandbox.home() / "store");
  crash::CrashReport report = testing::unityCrash();
  std::string id = store.save(testing::sampleRecord(report, "NullReferenceException in Player",
                                                    "2026-11-20T14:03:00Z", "sig"));
  ai::FixAnalysis analysis;
  analysis.title = "NullReferenceException in Player";
  analysis.patch =
      "--- a/Player.cs\n+++ b/Player.cs\n@@ -1,5 +1,5 @@\n class Player {\n   void Update() {\n"
      "-    target.Move();\n+    target?.Move();\n   }\n }\n";
  AnalyzeOptions o = options(ai::AIBackend::claudeAPI);
  o.branchName.reset();
  git::FixBranchResult branch = makeAnalyzeBranch(o, analysis, commitCrashOf(report), {});
  recordBranchInHistory(id, branch, store);

  std::optional<history::AnalysisRecord> record = store.load(id);
  ASSERT_TRUE(record);
  EXPECT_EQ(record->branch, "fix/crash-nullreferenceexception-in-player");
  EXPECT_EQ(record->baseBranch, "main");
  EXPECT_EQ(record->analysis.title, "NullReferenceException in Player");
}

}  // namespace
}  // namespace quillora::cli
