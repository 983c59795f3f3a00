// The fix-branch flow with the Claude Code engine's implement step: a fake `claude` that edits the
// checkout it is started in, and real git.
#include "ai/analysis_schema.h"
#include "ai/claude_code_provider.h"
#include "base/settings.h"
#include "git/fix_branch.h"
#include "support/git_repo.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <fstream>

namespace quillora::git {
namespace {

using testing::GitRepo;
using testing::GitSandbox;
using testing::readText;

TEST(ClaudeCodeFixBranch, TheAgentEditsTheNewBranchAndTheFlowCommitsItsChange) {
  base::Settings::shared().reset();
  ::setenv("SHELL", "/bin/sh", 1);
  GitSandbox sandbox;
  GitRepo repo;
  testing::TempDir work;
  std::filesystem::path tmp = work.path() / "tmp";
  std::filesystem::create_directories(tmp);
  ::setenv("TMPDIR", tmp.c_str(), 1);

  std::string result = readText(testing::fixture("claude_code/derived_result_implementation.json"));
  work.write("stream.ndjson", result);
  std::filesystem::path fake = work.write(
      "claude", "#!/bin/sh\n"
                "printf '%s\\0' \"$@\" > '" + (work.path() / "args").string() + "'\n"
                "git rev-parse --abbrev-ref HEAD > '" + (work.path() / "branch").string() + "'\n"
                "printf 'class Player { void Update() { target?.Move(); } }\\n' > Player.cs\n"
                "cat '" + (work.path() / "stream.ndjson").string() + "'\n");
  std::filesystem::permissions(fake, std::filesystem::perms::owner_all);

  ai::ClaudeCodeProvider engine(fake.string(), "opus", std::nullopt, {}, nullptr);
  ai::FixAnalysis analysis;
  analysis.title = "NullReferenceException in Player.Update";
  analysis.rootCause = "target is destroyed before Update runs.";
  analysis.fixSummary = "Skip the move when the target is gone.";
  analysis.patch = "--- a/Player.cs\n+++ b/Player.cs\n@@ -1,3 +1,3 @@\n class Nothing {\n-  x\n+  y\n }\n";

  FixBranchRequest request;
  request.repository = repo.root();
  request.analysis = analysis;
  request.crash.exceptionType = "NullReferenceException";
  request.implement = engine.implementStep(analysis, std::nullopt, "Happens on level 3.", "SYSTEM");
  FixBranchResult made = makeFixBranch(request, {});
  ::unsetenv("TMPDIR");

  const std::string name = "fix/crash-nullreferenceexception-in-player-update";
  EXPECT_EQ(made.method, "claude-code");
  EXPECT_EQ(made.summary, "Added a null check before `health` is used.");
  EXPECT_EQ(readText(work.path() / "branch"), name + "\n");
  EXPECT_EQ(repo.git({"show", "HEAD:Player.cs"}),
            "class Player { void Update() { target?.Move(); } }");
  EXPECT_EQ(repo.git({"rev-parse", "--abbrev-ref", "HEAD"}), name);

  std::string args = readText(work.path() / "args");
  std::string prompt = args.substr(args.find('\0', args.find(std::string("-p") + '\0')) + 1);
  prompt = prompt.substr(0, prompt.find('\0'));
  EXPECT_TRUE(prompt.starts_with("Implement this fix in the repository. You are on a fresh branch "
                                 "created for it.\n\n<agreed_fix>\nTitle: NullReferenceException "
                                 "in Player.Update\n"))
      << prompt;
  EXPECT_NE(prompt.find("<developer_notes>\nHappens on level 3.\n</developer_notes>"),
            std::string::npos);
  EXPECT_NE(args.find(std::string("--permission-mode") + '\0' + "acceptEdits" + '\0'),
            std::string::npos);
  EXPECT_TRUE(std::filesystem::is_empty(tmp));
}

} // namespace
} // namespace quillora::git
