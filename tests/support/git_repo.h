#pragma once

#include <filesystem>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "support/test_support.h"

// Real git repositories for tests, in a sandbox where no user or system git configuration leaks in.
namespace quillora::testing {

// For one test: HOME, XDG_CONFIG_HOME and QUILLORA_HOME point into a fresh folder, git ignores the
// system configuration, and identity variables (GIT_AUTHOR_NAME, GITHUB_ACTIONS, …) are unset.
// Everything is put back when the sandbox goes away.
class GitSandbox {
 public:
  GitSandbox();
  ~GitSandbox();
  GitSandbox(const GitSandbox&) = delete;
  GitSandbox& operator=(const GitSandbox&) = delete;
  [[nodiscard]] const std::filesystem::path& home() const { return m_dir.path(); }

 private:
  void set(const char* name, const std::optional<std::string>& value);
  TempDir m_dir;
  std::vector<std::pair<std::string, std::optional<std::string>>> m_saved;
};

// A repository in a temporary folder (named "game") on branch "main" with one commit of
// "Player.cs", and a repository-local identity unless `withIdentity` is false.
class GitRepo {
 public:
  explicit GitRepo(bool withIdentity = true);
  [[nodiscard]] const std::filesystem::path& root() const { return m_root; }

  // Runs git in the repository; a failure fails the test by throwing. Returns stdout, trimmed.
  std::string git(const std::vector<std::string>& args) const;
  [[nodiscard]] RunResult gitResult(const std::vector<std::string>& args) const;
  void write(const std::string& relative, const std::string& content) const;
  [[nodiscard]] std::string read(const std::string& relative) const;
  // Writes the file, stages everything and commits; returns the new commit's hash.
  std::string commit(const std::string& relative, const std::string& content,
                     const std::string& message) const;

 private:
  TempDir m_dir;
  std::filesystem::path m_root;
};

// The full path of git, for running it directly.
std::string gitExecutable();

}  // namespace quillora::testing
