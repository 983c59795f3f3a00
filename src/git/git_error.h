#pragma once

#include <cstdint>
#include <string>

#include "base/error.h"

// Failures of git work in a repository. kind() "git" exits 1.
namespace quillora::git {

// A git command that failed where success was needed (its text is that of ShellError's failed
// case: "`{command}` failed (exit {status}):" and git's trimmed output), or a fix-branch step that
// can't go on, with its own complete sentence.
class GitError : public Error {
 public:
  // A step's own sentence ("--base main~9 isn't a commit, branch or tag in game.").
  explicit GitError(const std::string& message);
  // A failed command: `label` is how the user would type it ("git apply --whitespace=nowarn …").
  GitError(const std::string& label, int32_t status, const std::string& output);

  [[nodiscard]] std::string kind() const override { return "git"; }
  // The command label, or empty for a step's own sentence.
  [[nodiscard]] const std::string& label() const { return m_label; }
  [[nodiscard]] int32_t status() const { return m_status; }
  // git's output as captured (untrimmed), or empty.
  [[nodiscard]] const std::string& output() const { return m_output; }

 private:
  std::string m_label;
  int32_t m_status = 0;
  std::string m_output;
};

}  // namespace quillora::git
