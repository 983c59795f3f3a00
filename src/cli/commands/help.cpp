#include "cli/cli_output.h"
#include "cli/commands/commands.h"
#include "cli/usage.h"

namespace quillora::cli {

int runHelp(CommandContext& context) {
  const auto& positionals = context.args.positionals;
  CLIOutput::shared().result(positionals.empty() ? generalUsage() : commandUsage(positionals.front()));
  return 0;
}

}  // namespace quillora::cli
