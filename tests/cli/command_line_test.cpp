// End-to-end tests of the command-line front end: the built binary, its exact stderr and exit code.
#include <gtest/gtest.h>

#include "support/test_support.h"

namespace quillora::testing {
namespace {

struct UsageCase {
  std::vector<std::string> args;
  std::string stderrText;
  int exitCode;
};

class CommandLine : public ::testing::Test {
 protected:
  TempDir home;
  TempDir work;
  RunResult quillora(const std::vector<std::string>& args, RunOptions opts = {}) {
    if (!opts.cwd) opts.cwd = work.path();
    return runQuillora(home.path(), args, opts);
  }
  void expectCases(const std::vector<UsageCase>& cases) {
    for (const auto& c : cases) {
      auto r = quillora(c.args);
      std::string joined;
      for (const auto& a : c.args) joined += a + " ";
      EXPECT_EQ(r.err, c.stderrText) << "args: " << joined;
      EXPECT_EQ(r.exitCode, c.exitCode) << "args: " << joined;
      EXPECT_EQ(r.out, "") << "args: " << joined;
    }
  }
};

TEST_F(CommandLine, GenericArgumentRulesGiveTheirExactTexts) {
  work.write("t.txt", "NullReferenceException\n");
  expectCases({
      {{"frobnicate"}, "quillora: error: Unknown command 'frobnicate'. Run `quillora help` for the list of commands.\n", 2},
      {{"analyze", "-x"}, "quillora: error: Unknown option '-x'. Options start with two dashes, e.g. --format json.\n", 2},
      {{"analyze", "--branch=yes"}, "quillora: error: --branch doesn't take a value.\n", 2},
      {{"analyze", "--repo", "a", "--repo", "b"}, "quillora: error: --repo was given more than once.\n", 2},
      {{"analyze", "--trace"}, "quillora: error: --trace needs a value.\n", 2},
      {{"analyze", "--colour"}, "quillora: error: Unknown option '--colour'.\n", 2},
      {{"analyze", "extra", "more"}, "quillora: error: Unexpected argument(s): extra more\n", 2},
      {{"history", "search", "a", "b"}, "quillora: error: Unexpected argument(s): b\n", 2},
      {{"cost", "--format", "markdown"}, "quillora: error: --format must be one of: text, json.\n", 2},
      {{"analyze", "--trace", "t.txt", "--format=yaml"}, "quillora: error: --format must be one of: text, markdown, json.\n", 2},
      {{"history", "--limit", "0"}, "quillora: error: --limit must be a whole number from 1 to 5000.\n", 2},
      {{"history", "--limit", "ten"}, "quillora: error: --limit must be a whole number from 1 to 5000.\n", 2},
      {{"version", "--quiet=1"}, "quillora: error: --quiet doesn't take a value.\n", 2},
  });
}

TEST_F(CommandLine, AnalyzeValidationRulesGiveTheirExactTexts) {
  work.write("t.txt", "NullReferenceException\n");
  work.write("empty.txt", "");
  std::filesystem::create_directory(work.path() / "game");
  expectCases({
      {{"analyze"}, "quillora: error: Give the crash: --trace <file> (or --trace - for stdin), or --app <appID> --issue <issueID>.\n", 2},
      {{"analyze", "--app", "x"}, "quillora: error: --app and --issue go together.\n", 2},
      {{"analyze", "--trace", "t.txt", "--app", "x", "--issue", "1"}, "quillora: error: Give either --trace or --app with --issue, not both.\n", 2},
      {{"analyze", "--trace", "t.txt", "--verify"}, "quillora: error: --verify needs --branch (it verifies the fix branch).\n", 2},
      {{"analyze", "--trace", "t.txt", "--branch", "--repo", "game", "--fail-on-unverified"}, "quillora: error: --fail-on-unverified needs --verify.\n", 2},
      {{"analyze", "--trace", "t.txt", "--base", "main"}, "quillora: error: --base and --branch-name need --branch.\n", 2},
      {{"analyze", "--trace", "t.txt", "--branch-name", "fix/x"}, "quillora: error: --base and --branch-name need --branch.\n", 2},
      {{"analyze", "--trace", "t.txt", "--min-verification", "builds"}, "quillora: error: --min-verification goes with --fail-on-unverified.\n", 2},
      {{"analyze", "--trace", "t.txt", "--repo", "game", "--branch", "--verify", "--fail-on-unverified", "--min-verification", "compiles"}, "quillora: error: --min-verification must be verified, tests-pass or builds.\n", 2},
      {{"analyze", "--trace", "t.txt", "--days", "0"}, "quillora: error: --days must be a whole number from 1 to 90.\n", 2},
      {{"analyze", "--trace", "t.txt", "--days", "2.5"}, "quillora: error: --days must be a whole number from 1 to 90.\n", 2},
      {{"analyze", "--trace", "t.txt", "--engine", "gpt"}, "quillora: error: --engine must be one of: claude-api, claude-code, openai, gemini\n", 2},
      {{"analyze", "--trace", "t.txt", "--notes-file", "missing.txt"}, "quillora: error: Can't read --notes-file missing.txt: No such file or directory\n", 2},
      {{"analyze", "--trace", "t.txt", "--repo", "t.txt"}, "quillora: error: --repo t.txt isn't a folder.\n", 2},
      {{"analyze", "--trace", "t.txt", "--branch"}, "quillora: error: --branch needs the repository: add --repo <dir>.\n", 2},
      {{"analyze", "--trace", "t.txt", "--engine", "claudecode"}, "quillora: error: The claude-code engine needs the repository: add --repo <dir>.\n", 2},
      {{"analyze", "--trace", "t.txt", "--symbols", "syms"}, "quillora: error: --symbols goes with --symbolicate.\n", 2},
      {{"analyze", "--app", "x", "--issue", " "}, "quillora: error: --issue needs an issue ID.\n", 2},
      {{"analyze", "--app", "x", "--issue", "1"}, "quillora: error: No crash-report apps are configured. Add them under \"apps\" in the --config file (or in the app's Settings → Crash Reports).\n", 2},
      {{"analyze", "--trace", "nope.txt"}, "quillora: error: No such file: nope.txt\n", 2},
      {{"analyze", "--trace", "empty.txt"}, "quillora: error: empty.txt is empty.\n", 2},
      {{"analyze", "--trace", "-"}, "quillora: error: Nothing came in on stdin.\n", 2},
  });
}

TEST_F(CommandLine, AnalyzeFindsConfiguredAppsByAnyOfTheirNames) {
  work.write("apps.json", R"({"apps": [
    {"source": "sentry", "remoteID": "dungeon-slug", "name": "Dungeon", "appID": "d-1", "bundleID": "com.ex.dungeon"},
    {"source": "crashlytics", "remoteID": "1:42:ios:ab", "name": "Racer", "appID": "1:42:ios:ab", "bundleID": "com.ex.racer"}]})");
  auto missing = quillora({"analyze", "--config", "apps.json", "--app", "Golf", "--issue", "1"});
  EXPECT_EQ(missing.err, "quillora: error: No app 'Golf' in the configuration. Known apps: Dungeon, Racer\n");
  EXPECT_EQ(missing.exitCode, 2);
  for (std::string query : {"Dungeon", "d-1", "dungeon-slug", "com.ex.dungeon"}) {
    auto found = quillora({"analyze", "--config", "apps.json", "--app", query, "--issue", "1"});
    EXPECT_EQ(found.exitCode, 1) << query;  // found; fetching is what this build can't do
    EXPECT_NE(found.err.find("crash service"), std::string::npos) << query << found.err;
  }
}

