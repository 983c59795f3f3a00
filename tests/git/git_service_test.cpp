#include "git/git_service.h"

#include <gtest/gtest.h>

#include <fstream>

#include "git/git_error.h"
#include "support/git_repo.h"

namespace quillora::git {
namespace {

using testing::GitRepo;
using testing::GitSandbox;

class GitServiceTest : public ::testing::Test {
 protected:
  GitSandbox sandbox;
  GitRepo repo;
  GitService git{repo.root()};
};

TEST_F(GitServiceTest, ListsPathsLiterallyWithoutOctalEscapes) {
  repo.commit("Assets/Café_Menü.cs", "v1\n", "add menu");
  repo.write("Assets/Café_Menü.cs", "v2\n");
  EXPECT_EQ(git.uncommittedChanges(), std::vector<std::string>{" M Assets/Café_Menü.cs"});
  git.stageAll();
  EXPECT_EQ(git.stagedFiles(), std::vector<std::string>{"Assets/Café_Menü.cs"});
}

TEST_F(GitServiceTest, CleansOnlyTheNamedFilesEvenWhenTheyLookLikeGlobs) {
  repo.write("[ab].txt", "made by the flow\n");
  repo.write("a.txt", "the user's own\n");
  repo.write("Player.cs", "edited\n");
  git.discardChanges(std::vector<std::string>{"[ab].txt"});
  EXPECT_FALSE(std::filesystem::exists(repo.root() / "[ab].txt"));
  EXPECT_EQ(repo.read("a.txt"), "the user's own\n");
  EXPECT_EQ(git.uncommittedChanges(), std::vector<std::string>{});
  EXPECT_EQ(git.untrackedFiles(), std::vector<std::string>{"a.txt"});
}

// The fix-branch flow covers the everyday answers; these are the ones it never meets.
TEST_F(GitServiceTest, ResolvesRefsWithoutTakingThemForOptions) {
  EXPECT_EQ(git.commitOf("--all"), std::nullopt);
  EXPECT_FALSE(git.isValidBranchName("fix/crash-x.lock"));
  EXPECT_FALSE(GitService(repo.root() / "missing").isInsideWorkTree());
  EXPECT_EQ(git.absoluteGitDir(), repo.root() / ".git");
  EXPECT_EQ(git.commonGitDir(), repo.root() / ".git");
  EXPECT_EQ(git.originURL(), std::nullopt);
}

TEST_F(GitServiceTest, FindsTheDefaultBranch) {
  EXPECT_EQ(git.defaultBranch(), "main");
  repo.git({"branch", "-m", "main", "trunk"});
  EXPECT_EQ(git.defaultBranch(), std::nullopt);
  repo.git({"branch", "develop"});
  EXPECT_EQ(git.defaultBranch(), "develop");
  repo.git({"remote", "add", "origin", "https://example.com/game.git"});
  repo.git({"update-ref", "refs/remotes/origin/trunk", "HEAD"});
  repo.git({"symbolic-ref", "refs/remotes/origin/HEAD", "refs/remotes/origin/trunk"});
  EXPECT_EQ(git.defaultBranch(), "trunk");
  EXPECT_EQ(git.originURL(), "https://example.com/game.git");
}

TEST_F(GitServiceTest, AFailingCommandCarriesGitsOutput) {
  try {
    git.checkoutBranch("no-such-branch");
    FAIL() << "checkout succeeded";
  } catch (const GitError& error) {
    EXPECT_EQ(error.label(), "git checkout --quiet no-such-branch --");
    EXPECT_EQ(error.status(), 128);
    EXPECT_STREQ(error.what(),
                 "`git checkout --quiet no-such-branch --` failed (exit 128):\n"
                 "fatal: invalid reference: no-such-branch");
  }
}

TEST_F(GitServiceTest, RemovesAWorktree) {
  std::filesystem::path tree = sandbox.home() / "tree";
  repo.git({"worktree", "add", "--quiet", "-b", "fix/wt", tree.string()});
  std::ofstream(tree / "scratch.txt") << "dirty\n";
  git.removeWorktree(tree);
  EXPECT_FALSE(std::filesystem::exists(tree));
  EXPECT_EQ(repo.git({"worktree", "list", "--porcelain"}).find(tree.string()), std::string::npos);
}

}  // namespace
}  // namespace quillora::git
