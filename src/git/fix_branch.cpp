#include "git/fix_branch.h"

#include "base/cancellation.h"
#include "base/strings.h"
#include "base/uuid.h"
#include "git/branch_name.h"
#include "git/git_error.h"
#include "git/git_service.h"
#include "git/patch_paths.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <exception>
#include <set>
#include <utility>

namespace quillora::git {

namespace {

constexpr size_t kListedChanges = 10;
constexpr size_t kShortHashLength = 7;
constexpr int kMaxBranchSuffix = 1000;

std::string shortHash(const std::string& hash) { return hash.substr(0, kShortHashLength); }

// The patch in a file of its own for git apply: "quillora-<token>.patch" in the temporary folder,
// readable by the user only (it may quote private code), removed when the flow ends.
class PatchFile {
 public:
  explicit PatchFile(const std::string& text) {
    m_path = std::filesystem::temp_directory_path() / ("quillora-" + base::makeUUID() + ".patch");
    int fd = ::open(m_path.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0600);
    if (fd < 0) {
      throw GitError("Couldn't write the patch to " + m_path.string() + ": " +
                     std::strerror(errno) + ".");
    }
    size_t written = 0;
    while (written < text.size()) {
      ssize_t n = ::write(fd, text.data() + written, text.size() - written);
      if (n < 0 && errno == EINTR) continue;
      if (n < 0) {
        int error = errno;
        ::close(fd);
        std::filesystem::remove(m_path);
        throw GitError("Couldn't write the patch to " + m_path.string() + ": " +
                       std::strerror(error) + ".");
      }
      written += static_cast<size_t>(n);
    }
    ::close(fd);
  }
  ~PatchFile() {
    std::error_code ignored;
    std::filesystem::remove(m_path, ignored);
  }
  PatchFile(const PatchFile&) = delete;
  PatchFile& operator=(const PatchFile&) = delete;
  [[nodiscard]] const std::filesystem::path& path() const { return m_path; }

 private:
  std::filesystem::path m_path;
};

// Git commands of the rollback must run even after Ctrl-C, which made the runner refuse to start
// anything; the flag is set again afterwards so the command still ends with "Cancelled.".
class CancellationPause {
 public:
  CancellationPause() : m_wasCancelled(base::isCancelled()) {
    if (m_wasCancelled) base::setCancelled(false);
  }
  ~CancellationPause() {
    if (m_wasCancelled) base::setCancelled(true);
  }
  CancellationPause(const CancellationPause&) = delete;
  CancellationPause& operator=(const CancellationPause&) = delete;

 private:
  bool m_wasCancelled;
};

struct Identity {
  std::string name;
  std::string email;
};

Identity fallbackIdentity() {
  const char* actions = std::getenv("GITHUB_ACTIONS");
  if (actions && std::string_view(actions) == "true") {
    return {"github-actions[bot]", "41898282+github-actions[bot]@users.noreply.github.com"};
  }
  return {"Quillora", kQuilloraNoReplyEmail};
}

std::string cleanTreeMessage(const std::string& repoName, const std::vector<std::string>& changes) {
  std::string message = "--branch needs a clean working tree, but " + repoName + " has " +
                        std::to_string(changes.size()) + " uncommitted change(s):\n";
  for (size_t i = 0; i < changes.size() && i < kListedChanges; ++i) {
    // A porcelain line is two status letters and a space before the path.
    std::string_view path = changes[i];
    path = path.size() > 3 ? path.substr(3) : path;
    message += "  ";
    message += path;
    message += "\n";
  }
  message += "Commit or stash them first (in CI, run Quillora on a fresh checkout).";
  return message;
}

// The flow from the clean-tree check to the commit, with what the rollback needs to know.
class FixBranchFlow {
 public:
  FixBranchFlow(const FixBranchRequest& request, const FixBranchProgress& progress)
      : m_request(request),
        m_progress(progress),
        m_git(request.repository),
        m_repoName(std::filesystem::absolute(request.repository).lexically_normal()
                       .filename()
                       .string()) {
    if (m_repoName.empty()) {
      m_repoName = std::filesystem::absolute(request.repository)
                       .lexically_normal()
                       .parent_path()
                       .filename()
                       .string();
    }
  }

  FixBranchResult run() {
    checkRepository();
    rememberStart();
    resolveBase();
    chooseName();
    preparePatch();

    m_preexistingUntracked = m_git.untrackedFiles();
    say("Branching " + m_result.name + " from " + m_result.baseRef);
    m_git.createBranch(m_result.name, m_result.baseCommit);
    try {
      change();
      commit();
    } catch (...) {
      rollBack();
      throw;
    }
    return m_result;
  }

