#include <filesystem>

#include "cli/commands/commands.h"

namespace quillora::cli {

int runSymbolicate(CommandContext& context) {
  if (!context.args.value("trace")) {
    throw CLIUsageError("Give the crash with --trace <file> (or --trace - for stdin).");
  }
  if (auto repo = context.args.value("repo"); repo && !std::filesystem::exists(*repo)) {
    throw CLIUsageError("--repo " + *repo + " doesn't exist.");
  }
  throw UnavailableError("Symbolication isn't available in this build yet.");
}

}  // namespace quillora::cli
