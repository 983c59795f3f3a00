#pragma once

#include "base/shell_error.h"

#include <chrono>
#include <cstdint>
#include <filesystem>
#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

// Every external tool (git, claude, gcloud, build tools, symbolizers) runs through ProcessRunner:
// found on the login shell's search path, started from argv in its own process group with a fixed
// environment, both outputs captured and handed out line by line, and stopped by a watchdog when it
// runs too long or falls silent.
namespace quillora::base {

// How one child ended. Output is decoded as UTF-8; invalid bytes become U+FFFD, never an error.
struct ShellResult {
  // The exit code, or 128 + the signal number when a signal ended the child.
  int32_t status = 0;
  std::string stdout;
  std::string stderr;
};

// Receives one line of output, without its newline, decoded as UTF-8. Called on the caller's own
// thread while run() is under way; an exception thrown here stops the child and leaves run().
using LineCallback = std::function<void(const std::string& line)>;

using Seconds = std::chrono::duration<double>;

// One tool to run. Only `executable` is required.
struct ProcessRequest {
  // A name looked up on the login search path, an absolute path, or "~/…".
  std::string executable;
  std::vector<std::string> arguments;
  std::optional<std::filesystem::path> workingDirectory;
  // Written in full while the outputs are read, then closed. Without it the child reads /dev/null.
  std::optional<std::string> standardInput;
  // The longest the child may run in all.
  std::optional<Seconds> timeLimit;
  // The longest the child may stay silent on both outputs.
  std::optional<Seconds> stallLimit;
  // The name used in messages; empty means `executable` as given.
  std::string label;
  LineCallback onStdoutLine;
  LineCallback onStderrLine;
  // Set in the child's environment after the fixed entries (PATH, GIT_TERMINAL_PROMPT, …).
  std::vector<std::pair<std::string, std::string>> environment;
};

// The runner's clock. The defaults are the product's; tests shrink them to stay quick.
struct ProcessTiming {
  // How often the watchdog compares the limits with the clock.
  std::chrono::milliseconds tick{1000};
  // From SIGTERM to SIGKILL for a child that doesn't stop politely.
  std::chrono::milliseconds killDelay{3000};
  // How long output is still read after the child ended (something it started may hold the pipes).
  std::chrono::milliseconds drainLimit{1500};
};

class ProcessRunner {
public:
  ProcessRunner() = default;
  explicit ProcessRunner(ProcessTiming timing) : m_timing(timing) {}

  // Runs the tool to its end and returns how it ended; a non-zero status is not an error here.
  // Blocks the calling thread. Throws ShellError (notFound), ShellLaunchError, ShellTimeout,
  // CancelledError when Ctrl-C stopped the child, or whatever a line callback threw.
  [[nodiscard]] ShellResult run(const ProcessRequest& request) const;
  // The tool with its arguments, no input and no limits.
  [[nodiscard]] ShellResult run(std::string executable, std::vector<std::string> arguments) const;

  // The full path of a tool name or path, or nullopt when it isn't an executable file.
  static std::optional<std::filesystem::path> resolve(std::string_view tool);

  // The login shell's PATH followed by the extra tool folders, computed on first use and cached.
  static const std::string& loginSearchPath();
  // One computation of the above with the given shell (empty: "/bin/zsh") and home folder. A
  // shell still busy after `limit` counts as one that printed nothing; it is left to finish.
  static std::string computeLoginSearchPath(std::string_view shell,
                                            const std::filesystem::path& home,
                                            Seconds limit = Seconds(10));

private:
  ProcessTiming m_timing;
};

} // namespace quillora::base
