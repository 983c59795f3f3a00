#pragma once

#include <map>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "base/error.h"

namespace quillora::cli {

// A mistake in how the command was called. Always exit 2.
class CLIUsageError : public Error {
 public:
  using Error::Error;
  [[nodiscard]] std::string kind() const override { return "usage"; }
};

// What a command accepts. Global options (--config, --quiet, --verbose, --help) are added by the
// parser for every command.
struct CommandSpec {
  std::string name;
  std::set<std::string> valueOptions;
  std::set<std::string> repeatable;
  std::set<std::string> flags;
  size_t maxPositionals = 0;
  std::vector<std::string> formats;  // allowed --format values, default first
};

// The command table, in the order of the general usage.
const std::vector<CommandSpec>& commandSpecs();
const CommandSpec* findCommand(const std::string& name);

struct ParsedArguments {
  std::map<std::string, std::vector<std::string>> values;
  std::set<std::string> flags;
  std::vector<std::string> positionals;

  [[nodiscard]] bool has(const std::string& flag) const { return flags.count(flag) > 0; }
  [[nodiscard]] bool given(const std::string& option) const { return values.count(option) > 0; }
  // The (last) value of an option.
  [[nodiscard]] std::optional<std::string> value(const std::string& option) const;
  [[nodiscard]] std::vector<std::string> all(const std::string& option) const;
};

// Applies the generic argument rules; throws CLIUsageError with their exact texts.
ParsedArguments parseArguments(const CommandSpec& commandSpec, const std::vector<std::string>& args);

// The --format value checked against the command's formats (default: text).
std::string checkedFormat(const CommandSpec& commandSpec, const ParsedArguments& args);

// A whole-number option in lo…hi, or nullopt when not given. Throws
// "--<name> must be a whole number from <lo> to <hi>."
std::optional<long long> wholeNumberOption(const ParsedArguments& args, const std::string& name,
                                           long long lo, long long hi);

}  // namespace quillora::cli
