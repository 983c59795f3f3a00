#include "support/git_repo.h"

#include <cstdlib>
#include <stdexcept>

#include "base/process_runner.h"
#include "base/strings.h"

namespace quillora::testing {

std::string gitExecutable() {
  static const std::string path = [] {
    auto resolved = base::ProcessRunner::resolve("git");
    if (!resolved) throw std::runtime_error("git isn't installed");
    return resolved->string();
  }();
  return path;
}

GitSandbox::GitSandbox() {
  set("HOME", m_dir.path().string());
  set("XDG_CONFIG_HOME", (m_dir.path() / ".config").string());
  set("QUILLORA_HOME", (m_dir.path() / "quillora").string());
  set("GIT_CONFIG_NOSYSTEM", "1");
  for (const char* name : {"GIT_AUTHOR_NAME", "GIT_AUTHOR_EMAIL", "GIT_COMMITTER_NAME",
                           "GIT_COMMITTER_EMAIL", "EMAIL", "GITHUB_ACTIONS", "GIT_DIR",
                           "GIT_WORK_TREE", "GIT_CONFIG_GLOBAL"}) {
    set(name, std::nullopt);
  }
}

GitSandbox::~GitSandbox() {
  for (auto it = m_saved.rbegin(); it != m_saved.rend(); ++it) {
    if (it->second) {
      ::setenv(it->first.c_str(), it->second->c_str(), 1);
    } else {
      ::unsetenv(it->first.c_str());
    }
  }
}

void GitSandbox::set(const char* name, const std::optional<std::string>& value) {
  const char* old = std::getenv(name);
  m_saved.emplace_back(name, old ? std::optional<std::string>(old) : std::nullopt);
  if (value) {
    ::setenv(name, value->c_str(), 1);
  } else {
    ::unsetenv(name);
  }
}

GitRepo::GitRepo(bool withIdentity) : m_root(m_dir.path() / "game") {
  std::filesystem::create_directories(m_root);
  git({"init", "--quiet", "--initial-branch=main"});
  if (withIdentity) {
    git({"config", "user.name", "Test Developer"});
    git({"config", "user.email", "dev@example.com"});
  }
  write("Player.cs", "class Player {\n  void Update() {\n    target.Move();\n  }\n}\n");
  // The first commit needs an identity even in a repository that has none configured.
  RunOptions options;
  options.cwd = m_root;
  options.env = {{"GIT_AUTHOR_NAME", "Setup"}, {"GIT_AUTHOR_EMAIL", "setup@example.com"},
                 {"GIT_COMMITTER_NAME", "Setup"}, {"GIT_COMMITTER_EMAIL", "setup@example.com"}};
  git({"add", "-A"});
  RunResult result = run(gitExecutable(), {"commit", "--quiet", "-m", "Initial commit"}, options);
  if (result.exitCode != 0) throw std::runtime_error("git commit failed: " + result.err);
}

RunResult GitRepo::gitResult(const std::vector<std::string>& args) const {
  RunOptions options;
  options.cwd = m_root;
  return run(gitExecutable(), args, options);
}

std::string GitRepo::git(const std::vector<std::string>& args) const {
  RunResult result = gitResult(args);
  if (result.exitCode != 0) {
    throw std::runtime_error("git " + base::join(args, " ") + " failed: " + result.err);
  }
  return base::trimmed(result.out);
}

void GitRepo::write(const std::string& relative, const std::string& content) const {
  m_dir.write("game/" + relative, content);
}

std::string GitRepo::read(const std::string& relative) const { return readText(m_root / relative); }

std::string GitRepo::commit(const std::string& relative, const std::string& content,
                            const std::string& message) const {
  write(relative, content);
  git({"add", "-A"});
  RunOptions options;
  options.cwd = m_root;
  options.env = {{"GIT_AUTHOR_NAME", "Setup"}, {"GIT_AUTHOR_EMAIL", "setup@example.com"},
                 {"GIT_COMMITTER_NAME", "Setup"}, {"GIT_COMMITTER_EMAIL", "setup@example.com"}};
  RunResult result = run(gitExecutable(), {"commit", "--quiet", "-m", message}, options);
  if (result.exitCode != 0) throw std::runtime_error("git commit failed: " + result.err);
  return git({"rev-parse", "HEAD"});
}

}  // namespace quillora::testing
