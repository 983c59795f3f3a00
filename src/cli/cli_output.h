#pragma once

#include <mutex>
#include <string>
#include <string_view>

namespace quillora::cli {

// Process-wide output of the command line. Results go to standard output; progress, notes,
// warnings and errors to standard error. Safe to call from any thread (engine streams and process
// runners report progress from their own threads).
class CLIOutput {
 public:
  static CLIOutput& shared();

  // verbose is only kept when quiet is not set.
  void configure(bool quiet, bool verbose);
  [[nodiscard]] bool quiet() const;
  [[nodiscard]] bool verbose() const;
  [[nodiscard]] std::string lastProgress() const;

  // A progress line or note on standard error, unless quiet. Replaces lastProgress.
  void progress(std::string_view line);
  // Build and test output, copied to standard error only with --verbose.
  void verboseLine(std::string_view line);
  // "quillora: warning: <message>"; shown even when quiet.
  void warning(std::string_view message);
  // "quillora: error: <message>"; shown even when quiet.
  void error(std::string_view message);
  // Result text on standard output, unchanged.
  void result(std::string_view text);

 private:
  void writeLine(int fd, std::string_view prefix, std::string_view message);
  mutable std::mutex m_mutex;
  bool m_quiet = false;
  bool m_verbose = false;
  std::string m_lastProgress;
};

}  // namespace quillora::cli