TEST_F(CommandLine, HistoryAndCostArgumentsAreChecked) {
  expectCases({
      {{"history", "show"}, "quillora: error: history show needs a record ID.\n", 2},
      {{"history", "list", "foo"}, "quillora: error: history list takes no query (use history search).\n", 2},
      {{"history", "search"}, "quillora: error: history search needs a query, e.g. quillora history search NullReference\n", 2},
      {{"history", "drop"}, "quillora: error: Unknown history action 'drop': use list, search <query> or show <id>.\n", 2},
      {{"cost", "--month", "2026-7"}, "quillora: error: --month must look like 2026-10.\n", 2},
      {{"cost", "--month", "2026-13"}, "quillora: error: --month must look like 2026-10.\n", 2},
      {{"symbolicate"}, "quillora: error: Give the crash with --trace <file> (or --trace - for stdin).\n", 2},
      {{"symbolicate", "--trace", "x", "--repo", "nowhere"}, "quillora: error: --repo nowhere doesn't exist.\n", 2},
  });
}

TEST_F(CommandLine, RunConfigurationFailuresExitTwo) {
  work.write("bad.json", "{\"engine\": ");
  work.write("list.json", "[1, 2]");
  work.write("types.json", R"({"triage": {"count": "ten"}})");
  work.write("unknown.json", R"({"frobnicate": 1, "cost": {"monthlyBudget": 20}})");
  auto unreadable = quillora({"version", "--config", "nope.json"});
  EXPECT_EQ(unreadable.err, "quillora: error: Can't read the configuration file nope.json: No such file or directory\n");
  EXPECT_EQ(unreadable.exitCode, 2);
  auto invalid = quillora({"version", "--config", "bad.json"});
  EXPECT_EQ(invalid.err.rfind("quillora: error: bad.json isn't valid JSON: ", 0), 0u) << invalid.err;
  EXPECT_EQ(invalid.exitCode, 2);
  auto notObject = quillora({"version", "--config", "list.json"});
  EXPECT_EQ(notObject.err, "quillora: error: list.json must contain a JSON object.\n");
  EXPECT_EQ(notObject.exitCode, 2);
  auto wrongType = quillora({"version", "--config", "types.json"});
  EXPECT_EQ(wrongType.err, "quillora: error: The setting \"triage.count\" in types.json must be a whole number.\n");
  EXPECT_EQ(wrongType.exitCode, 2);
  auto unknown = quillora({"version", "--config", "unknown.json"});
  EXPECT_EQ(unknown.err, "quillora: warning: Unknown setting \"frobnicate\" in unknown.json; it is ignored.\n");
  EXPECT_EQ(unknown.exitCode, 0);
  // QUILLORA_CONFIG is the same as --config, and --config wins over it.
  RunOptions env;
  env.env["QUILLORA_CONFIG"] = "list.json";
  EXPECT_EQ(quillora({"version"}, env).exitCode, 2);
  EXPECT_EQ(quillora({"version", "--config", "unknown.json"}, env).exitCode, 0);
}

