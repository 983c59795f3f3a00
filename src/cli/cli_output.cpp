#include "cli/cli_output.h"

#include <unistd.h>

#include <cerrno>

namespace quillora::cli {

namespace {
void writeAll(int fd, std::string_view data) {
  while (!data.empty()) {
    ssize_t n = ::write(fd, data.data(), data.size());
    if (n < 0) {
      if (errno == EINTR) continue;
      return;  // a closed stderr or stdout is not worth failing the run for
    }
    data.remove_prefix(static_cast<size_t>(n));
  }
}
}  // namespace

CLIOutput& CLIOutput::shared() {
  static CLIOutput output;
  return output;
}

void CLIOutput::configure(bool quiet, bool verbose) {
  std::lock_guard lock(m_mutex);
  m_quiet = quiet;
  m_verbose = verbose && !quiet;
}

bool CLIOutput::quiet() const {
  std::lock_guard lock(m_mutex);
  return m_quiet;
}

bool CLIOutput::verbose() const {
  std::lock_guard lock(m_mutex);
  return m_verbose;
}

std::string CLIOutput::lastProgress() const {
  std::lock_guard lock(m_mutex);
  return m_lastProgress;
}

void CLIOutput::writeLine(int fd, std::string_view prefix, std::string_view message) {
  std::string line;
  line.reserve(prefix.size() + message.size() + 1);
  line.append(prefix).append(message);
  if (line.empty() || line.back() != '\n') line.push_back('\n');
  writeAll(fd, line);
}

void CLIOutput::progress(std::string_view line) {
  std::lock_guard lock(m_mutex);
  m_lastProgress = std::string(line);
  if (!m_quiet) writeLine(STDERR_FILENO, "", line);
}

void CLIOutput::verboseLine(std::string_view line) {
  std::lock_guard lock(m_mutex);
  if (m_verbose) writeLine(STDERR_FILENO, "", line);
}

void CLIOutput::warning(std::string_view message) {
  std::lock_guard lock(m_mutex);
  writeLine(STDERR_FILENO, "quillora: warning: ", message);
}

void CLIOutput::error(std::string_view message) {
  std::lock_guard lock(m_mutex);
  writeLine(STDERR_FILENO, "quillora: error: ", message);
}

void CLIOutput::result(std::string_view text) {
  std::lock_guard lock(m_mutex);
  writeAll(STDOUT_FILENO, text);
}

}  // namespace quillora::cli
