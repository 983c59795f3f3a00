#pragma once

#include "cli/command_context.h"

// One function per command; each returns the exit code or throws a quillora::Error.
namespace quillora::cli {

int runAnalyze(CommandContext& context);
int runTriage(CommandContext& context);
int runSymbolicate(CommandContext& context);
int runHistory(CommandContext& context);
int runCost(CommandContext& context);
int runVersion(CommandContext& context);
int runHelp(CommandContext& context);

// A command (or a step of one) that this build can't do yet. Exit 1.
class UnavailableError : public Error {
 public:
  using Error::Error;
  [[nodiscard]] std::string kind() const override { return "unavailable"; }
};

}  // namespace quillora::cli
