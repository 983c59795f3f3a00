#pragma once

#include <stdexcept>
#include <string>

namespace quillora {

// The root of every error the program reports. what() is the complete user-facing sentence; the
// command line prints it after "quillora: error: " and picks the exit code from the error's kind.
class Error : public std::runtime_error {
 public:
  explicit Error(const std::string& message) : std::runtime_error(message) {}
  // A short machine-readable kind for the JSON failure document ("usage", "config", "ai", …).
  [[nodiscard]] virtual std::string kind() const { return "error"; }
};

// A configuration file (stored settings or the run configuration) that can't be used. Exit 2.
class ConfigError : public Error {
 public:
  using Error::Error;
  [[nodiscard]] std::string kind() const override { return "config"; }
};

// The user stopped the run (Ctrl-C). The command line prints "Cancelled." and exits 1.
class CancelledError : public Error {
 public:
  CancelledError() : Error("Cancelled.") {}
  [[nodiscard]] std::string kind() const override { return "cancelled"; }
};

}  // namespace quillora
