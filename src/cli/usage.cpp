#include "cli/usage.h"

#include <map>

namespace quillora::cli {

std::string generalUsage() {
  return R"(Quillora command line — turn crash reports into fixes from scripts and CI.

Usage: quillora <command> [options]

Commands:
  analyze       Analyze one crash (a trace file or an issue from your crash service), optionally make a fix branch
  triage        Run overnight triage once and print the morning digest
  symbolicate   Turn raw addresses / obfuscated names in a trace into function names
  history       List, search or show earlier analyses
  cost          AI spending for a month
  version       Version and configuration
  help          This help, or `quillora help <command>`

Global options (every command):
  --config <file>   Settings for this run only: a JSON object of settings keys
                    (or set QUILLORA_CONFIG to the file)
  --quiet           No progress lines, only results, warnings and errors
  --verbose         Also copy build and test output to stderr
  --help, -h        Usage of the command

Results go to stdout (or --out), progress and notes to stderr.

Exit codes:
  0  ok
  1  failure
  2  usage (bad options, or a configuration file that can't be used)
  3  budget exceeded (the monthly AI budget in "block" mode)
  5  fix not verified (--fail-on-unverified)

Secrets from the environment (they win over the secret store):
  ANTHROPIC_API_KEY, OPENAI_API_KEY, GEMINI_API_KEY or GOOGLE_API_KEY,
  GITHUB_TOKEN or GH_TOKEN, JIRA_API_TOKEN, TRELLO_KEY, TRELLO_TOKEN,
  QUILLORA_GOOGLE_SERVICE_ACCOUNT or GOOGLE_APPLICATION_CREDENTIALS (a file),
  SENTRY_AUTH_TOKEN, BUGSNAG_TOKEN, BACKTRACE_TOKEN,
  APP_STORE_CONNECT_KEY or APP_STORE_CONNECT_KEY_PATH (a file), SLACK_WEBHOOK_URL,
  JENKINS_API_TOKEN; and QUILLORA_SECRET_<ACCOUNT> for any secret-store account
  (e.g. QUILLORA_SECRET_ANTHROPIC_API_KEY).

Install:
  On macOS: sudo ln -s /Applications/Quillora.app/Contents/MacOS/Quillora /usr/local/bin/quillora
  On Linux: sudo ln -s "$(pwd)/build/quillora" /usr/local/bin/quillora
)";
}

namespace {
const std::map<std::string, std::string>& usages() {
  static const std::map<std::string, std::string> texts = {
      {"analyze", R"(Usage: quillora analyze --trace <file|-> [options]
       quillora analyze --app <appID> --issue <issueID> [options]

Analyzes one crash with an AI engine and prints the analysis: root cause, fix, steps to reproduce.

Options:
  --trace <file|->          A trace file (.txt, .log, .crash, .ips, .xccrashpoint, crash JSON) or - for stdin
  --app <appID>             An app from the configuration (app ID, name, project slug or bundle ID)…
  --issue <issueID>         …and one of its issues: its sample crash is fetched from the crash service
  --days <n>                Period the issue is looked up in (default: the configured crash-report days)
  --notes <text>            Extra context for the engine; --notes-file <file> reads it from a file
  --symbolicate             Symbolicate first (dSYMs, mapping.txt, .so symbols); --symbols <dir> adds folders (repeatable)
  --repo <dir>              The game's repository (source for the engine; needed by --branch and claude-code)
  --engine <name>           claude-api, claude-code, openai or gemini (default: the configured engine)
  --model <id>              Model for that engine
  --save-history            Save the analysis to the history (duplicate hints, triage skips it next time)
  --no-duplicates           Don't look for earlier analyses, tracked fixes or top issues that match
  --branch                  Create a fix branch in the CURRENT checkout of --repo (needs a clean tree), apply the fix and commit it. Never pushes: push it with your own CI step.
  --base <ref>              Branch from this ref instead of the checked-out commit
  --branch-name <name>      Instead of the configured prefix + the analysis title
  --verify                  Build and test the fix branch, with a regression test when the project allows
  --fail-on-unverified      Exit 5 unless verification reached --min-verification (verified | tests-pass | builds; default verified)
  --format <f>              text (default), markdown or json
  --out <file>              Write the result to a file instead of stdout
  --markdown-out <file>     Also write the Markdown report to a file
  --dry-run                 Do every step up to the engine call and show what would be sent; sends nothing, needs no key
)"},
      {"triage", R"(Usage: quillora triage [--format text|markdown|json] [--out <file>] [--markdown-out <file>]

Runs overnight triage once, now: the top crashes of the configured apps (config "triage" / Settings → Automation), skipping ones analyzed in the last 7 days unless they grew, analyzing the rest, and — when enabled — making a LOCAL fix branch for each in a separate git worktree of the app's repository and verifying it. Nothing is pushed. Honors the monthly budget and the per-run spend cap (exit 3 when they stop the run).

Options:
  --format <f>              text (default), markdown or json
  --out <file>              Write the digest to a file instead of stdout
  --markdown-out <file>     Also write the Markdown digest to a file
)"},
      {"symbolicate", R"(Usage: quillora symbolicate --trace <file|-> [--repo <dir>] [--symbols <dir>]... [--format text|json] [--out <file>]

Prints the trace with raw addresses and obfuscated names replaced by function names (dSYMs, R8
mapping files, native library symbols). What was used and what is missing goes to stderr.

Options:
  --trace <file|->          The trace file, or - for stdin
  --repo <dir>              The game's repository (searched for symbols and mapping files)
  --symbols <dir>           A folder with symbols (repeatable)
  --format <f>              text (default) or json
  --out <file>              Write the result to a file instead of stdout
)"},
      {"history", R"(Usage: quillora history [list | search <query> | show <id>] [--limit N] [--format text|json] [--out <file>]

Lists, searches or shows earlier analyses saved with --save-history.

Actions:
  list                      The newest analyses (default)
  search <query>            Analyses whose text matches the query
  show <id>                 One analysis; <id> is a record ID or its first 6 or more characters

Options:
  --limit <n>               At most this many records, 1 to 5000 (default 50)
  --format <f>              text (default) or json
  --out <file>              Write the result to a file instead of stdout
)"},
      {"cost", R"(Usage: quillora cost [--month YYYY-MM] [--format text|json] [--out <file>]

Tokens and dollars of every AI call of a month, by kind and by model, and the monthly budget.

Options:
  --month <YYYY-MM>         The month (default: this month)
  --format <f>              text (default) or json
  --out <file>              Write the report to a file instead of stdout
)"},
      {"version", R"(Usage: quillora version [--format text|json]

Prints the version, the executable's path, the engine, the configuration file and the names of
the secret variables that are set (never their values).
)"},
      {"help", R"(Usage: quillora help [<command>]

Prints the general usage, or the usage of one command.
)"},
  };
  return texts;
}
}  // namespace

std::string commandUsage(const std::string& command) {
  auto it = usages().find(command);
  return it == usages().end() ? generalUsage() : it->second;
}

}  // namespace quillora::cli