TEST_F(CommandLine, HelpAndVersionSpellings) {
  auto version = quillora({"version"});
  EXPECT_EQ(quillora({"--version"}).out, version.out);
  EXPECT_EQ(version.out.rfind("Quillora " QUILLORA_VERSION " (", 0), 0u) << version.out;
  auto analyzeHelp = quillora({"help", "analyze"});
  EXPECT_EQ(analyzeHelp.exitCode, 0);
  EXPECT_NE(analyzeHelp.out.find("--markdown-out <file>"), std::string::npos);
  EXPECT_EQ(quillora({"-h", "analyze"}).out, analyzeHelp.out);
  EXPECT_EQ(quillora({"--help", "analyze"}).out, analyzeHelp.out);
  EXPECT_EQ(quillora({"analyze", "--trace", "nope", "-h"}).out, analyzeHelp.out);
  EXPECT_EQ(quillora({"--cli", "help", "analyze"}).out, analyzeHelp.out);
  auto general = quillora({"help"});
  EXPECT_EQ(quillora({}).out, general.out);
  EXPECT_EQ(quillora({"help", "nonsense"}).out, general.out);
  EXPECT_EQ(quillora({"-AppleLanguages", "(en)", "help"}).out, general.out);
  for (const char* line :
       {"Quillora command line — turn crash reports into fixes from scripts and CI.\n",
        "Usage: quillora <command> [options]\n",
        "analyze       Analyze one crash (a trace file or an issue from your crash service), optionally make a fix branch\n",
        "help          This help, or `quillora help <command>`\n",
        "Results go to stdout (or --out), progress and notes to stderr.\n",
        "sudo ln -s /Applications/Quillora.app/Contents/MacOS/Quillora /usr/local/bin/quillora"}) {
    EXPECT_NE(general.out.find(line), std::string::npos) << line;
  }
  auto bot = quillora({"--bot"});
  EXPECT_EQ(bot.exitCode, 1);
  EXPECT_EQ(bot.out, "");
  EXPECT_EQ(bot.err.rfind("quillora: error: ", 0), 0u);
}

