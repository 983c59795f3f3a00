#include "base/shell_error.h"

#include "base/strings.h"
#include "base/text.h"

#include <cstring>
#include <utility>

namespace quillora::base {

namespace {
constexpr size_t kShownOutputCharacters = 600;

// The final `count` user-perceived characters of `s`.
std::string_view lastCharacters(std::string_view s, size_t count) {
  size_t total = graphemeCount(s);
  if (total <= count) return s;
  return s.substr(prefixGraphemes(s, total - count).size());
}

std::string timeoutMessage(const std::string& label, int64_t seconds, std::string_view lastOutput,
                           bool stalled) {
  std::string message = stalled ? "`" + label + "` stopped responding (no output for " +
                                      shellDurationText(seconds) + "), so Quillora stopped it."
                                : "`" + label + "` didn't finish within " +
                                      shellDurationText(seconds) + ", so Quillora stopped it.";
  std::string_view tail = trim(lastOutput);
  if (!tail.empty()) {
    message += "\nLast output:\n";
    message += lastCharacters(tail, kShownOutputCharacters);
  }
  return message;
}
} // namespace

std::string shellDurationText(int64_t seconds) {
  if (seconds > 119) return std::to_string(seconds / 60) + " minutes";
  return std::to_string(seconds) + " seconds";
}

ShellError::ShellError(Case errorCase, std::string message, std::string name, int32_t status,
                       std::string output)
    : Error(message), m_case(errorCase), m_name(std::move(name)), m_status(status),
      m_output(std::move(output)) {}

ShellError ShellError::notFound(const std::string& name) {
  return {Case::notFound,
          "Couldn't find `" + name +
              "` on your PATH. Install it, or set its full path in Settings.",
          name, 0, ""};
}

ShellError ShellError::failed(const std::string& command, int32_t status,
                              const std::string& output) {
  std::string message = "`" + command + "` failed (exit " + std::to_string(status) + ")";
  std::string_view shown = trim(output);
  if (!shown.empty()) {
    message += ":\n";
    message += shown;
  }
  return {Case::failed, message, command, status, output};
}

ShellTimeout::ShellTimeout(std::string label, int64_t seconds, std::string lastOutput, bool stalled)
    : Error(timeoutMessage(label, seconds, lastOutput, stalled)), m_label(std::move(label)),
      m_seconds(seconds), m_lastOutput(std::move(lastOutput)), m_stalled(stalled) {}

ShellLaunchError::ShellLaunchError(const std::string& label, int errorNumber)
    : Error("Couldn't start `" + label + "`: " + std::strerror(errorNumber) + "."),
      m_errorNumber(errorNumber) {}

} // namespace quillora::base
