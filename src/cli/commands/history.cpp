#include "cli/commands/commands.h"

namespace quillora::cli {

int runHistory(CommandContext& context) {
  const auto& positionals = context.args.positionals;
  std::string action = positionals.empty() ? "list" : positionals[0];
  if (action != "list" && action != "search" && action != "show") {
    throw CLIUsageError("Unknown history action '" + action +
                        "': use list, search <query> or show <id>.");
  }
  if (action == "show" && positionals.size() < 2) throw CLIUsageError("history show needs a record ID.");
  if (action == "list" && positionals.size() > 1) {
    throw CLIUsageError("history list takes no query (use history search).");
  }
  if (action == "search" && positionals.size() < 2) {
    throw CLIUsageError("history search needs a query, e.g. quillora history search NullReference");
  }
  wholeNumberOption(context.args, "limit", 1, 5000);
  throw UnavailableError("The history isn't available in this build yet.");
}

}  // namespace quillora::cli
