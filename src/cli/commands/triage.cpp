#include "cli/commands/commands.h"

namespace quillora::cli {

int runTriage(CommandContext&) {
  throw UnavailableError("Overnight triage isn't available in this build yet.");
}

}  // namespace quillora::cli
