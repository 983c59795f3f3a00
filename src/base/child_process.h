#pragma once

#include "base/process_runner.h"

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

// The mechanics under ProcessRunner: one child started with posix_spawn and watched with poll until
// it ends. Callers go through ProcessRunner; only it and the login-shell lookup use this directly.
namespace quillora::base::detail {

struct ChildSpec {
  std::string path;                     // absolute, already resolved
  std::vector<std::string> argv;        // argv[0] included
  std::vector<std::string> environment; // "NAME=value" entries, the child's whole environment
  std::optional<std::filesystem::path> workingDirectory;
  const std::string* standardInput = nullptr; // null: /dev/null
  std::optional<Seconds> timeLimit;
  std::optional<Seconds> stallLimit;
  std::string label;
  const LineCallback* onStdoutLine = nullptr;
  const LineCallback* onStderrLine = nullptr;
  // Over its limit or on Ctrl-C the child is no longer waited for but left to finish on its own:
  // a login shell killed halfway through the user's profile can leave that profile's state broken.
  bool abandonInsteadOfStopping = false;
};

// The raw bytes of both outputs, undecoded.
struct ChildOutcome {
  int32_t status = 0;
  std::string out;
  std::string err;
};

// Runs the child to its end. Throws ShellLaunchError, ShellTimeout, CancelledError or what a line
// callback threw; in every case the child has been reaped when this returns or throws.
ChildOutcome runChild(const ChildSpec& childSpec, const ProcessTiming& timing);

// `bytes` as UTF-8 with invalid sequences replaced; valid text is moved, not copied.
std::string decodeLossy(std::string bytes);

} // namespace quillora::base::detail