 private:
  void say(const std::string& line) const {
    if (m_progress.progress) m_progress.progress(line);
  }
  void warn(const std::string& line) const {
    if (m_progress.warning) m_progress.warning(line);
  }

  void checkRepository() {
    if (!m_git.isInsideWorkTree()) {
      throw GitError("--branch needs a git repository, but " +
                     m_request.repository.string() + " isn't one.");
    }
    std::vector<std::string> changes = m_git.uncommittedChanges();
    if (!changes.empty()) throw GitError(cleanTreeMessage(m_repoName, changes));
  }

  void rememberStart() {
    std::optional<std::string> head = m_git.commitOf("HEAD");
    if (!head) {
      throw GitError(m_repoName + " has no commits yet; --branch needs a commit to branch from.");
    }
    m_startCommit = *head;
    m_startBranch = m_git.currentBranch();
    if (m_startBranch == "HEAD") m_startBranch.clear();  // a detached head
  }

  [[nodiscard]] std::string startText() const {
    return m_startBranch.empty() ? shortHash(m_startCommit) : m_startBranch;
  }

  void resolveBase() {
    if (m_request.base) {
      std::optional<std::string> commit = m_git.commitOf(*m_request.base);
      if (!commit) {
        throw GitError("--base " + *m_request.base + " isn't a commit, branch or tag in " +
                       m_repoName + ".");
      }
      m_result.baseRef = *m_request.base;
      m_result.baseCommit = *commit;
      return;
    }
    m_result.baseRef = startText();
    m_result.baseCommit = m_startCommit;
  }

  void chooseName() {
    std::string name =
        m_request.branchName ? *m_request.branchName : defaultBranchName(m_request.analysis.title);
    if (!m_git.isValidBranchName(name)) throw GitError("'" + name + "' isn't a valid branch name.");
    if (m_git.localBranchExists(name)) {
      // A name the user chose is kept as it is (scripts may push it by that name); a made-up
      // name gets the first free "-2", "-3", … so an earlier fix branch is never touched.
      if (m_request.branchName) {
        throw GitError("A branch named " + name + " already exists in " + m_repoName +
                       "; delete it or choose another --branch-name.");
      }
      std::string taken = name;
      for (int suffix = 2;; ++suffix) {
        if (suffix > kMaxBranchSuffix) {
          throw GitError("Too many branches named " + taken + "-<n> in " + m_repoName +
                         "; delete some or choose a --branch-name.");
        }
        name = taken + "-" + std::to_string(suffix);
        if (!m_git.localBranchExists(name)) break;
      }
      say("A branch named " + taken + " already exists; using " + name);
    }
    m_result.name = name;
  }

  // Everything about the patch that can be known before branching: where it writes (an unsafe
  // path is refused before anything changes) and whether there is any way to make the change.
  void preparePatch() {
    if (!base::trim(m_request.analysis.patch).empty()) {
      m_patchFile.emplace(m_request.analysis.patch);
      try {
        m_patchPaths = m_git.patchPaths(m_patchFile->path());
        m_patchReadable = true;
      } catch (const GitError& error) {
        m_patchProblem = error.output();
      }
      if (m_patchReadable) {
        std::vector<std::string> all = m_patchPaths;
        std::vector<std::string> sources = patchSourcePaths(m_request.analysis.patch);
        all.insert(all.end(), sources.begin(), sources.end());
        refuseUnsafePatchPaths(all, m_repoName);
      }
    }
    if (m_patchReadable || m_request.implement) return;
    if (!m_patchFile) {
      throw GitError("The analysis has no patch, and Claude Code isn't available to write the "
                     "fix, so no branch was made.");
    }
    throw GitError("git can't read the analysis's patch, and Claude Code isn't available to "
                   "write the fix, so no branch was made:\n" +
                   base::trimmed(m_patchProblem));
  }

