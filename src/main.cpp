// Mode selection: the one executable is the command line, the background service and (on macOS)
// the desktop application.
#include <csignal>
#include <cstdlib>
#include <string>
#include <vector>

#include "cli/cli_output.h"
#include "cli/command_line.h"

namespace {

// Drops platform user-default pairs ("-AppleLanguages" "(en)"): a single dash, at least three
// characters, an upper-case second character, together with the argument after it.
std::vector<std::string> withoutUserDefaultPairs(const std::vector<std::string>& args) {
  std::vector<std::string> kept;
  for (size_t i = 0; i < args.size(); ++i) {
    const std::string& a = args[i];
    bool pair = a.size() >= 3 && a[0] == '-' && a[1] >= 'A' && a[1] <= 'Z';
    if (pair) {
      ++i;
      continue;
    }
    kept.push_back(a);
  }
  return kept;
}

}  // namespace

int main(int argc, char** argv) {
  std::vector<std::string> raw(argv + 1, argv + argc);
  std::vector<std::string> args = withoutUserDefaultPairs(raw);

  // Both the command line and the service write to pipes that may close early.
  std::signal(SIGPIPE, SIG_IGN);
  // Tools we start speak English, so their messages can be recognised and quoted.
  setenv("LC_ALL", "C.UTF-8", 1);
  setenv("LANGUAGE", "en", 1);

  for (const auto& a : raw) {
    if (a == "--bot") {
      quillora::cli::CLIOutput::shared().error(
          "The background service (--bot) isn't part of this build yet. Run `quillora triage` "
          "from a scheduler (cron or a systemd timer) instead.");
      return 1;
    }
  }
  // There is no desktop application in this build: every other start is the command line, so a
  // mistyped command gets the command line's "Unknown command" rather than nothing.
  return quillora::cli::runCommandLine(args);
}
