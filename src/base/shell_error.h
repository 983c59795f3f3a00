#pragma once

#include "base/error.h"

#include <cstdint>
#include <string>

// Failures of external tools. Their texts reach the user unchanged; kind() "shell" exits 1.
namespace quillora::base {

// A tool that couldn't be found, or one that ran and failed where its caller needed success.
class ShellError : public Error {
public:
  enum class Case { notFound, failed };

  // "Couldn't find `{name}` on your PATH. …": nothing was started.
  static ShellError notFound(const std::string& name);
  // Raised by callers that require exit 0; `output` is what the tool printed (trimmed in the text).
  static ShellError failed(const std::string& command, int32_t status, const std::string& output);

  [[nodiscard]] std::string kind() const override { return "shell"; }
  [[nodiscard]] Case errorCase() const { return m_case; }
  // The tool name (notFound) or the command label (failed).
  [[nodiscard]] const std::string& name() const { return m_name; }
  [[nodiscard]] int32_t status() const { return m_status; }
  [[nodiscard]] const std::string& output() const { return m_output; }

private:
  ShellError(Case errorCase, std::string message, std::string name, int32_t status,
             std::string output);
  Case m_case;
  std::string m_name;
  int32_t m_status;
  std::string m_output;
};

// A child stopped by the watchdog: over its overall limit (`stalled` false) or silent for longer
// than its stall limit (`stalled` true). `lastOutput` is the tail it printed before it was stopped.
class ShellTimeout : public Error {
public:
  ShellTimeout(std::string label, int64_t seconds, std::string lastOutput, bool stalled);

  [[nodiscard]] std::string kind() const override { return "shell"; }
  [[nodiscard]] const std::string& label() const { return m_label; }
  [[nodiscard]] int64_t seconds() const { return m_seconds; }
  [[nodiscard]] const std::string& lastOutput() const { return m_lastOutput; }
  [[nodiscard]] bool stalled() const { return m_stalled; }

private:
  std::string m_label;
  int64_t m_seconds;
  std::string m_lastOutput;
  bool m_stalled;
};

// The operating system refused to start a tool that was found (a missing working directory, a
// file that isn't a program). The system's own reason is kept as it is.
class ShellLaunchError : public Error {
public:
  ShellLaunchError(const std::string& label, int errorNumber);
  [[nodiscard]] std::string kind() const override { return "shell"; }
  [[nodiscard]] int errorNumber() const { return m_errorNumber; }

private:
  int m_errorNumber;
};

// "{n} minutes" from 120 seconds up (whole minutes, rounded down), else "{n} seconds".
std::string shellDurationText(int64_t seconds);

} // namespace quillora::base