  void change() {
    if (m_patchReadable) {
      say("Applying the patch (" + std::to_string(m_patchPaths.size()) + " file(s))");
      base::ShellResult plain = m_git.applyPatch(m_patchFile->path(), false);
      if (plain.status == 0 || m_git.applyPatch(m_patchFile->path(), true).status == 0) {
        say("Patch applied");
        m_result.method = "patch";
        m_result.summary = m_request.analysis.fixSummary;
        return;
      }
      std::string output = base::trimmed(plain.stderr.empty() ? plain.stdout : plain.stderr);
      if (!m_request.implement) {
        throw GitError("The patch doesn't apply to " + m_result.baseRef +
                       ", not even with a three-way merge:\n" + output);
      }
      // The three-way attempt may have left conflict markers; Claude Code starts from the base.
      m_git.discardChanges(newUntrackedFiles());
    }
    say("Claude Code is editing the code on " + m_result.name + "…");
    ai::FixImplementation implementation = m_request.implement(m_request.repository, m_result.name);
    m_result.method = "claude-code";
    m_result.summary = base::trim(implementation.summary).empty() ? m_request.analysis.fixSummary
                                                                  : implementation.summary;
  }

  void commit() {
    say("Committing the fix");
    m_git.stageAll();
    std::vector<std::string> staged = m_git.stagedFiles();
    // Files that were lying around untracked before the flow aren't part of the fix.
    std::vector<std::string> foreign;
    std::set<std::string> before(m_preexistingUntracked.begin(), m_preexistingUntracked.end());
    std::erase_if(staged, [&](const std::string& path) {
      if (!before.contains(path)) return false;
      foreign.push_back(path);
      return true;
    });
    m_git.unstage(foreign);
    if (staged.empty()) {
      throw GitError(m_result.method == "patch"
                         ? "There is nothing to commit: the patch changed no file."
                         : "There is nothing to commit: Claude Code changed no file.");
    }

    std::vector<std::pair<std::string, std::string>> environment;
    if (m_git.configuredEmail().empty()) {
      Identity identity = fallbackIdentity();
      environment = {{"GIT_AUTHOR_NAME", identity.name},
                     {"GIT_AUTHOR_EMAIL", identity.email},
                     {"GIT_COMMITTER_NAME", identity.name},
                     {"GIT_COMMITTER_EMAIL", identity.email}};
      warn("No git identity configured: committing as " + identity.name);
    }
    m_git.commit(fixCommitMessage(m_request.analysis, m_request.crash, m_request.author),
                 environment);

    m_result.commit = m_git.currentCommit();
    m_result.repository = m_request.repository;
    m_result.filesChanged = m_git.changedFiles(m_result.baseCommit);
    m_result.diffStat = base::trimmed(m_git.diffStat(m_result.baseCommit));
    say("Committed the fix on " + m_result.name + " (" +
        std::to_string(m_result.filesChanged.size()) + " file(s) changed)");
  }

  [[nodiscard]] std::vector<std::string> newUntrackedFiles() const {
    std::set<std::string> before(m_preexistingUntracked.begin(), m_preexistingUntracked.end());
    std::vector<std::string> fresh;
    for (std::string& path : m_git.untrackedFiles()) {
      if (!before.contains(path)) fresh.push_back(std::move(path));
    }
    return fresh;
  }

  // Back to where the checkout stood. The user's own untracked files are kept: only files the
  // flow created are cleaned. A failure here is told, and the caller still throws the first error.
  void rollBack() noexcept {
    try {
      CancellationPause pause;
      say("Rolling back: removing " + m_result.name + " and returning to " + startText());
      m_git.discardChanges(newUntrackedFiles());
      if (m_startBranch.empty()) {
        m_git.checkoutDetached(m_startCommit);
      } else {
        m_git.checkoutBranch(m_startBranch);
      }
      m_git.deleteBranch(m_result.name);
    } catch (const std::exception& error) {
      warn("The rollback didn't finish: " + std::string(error.what()));
    } catch (...) {
      warn("The rollback didn't finish.");
    }
  }

  const FixBranchRequest& m_request;
  const FixBranchProgress& m_progress;
  GitService m_git;
  std::string m_repoName;
  std::string m_startBranch;  // empty on a detached head
  std::string m_startCommit;
  std::optional<PatchFile> m_patchFile;
  std::vector<std::string> m_patchPaths;
  bool m_patchReadable = false;
  std::string m_patchProblem;
  std::vector<std::string> m_preexistingUntracked;
  FixBranchResult m_result;
};

}  // namespace

FixBranchResult makeFixBranch(const FixBranchRequest& request, const FixBranchProgress& progress) {
  base::RepositoryLock lock(
      request.repository,
      [&](const std::string& line) {
        if (progress.progress) progress.progress(line);
      },
      request.lockTiming);
  return FixBranchFlow(request, progress).run();
}

}  // namespace quillora::git
