#pragma once

#include <filesystem>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "ai/fix_analysis.h"
#include "base/repository_lock.h"
#include "git/commit_message.h"

// A local branch that holds one analysis's fix as one commit, made in the repository's current
// checkout. Nothing is ever pushed.
namespace quillora::git {

// The Claude Code implement step: edits the files of `repository`, where `branch` is checked out,
// to carry out the fix, and reports what it did. Whatever it throws fails the flow (after a
// rollback) unchanged.
using ImplementStep = std::function<ai::FixImplementation(const std::filesystem::path& repository,
                                                          const std::string& branch)>;

struct FixBranchRequest {
  std::filesystem::path repository;
  ai::FixAnalysis analysis;
  CommitCrash crash;
  // A branch, tag or commit to branch from; the checked-out commit when absent.
  std::optional<std::string> base;
  // The whole branch name; `branchPrefix` + the title's slug when absent.
  std::optional<std::string> branchName;
  CommitAuthor author = CommitAuthor::commandLine;
  // Empty when Claude Code isn't available; then a missing or failing patch fails the flow.
  ImplementStep implement;
  base::RepositoryLockTiming lockTiming;
};

// Where the flow's lines go: progress lines, and warnings (the identity fall-back, a rollback that
// didn't finish). Either may be empty.
struct FixBranchProgress {
  std::function<void(const std::string&)> progress;
  std::function<void(const std::string&)> warning;
};

// The branch that was made.
struct FixBranchResult {
  std::string name;
  std::filesystem::path repository;
  // The base as the user knows it: --base as given, else the branch that was checked out (or the
  // short commit on a detached head).
  std::string baseRef;
  std::string baseCommit;  // full hash
  std::string commit;      // full hash of the fix commit
  std::string method;      // "patch" or "claude-code"
  // The analysis's fix summary, or what Claude Code reported when it made the change.
  std::string summary;
  std::vector<std::string> filesChanged;
  std::string diffStat;  // git's "diff --stat" of base...branch, trimmed
};

// Makes the branch under the repository lock: clean-tree check, base, name, branch, patch (or the
// implement step), commit. Any failure after the branch was made rolls back to where the checkout
// stood, then throws the first error: GitError for git and the flow's own failures, LockError,
// ShellError, ShellTimeout, CancelledError, or whatever the implement step threw.
FixBranchResult makeFixBranch(const FixBranchRequest& request, const FixBranchProgress& progress);

// The "Quillora" identity's no-reply address, used when git has no identity and not on GitHub
// Actions.
inline constexpr const char* kQuilloraNoReplyEmail = "noreply@veldmoor.com";

}  // namespace quillora::git