TEST_F(CommandLine, VersionNamesSecretVariablesButNeverTheirValues) {
  RunOptions opts;
  opts.env["ANTHROPIC_API_KEY"] = "sk-ant-very-secret";
  opts.env["QUILLORA_SECRET_SENTRY_TOKEN"] = "sentry-secret";
  opts.env["GH_TOKEN"] = "";
  auto text = quillora({"version"}, opts);
  EXPECT_NE(text.out.find("Secrets from the environment: ANTHROPIC_API_KEY, QUILLORA_SECRET_SENTRY_TOKEN\n"), std::string::npos) << text.out;
  auto json = quillora({"version", "--format", "json"}, opts);
  EXPECT_NE(json.out.find("\"secretsFromEnvironment\": [\n    \"ANTHROPIC_API_KEY\",\n    \"QUILLORA_SECRET_SENTRY_TOKEN\"\n  ]"), std::string::npos) << json.out;
  EXPECT_NE(json.out.find("\"engine\": \"claude-api\""), std::string::npos);
  EXPECT_NE(json.out.find("\"config\": null"), std::string::npos);
  for (const auto& r : {text, json}) {
    EXPECT_EQ(r.out.find("very-secret"), std::string::npos);
    EXPECT_EQ(r.out.find("sentry-secret"), std::string::npos);
  }
  EXPECT_NE(text.out.find("Engine: Claude API (claude-opus-5-5)\n"), std::string::npos);
  work.write("c.json", R"({"engine": "gemini", "geminiModel": "gemini-x"})");
  EXPECT_NE(quillora({"version", "--config", "c.json"}).out.find("Engine: Gemini API (gemini-x)\n"), std::string::npos);
}

TEST_F(CommandLine, JsonFormatWritesAFailureDocument) {
  auto r = quillora({"analyze", "--format", "json", "--trace", "missing.txt"});
  EXPECT_EQ(r.exitCode, 2);
  EXPECT_EQ(r.out,
            "{\n  \"command\": \"analyze\",\n  \"error\": {\n    \"kind\": \"usage\",\n"
            "    \"message\": \"No such file: missing.txt\"\n  },\n  \"exitCode\": 2,\n"
            "  \"ok\": false,\n  \"schemaVersion\": 1\n}\n");
  auto toFile = quillora({"cost", "--format=json", "--month", "x", "--out", "r.json"});
  EXPECT_EQ(toFile.out, "");
  EXPECT_NE(readText(work.path() / "r.json").find("\"--month must look like 2026-10.\""), std::string::npos);
}

TEST_F(CommandLine, QuietSilencesProgressButNotErrors) {
  work.write("t.txt", "java.lang.IllegalStateException: boom\n\tat com.game.Main.run(Main.java:3)\n");
  auto loud = quillora({"analyze", "--trace", "t.txt", "--dry-run"});
  EXPECT_NE(loud.err.find("No repository: the engine works from the crash alone\n"), std::string::npos);
  auto quiet = quillora({"analyze", "--trace", "t.txt", "--dry-run", "--verbose", "--quiet"});
  EXPECT_EQ(quiet.err, "");
  EXPECT_EQ(quiet.exitCode, 0);
  EXPECT_EQ(quiet.out, loud.out);
}

TEST_F(CommandLine, OutWritesTheResultToAFileAndSaysSo) {
  work.write("t.txt", "java.lang.IllegalStateException: boom\n\tat com.game.Main.run(Main.java:3)\n");
  auto r = quillora({"analyze", "--trace", "t.txt", "--dry-run", "--out", "result.txt"});
  EXPECT_EQ(r.exitCode, 0);
  EXPECT_EQ(r.out, "");
  EXPECT_NE(r.err.find("Wrote result.txt\n"), std::string::npos);
  EXPECT_FALSE(readText(work.path() / "result.txt").empty());
  auto unwritable = quillora({"analyze", "--trace", "t.txt", "--dry-run", "--out", "no/such/dir/v.txt"});
  EXPECT_EQ(unwritable.exitCode, 1);
  EXPECT_EQ(unwritable.err, "No repository: the engine works from the crash alone\n"
                           "quillora: error: Couldn't write no/such/dir/v.txt: No such file or directory\n");
}

TEST_F(CommandLine, TraceComesFromStdinWithADash) {
  RunOptions opts;
  opts.stdinText = "java.lang.IllegalStateException: boom\n\tat com.game.Main.run(Main.java:3)\n";
  auto r = quillora({"analyze", "--trace", "-", "--dry-run", "--format", "json"}, opts);
  EXPECT_EQ(r.exitCode, 0) << r.err;
  EXPECT_NE(r.out.find("\"file\": null"), std::string::npos);
}

}  // namespace
}  // namespace quillora::testing
