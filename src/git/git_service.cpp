#include "git/git_service.h"

#include "base/strings.h"
#include "git/git_error.h"

#include <utility>

namespace quillora::git {

namespace {

std::vector<std::string> nonEmptyLines(std::string_view text) {
  std::vector<std::string> lines;
  for (std::string_view line : base::splitLines(text)) {
    if (!base::trim(line).empty()) lines.emplace_back(line);
  }
  return lines;
}

// Entries of a NUL-separated listing ("-z"), empty ones skipped.
std::vector<std::string> nulSeparated(std::string_view text) {
  std::vector<std::string> entries;
  for (std::string& entry : base::split(text, '\0')) {
    if (!entry.empty()) entries.push_back(std::move(entry));
  }
  return entries;
}

// What git printed, for an error: its complaint first, then whatever it said on stdout.
std::string combinedOutput(const base::ShellResult& result) {
  std::string err = base::trimmed(result.stderr);
  std::string out = base::trimmed(result.stdout);
  if (err.empty()) return out;
  if (out.empty()) return err;
  return err + "\n" + out;
}

}  // namespace

GitService::Options GitService::listsPaths() {
  Options options;
  options.listsPaths = true;
  return options;
}

GitService::Options GitService::takesPaths() {
  Options options;
  options.takesPaths = true;
  return options;
}

GitService::Options GitService::listsAndTakesPaths() {
  Options options = listsPaths();
  options.takesPaths = true;
  return options;
}

GitService::GitService(std::filesystem::path root, base::ProcessRunner runner)
    : m_root(std::move(root)), m_runner(runner) {}

base::ShellResult GitService::run(const std::vector<std::string>& arguments,
                                  const Options& options) const {
  base::ProcessRequest request;
  request.executable = "git";
  if (options.listsPaths) {
    request.arguments.insert(request.arguments.end(), {"-c", "core.quotepath=off"});
  }
  if (options.takesPaths) request.arguments.emplace_back("--literal-pathspecs");
  request.arguments.insert(request.arguments.end(), arguments.begin(), arguments.end());
  request.workingDirectory = m_root;
  request.standardInput = options.standardInput;
  request.environment = options.environment;
  request.label = "git " + base::join(arguments, " ");
  return m_runner.run(request);
}

std::string GitService::runChecked(const std::vector<std::string>& arguments,
                                   const Options& options) const {
  base::ShellResult result = run(arguments, options);
  if (result.status != 0) {
    throw GitError("git " + base::join(arguments, " "), result.status, combinedOutput(result));
  }
  return std::move(result.stdout);
}

std::vector<std::string> GitService::uncommittedChanges() const {
  return nonEmptyLines(runChecked({"status", "--porcelain", "--untracked-files=no"},
                                  listsAndTakesPaths()));
}

std::string GitService::currentBranch() const {
  return base::trimmed(runChecked({"rev-parse", "--abbrev-ref", "HEAD"}, {}));
}

std::string GitService::currentCommit() const {
  return base::trimmed(runChecked({"rev-parse", "HEAD"}, {}));
}

std::optional<std::string> GitService::commitOf(const std::string& ref) const {
  // A ref that starts with "-" would be read as an option; no branch or tag can start so.
  if (ref.empty() || ref.front() == '-') return std::nullopt;
  base::ShellResult result = run({"rev-parse", "--verify", "--quiet", ref + "^{commit}"}, {});
  std::string hash = base::trimmed(result.stdout);
  if (result.status != 0 || hash.empty()) return std::nullopt;
  return hash;
}

bool GitService::localBranchExists(const std::string& name) const {
  return run({"rev-parse", "--verify", "--quiet", "refs/heads/" + name}, {}).status == 0;
}

bool GitService::isValidBranchName(const std::string& name) const {
  // git prints the name it would use: "@{-1}" passes as the previous branch's name, which isn't
  // the name the caller asked for.
  base::ShellResult result = run({"check-ref-format", "--branch", name}, {});
  return result.status == 0 && base::trimmed(result.stdout) == name;
}

bool GitService::isInsideWorkTree() const {
  if (!std::filesystem::is_directory(m_root)) return false;
  base::ShellResult result = run({"rev-parse", "--is-inside-work-tree"}, {});
  return result.status == 0 && base::trimmed(result.stdout) == "true";
}

std::filesystem::path GitService::absoluteGitDir() const {
  return base::trimmed(runChecked({"rev-parse", "--absolute-git-dir"}, {}));
}

std::filesystem::path GitService::commonGitDir() const {
  return base::trimmed(
      runChecked({"rev-parse", "--path-format=absolute", "--git-common-dir"}, {}));
}

std::optional<std::string> GitService::defaultBranch() const {
  base::ShellResult origin = run({"symbolic-ref", "--quiet", "refs/remotes/origin/HEAD"}, {});
  std::string target = base::trimmed(origin.stdout);
  const std::string prefix = "refs/remotes/origin/";
  if (origin.status == 0 && target.starts_with(prefix) && target.size() > prefix.size()) {
    return target.substr(prefix.size());
  }
  for (const char* candidate : {"main", "master", "develop"}) {
    if (localBranchExists(candidate)) return std::string(candidate);
  }
  return std::nullopt;
}

std::string GitService::configuredEmail() const {
  // Exit 1 only means the key is unset.
  return base::trimmed(run({"config", "user.email"}, {}).stdout);
}

std::optional<std::string> GitService::originURL() const {
  base::ShellResult result = run({"remote", "get-url", "origin"}, {});
  std::string url = base::trimmed(result.stdout);
  if (result.status != 0 || url.empty()) return std::nullopt;
  return url;
}

std::vector<std::string> GitService::untrackedFiles() const {
  return nulSeparated(runChecked({"ls-files", "--others", "--exclude-standard", "-z"},
                                 listsAndTakesPaths()));
}

std::vector<std::string> GitService::patchPaths(const std::filesystem::path& patchFile) const {
  // With -z each entry is "added<TAB>deleted<TAB>path" and the path is never quoted.
  std::vector<std::string> paths;
  for (const std::string& entry :
       nulSeparated(runChecked({"apply", "--numstat", "-z", patchFile.string()},
                               listsPaths()))) {
    size_t tab = entry.find('\t');
    size_t second = tab == std::string::npos ? tab : entry.find('\t', tab + 1);
    paths.push_back(second == std::string::npos ? entry : entry.substr(second + 1));
  }
  return paths;
}

base::ShellResult GitService::applyPatch(const std::filesystem::path& patchFile,
                                         bool threeWay) const {
  std::vector<std::string> arguments = {"apply"};
  if (threeWay) arguments.emplace_back("--3way");
  arguments.emplace_back("--whitespace=nowarn");
  arguments.push_back(patchFile.string());
  return run(arguments, listsPaths());
}

void GitService::createBranch(const std::string& name, const std::string& startCommit) const {
  runChecked({"checkout", "--quiet", "-b", name, startCommit}, {});
}

void GitService::checkoutBranch(const std::string& name) const {
  // "--" after the name: a branch that shares its name with a file is still the branch.
  runChecked({"checkout", "--quiet", name, "--"}, {});
}

void GitService::checkoutDetached(const std::string& commit) const {
  runChecked({"checkout", "--quiet", "--detach", commit}, {});
}

void GitService::deleteBranch(const std::string& name) const {
  runChecked({"branch", "-D", name}, {});
}

void GitService::stageAll() const { runChecked({"add", "-A"}, takesPaths()); }

std::vector<std::string> GitService::stagedFiles() const {
  return nonEmptyLines(runChecked({"diff", "--cached", "--name-only"},
                                  listsAndTakesPaths()));
}

void GitService::unstage(const std::vector<std::string>& paths) const {
  if (paths.empty()) return;
  std::vector<std::string> arguments = {"reset", "--quiet", "--"};
  arguments.insert(arguments.end(), paths.begin(), paths.end());
  runChecked(arguments, takesPaths());
}

void GitService::commit(const std::string& message,
                        const std::vector<std::pair<std::string, std::string>>& environment) const {
  Options options;
  options.standardInput = message;
  options.environment = environment;
  runChecked({"commit", "-F", "-"}, options);
}

std::string GitService::diffStat(const std::string& base) const {
  return runChecked({"diff", "--stat", base + "...HEAD"}, listsAndTakesPaths());
}

std::vector<std::string> GitService::changedFiles(const std::string& base) const {
  return nonEmptyLines(runChecked({"diff", "--name-only", base + "...HEAD"},
                                  listsAndTakesPaths()));
}

void GitService::discardChanges(const std::optional<std::vector<std::string>>& untracked) const {
  runChecked({"reset", "--hard", "HEAD"}, takesPaths());
  if (!untracked) {
    runChecked({"clean", "-fd"}, listsAndTakesPaths());
    return;
  }
  if (untracked->empty()) return;
  std::vector<std::string> arguments = {"clean", "-fd", "--"};
  arguments.insert(arguments.end(), untracked->begin(), untracked->end());
  runChecked(arguments, listsAndTakesPaths());
}

void GitService::removeWorktree(const std::filesystem::path& path) const {
  runChecked({"worktree", "remove", "--force", path.string()}, {});
  runChecked({"worktree", "prune"}, {});
}

}  // namespace quillora::git
