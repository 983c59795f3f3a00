#include "base/regex.h"
#include "cli/commands/commands.h"

namespace quillora::cli {

int runCost(CommandContext& context) {
  if (auto month = context.args.value("month")) {
    static const base::Regex pattern(R"(^\d{4}-(0[1-9]|1[0-2])$)");
    if (!pattern.test(*month)) throw CLIUsageError("--month must look like 2026-10.");
  }
  throw UnavailableError("The cost report isn't available in this build yet.");
}

}  // namespace quillora::cli
