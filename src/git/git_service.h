#pragma once

#include <filesystem>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "base/process_runner.h"

// The git command line, run in one repository through the process runner.
namespace quillora::git {

// Every git command the system runs in a repository. Commands run with the repository root as
// working directory, strictly one after another; those that print paths get "-c
// core.quotepath=off" and those that take paths get "--literal-pathspecs". Methods throw GitError
// when git fails where success is needed, and the process runner's errors (ShellError notFound,
// ShellTimeout, CancelledError) unchanged. Not for concurrent use from several threads.
class GitService {
 public:
  explicit GitService(std::filesystem::path root, base::ProcessRunner runner = {});

  [[nodiscard]] const std::filesystem::path& root() const { return m_root; }

  // One line per uncommitted change of a tracked file ("status --porcelain
  // --untracked-files=no"); each line is git's two status letters, a space and the path.
  [[nodiscard]] std::vector<std::string> uncommittedChanges() const;
  // The checked-out branch's short name, or "HEAD" on a detached head.
  [[nodiscard]] std::string currentBranch() const;
  // The full hash of the checked-out commit.
  [[nodiscard]] std::string currentCommit() const;
  // The full hash of the commit `ref` names (a branch, tag, or full or abbreviated hash), or
  // nullopt when it names none.
  [[nodiscard]] std::optional<std::string> commitOf(const std::string& ref) const;
  [[nodiscard]] bool localBranchExists(const std::string& name) const;
  // git's own verdict on a branch name ("check-ref-format --branch").
  [[nodiscard]] bool isValidBranchName(const std::string& name) const;
  // False for a folder outside any work tree (or one that doesn't exist).
  [[nodiscard]] bool isInsideWorkTree() const;
  // The repository's git folder, and the folder it shares with its worktrees.
  [[nodiscard]] std::filesystem::path absoluteGitDir() const;
  [[nodiscard]] std::filesystem::path commonGitDir() const;
  // origin's HEAD branch, else the first of "main", "master", "develop" that exists locally.
  [[nodiscard]] std::optional<std::string> defaultBranch() const;
  // The configured user.email, empty when there is none.
  [[nodiscard]] std::string configuredEmail() const;
  // origin's URL, or nullopt without an origin.
  [[nodiscard]] std::optional<std::string> originURL() const;

  // Files that git neither tracks nor ignores, repository-relative.
  [[nodiscard]] std::vector<std::string> untrackedFiles() const;
  // The paths a patch file would write, as git apply reads it; nothing is applied. Throws
  // GitError when git can't read the file as a patch.
  [[nodiscard]] std::vector<std::string> patchPaths(const std::filesystem::path& patchFile) const;
  // Applies a patch to the working tree: "--whitespace=nowarn", and with `threeWay` a three-way
  // merge where the code moved. The result tells whether it applied; it never throws for that.
  [[nodiscard]] base::ShellResult applyPatch(const std::filesystem::path& patchFile,
                                             bool threeWay) const;

  // Creates `name` at `startCommit` and checks it out.
  void createBranch(const std::string& name, const std::string& startCommit) const;
  // Checks out a branch, or a commit on a detached head.
  void checkoutBranch(const std::string& name) const;
  void checkoutDetached(const std::string& commit) const;
  // Deletes a local branch whether or not it was merged.
  void deleteBranch(const std::string& name) const;

  // "add -A", then the staged paths.
  void stageAll() const;
  [[nodiscard]] std::vector<std::string> stagedFiles() const;
  // Takes paths out of the index again (they stay in the working tree).
  void unstage(const std::vector<std::string>& paths) const;
  // "commit -F -" with `message` on standard input; `environment` is added for this command only
  // (the identity fall-back). Returns nothing; read currentCommit() afterwards.
  void commit(const std::string& message,
              const std::vector<std::pair<std::string, std::string>>& environment) const;
  // "diff --stat" and "diff --name-only" over base...HEAD.
  [[nodiscard]] std::string diffStat(const std::string& base) const;
  [[nodiscard]] std::vector<std::string> changedFiles(const std::string& base) const;

  // "reset --hard HEAD", then "clean -fd": over the whole tree, or only over `untracked` when
  // given (nothing is cleaned for an empty list), so files that were there before are kept.
  void discardChanges(const std::optional<std::vector<std::string>>& untracked = std::nullopt) const;
  // "worktree remove --force <path>", then "worktree prune".
  void removeWorktree(const std::filesystem::path& path) const;

 private:
  struct Options {
    bool listsPaths = false;  // adds -c core.quotepath=off
    bool takesPaths = false;  // adds --literal-pathspecs
    std::optional<std::string> standardInput;
    std::vector<std::pair<std::string, std::string>> environment;
  };
  static Options listsPaths();
  static Options takesPaths();
  static Options listsAndTakesPaths();
  [[nodiscard]] base::ShellResult run(const std::vector<std::string>& arguments,
                                      const Options& options) const;
  // As run(), throwing GitError for a non-zero status; returns standard output.
  std::string runChecked(const std::vector<std::string>& arguments, const Options& options) const;

  std::filesystem::path m_root;
  base::ProcessRunner m_runner;
};

}  // namespace quillora::git
