// The Claude Code engine against a fake `claude`: a shell script that records how it was started
// and prints recorded stream-json events.
#include "ai/ai_error.h"
#include "ai/analysis_schema.h"
#include "ai/analysis_stream.h"
#include "ai/claude_code_provider.h"
#include "base/json.h"
#include "base/settings.h"
#include "cost/budget.h"
#include "cost/cost_ledger.h"
#include "support/test_support.h"

#include <gtest/gtest.h>

#include <sys/stat.h>

#include <cstdlib>
#include <fstream>
#include <sstream>

namespace quillora::ai {
namespace {

using namespace std::chrono_literals;
using quillora::testing::fixture;
using quillora::testing::readText;
using quillora::testing::TempDir;

// One event of a fixture file, as the tool prints it: one line.
std::string event(const std::string& name) {
  std::string text = readText(fixture("claude_code/" + name));
  while (!text.empty() && text.back() == '\n')
    text.pop_back();
  return text;
}

std::string lines(const std::vector<std::string>& events) {
  std::string text;
  for (const auto& e : events)
    text += e + "\n";
  return text;
}

std::vector<std::string> splitNul(const std::string& text) {
  std::vector<std::string> parts;
  std::istringstream in(text);
  for (std::string part; std::getline(in, part, '\0');) parts.push_back(part);
  return parts;
}

// Writes an executable fake `claude` at `path`: it keeps its arguments (NUL-separated), working
// directory, standard input and the system-prompt file's mode and text in `dir`, prints
// `dir`/stream.ndjson, then runs `ending`.
void writeFakeClaude(const std::filesystem::path& path, const std::filesystem::path& dir,
                     const std::string& ending = "exit 0") {
  std::filesystem::create_directories(path.parent_path());
  std::ofstream(path) << "#!/bin/sh\ndir='" << dir.string() << "'\n"
                      << "printf '%s\\0' \"$@\" > \"$dir/args\"; pwd -P > \"$dir/cwd\"\n"
                      << "cat > \"$dir/stdin\"\n"
                      << "for a; do\n  if [ \"$prev\" = --append-system-prompt-file ]; then\n"
                      << "    stat -c %a \"$a\" > \"$dir/system-mode\"; cp \"$a\" \"$dir/system-text\"\n"
                      << "    printf '%s' \"$a\" > \"$dir/system-path\"\n  fi\n  prev=\"$a\"\ndone\n"
                      << "cat \"$dir/stream.ndjson\"\n" << ending << "\n";
  std::filesystem::permissions(path, std::filesystem::perms::owner_all);
}

class ClaudeCodeProviderTest : public ::testing::Test {
protected:
  TempDir dir;
  std::filesystem::path repo = dir.path() / "repo";
  std::filesystem::path temporary = dir.path() / "tmp";
  std::filesystem::path fake = dir.path() / "bin" / "claude";
  std::vector<std::string> progress;
  std::vector<std::string> warnings;
  std::shared_ptr<cost::UsageMeter> meter = std::make_shared<cost::UsageMeter>();
  std::shared_ptr<cost::CostLedger> ledger =
      std::make_shared<cost::CostLedger>(dir.path() / "data");
  std::string savedTmpdir;

  void SetUp() override {
    // The login search path is computed from a plain shell: the developer's own profile has no
    // say in these tests.
    ::setenv("SHELL", "/bin/sh", 1);
    std::filesystem::create_directories(repo);
    std::filesystem::create_directories(temporary);
    std::filesystem::create_directories(dir.path() / "data");
    if (const char* t = std::getenv("TMPDIR")) savedTmpdir = t;
    ::setenv("TMPDIR", temporary.c_str(), 1);
    base::Settings::shared().reset();
  }
  void TearDown() override {
    if (savedTmpdir.empty())
      ::unsetenv("TMPDIR");
    else
      ::setenv("TMPDIR", savedTmpdir.c_str(), 1);
    base::Settings::shared().reset();
  }

  void stream(const std::vector<std::string>& events, const std::string& ending = "exit 0") {
    dir.write("stream.ndjson", lines(events));
    writeFakeClaude(fake, dir.path(), ending);
  }

  ClaudeCodeProvider provider() {
    ClaudeCodeProvider p(fake.string(), "opus", std::nullopt,
                         [this](const std::string& l) { progress.push_back(l); }, meter);
    p.recording.ledger = ledger;
    p.warning = [this](const std::string& w) { warnings.push_back(w); };
    p.timing = base::ProcessTiming{50ms, 300ms, 300ms};
    return p;
  }

  StructuredPrompt prompt() {
    StructuredPrompt p;
    p.system = "You are a crash expert.\n\n# Quillora output contract\n";
    p.user = "Analyze this production crash and propose a fix.\n\nNo source excerpts were pre-collected.\n\n";
    p.schema = std::string(fixAnalysisSchema());
    p.schemaName = std::string(kFixAnalysisSchemaName);
    p.labels = analysisProgressLabels("Writing up the analysis");
    p.repo = repo.string();
    return p;
  }

  std::vector<std::string> arguments() { return splitNul(readText(dir.path() / "args")); }
  std::string recorded(const std::string& name) { return readText(dir.path() / name); }

  // The system-prompt file was private while the agent ran and is gone now.
  void expectSystemFileRemoved() {
    std::string path = recorded("system-path");
    ASSERT_FALSE(path.empty());
    EXPECT_EQ(std::filesystem::path(path).parent_path(), temporary);
    EXPECT_EQ(std::filesystem::path(path).filename().string().rfind("quillora-system-", 0), 0u);
    EXPECT_EQ(recorded("system-mode"), "600\n");
    EXPECT_FALSE(std::filesystem::exists(path));
    EXPECT_TRUE(std::filesystem::is_empty(temporary));
  }
};

TEST_F(ClaudeCodeProviderTest, AnalysisPassesItsArgumentsInOrderAndDecodesTheStructuredOutput) {
  stream({event("real_system_init.json"), event("derived_system_api_retry.json"),
          event("derived_assistant_text.json"), event("derived_assistant_read_tools.json"),
          event("real_assistant_tool_use.json"), event("derived_assistant_structured_output.json"),
          event("derived_result_structured.json")});
  // Pictures outside the repository are made readable by their folder, once.
  auto outside1 = dir.write("ticket/GAME-142/shot1.png", "png");
  auto outside2 = dir.write("ticket/GAME-142/frame2.jpg", "jpg");
  auto inside = dir.write("repo/Docs/known.png", "png");
  auto engine = provider();
  StructuredPrompt p = prompt();
  FixAnalysis analysis = engine.analyze(p, {{"file://" + outside1.string(), "Screenshot"},
                                            {inside.string(), "In the repo"},
                                            {outside2.string(), "Frame"}});

  std::vector<std::string> expected = {
      "--output-format", "stream-json", "--verbose", "-p", p.user, "--json-schema", p.schema,
      "--append-system-prompt-file", recorded("system-path"), "--tools", "Read,Grep,Glob",
      "--no-session-persistence", "--model", "opus", "--permission-mode", "dontAsk", "--add-dir",
      std::filesystem::canonical(dir.path() / "ticket/GAME-142").string()};
  EXPECT_EQ(arguments(), expected);
  EXPECT_EQ(recorded("cwd"), std::filesystem::canonical(repo).string() + "\n");
  EXPECT_EQ(recorded("system-text"), p.system);
  EXPECT_EQ(recorded("stdin"), "");
  expectSystemFileRemoved();

  EXPECT_EQ(progress, (std::vector<std::string>{
                          "Claude Code started (claude-opus-4-5-20251101)",
                          "Retrying after a temporary API error (attempt 1 of 10)",
                          "Claude: I'll look at the crashing frame in PlayerController first.",
                          "Searching for “OnDamage”",
                          "Listing files matching **/PlayerController.cs",
                          "Using Read",
                          "Using Bash",
                          "Writing up the analysis",
                          "Title: NullReferenceException in PlayerController.OnDamage when health is missing",
                      }));
  EXPECT_EQ(analysis.title, "NullReferenceException in PlayerController.OnDamage when health is missing");
  EXPECT_EQ(analysis.reproSteps, (std::vector<std::string>{"Start a level", "Take damage in the first frame"}));

  // Usage comes from "modelUsage", the model and duration from the tool itself (its cost is
  // checked through the binary).
  auto entries = ledger->entries();
  ASSERT_EQ(entries.size(), 1u);
  const cost::AnalysisUsage& usage = entries[0].usage;
  EXPECT_FALSE(entries[0].failed);
  EXPECT_EQ(usage.model, "claude-opus-4-5-20251101");
  EXPECT_EQ(usage.inputTokens, 38);
  EXPECT_EQ(usage.outputTokens, 765);
  EXPECT_EQ(usage.cacheReadTokens, 28775);
  EXPECT_EQ(usage.cacheWriteTokens, 31159);
  EXPECT_DOUBLE_EQ(usage.duration, 8.722);
  ASSERT_TRUE(engine.lastCall());
  EXPECT_EQ(engine.lastCall()->usage, usage);
  EXPECT_EQ(meter->recorded(), 1);
}

// The implement prompt here is too long for one argument, so it goes in on standard input.
TEST_F(ClaudeCodeProviderTest, ImplementMayEditWithinTheRepositoryAndPassesTheBudgetCap) {
  stream({event("real_system_init.json"), event("derived_assistant_edit_tools.json"),
          event("derived_result_implementation.json")});
  auto engine = provider();
  engine.maxBudgetUSD = 0.5;
  std::string userText = "Implement this fix in the repository.\n" + std::string(200 * 1024, 'x');
  FixImplementation done = engine.implement(userText, repo, "SYSTEM");

  EXPECT_EQ(arguments(), (std::vector<std::string>{
                             "--output-format", "stream-json", "--verbose", "-p", "--json-schema",
                             std::string(fixImplementationSchema()), "--append-system-prompt-file",
                             recorded("system-path"), "--tools", "Read,Grep,Glob,Edit,Write",
                             "--no-session-persistence", "--model", "opus", "--permission-mode",
                             "acceptEdits", "--max-budget-usd", "0.50"}));
  EXPECT_EQ(recorded("stdin"), userText);
  EXPECT_EQ(recorded("system-text"), "SYSTEM");
  expectSystemFileRemoved();
  EXPECT_EQ(progress, (std::vector<std::string>{
                          "Claude Code started (claude-opus-4-5-20251101)",
                          "Editing Assets/Scripts/PlayerController.cs",
                          "Editing Assets/Scripts/Health.cs",
                          "Writing Assets/Tests/HealthTests.cs",
                      }));
  EXPECT_EQ(done.filesChanged, (std::vector<std::string>{"Assets/Scripts/PlayerController.cs"}));
  ASSERT_EQ(ledger->entries().size(), 1u);
  EXPECT_FALSE(ledger->entries()[0].failed);
}

TEST_F(ClaudeCodeProviderTest, EachWayARunFailsHasItsTextAndIsRecordedAsFailed) {
  const std::string init = event("real_system_init.json");
  const std::string signIn = "Claude Code: not signed in — run `claude auth login` in Terminal";
  std::string chatter; // the last 600 characters the chatty agent below printed
  for (int i = 0; i < 38; ++i)
    chatter += "{\"type\":\"user\"}\n";
  chatter = chatter.substr(chatter.size() - 601, 600);
  struct Case {
    std::vector<std::string> events;
    std::string ending;
    std::string message;
    bool recordsTheToolsCost; // the result carried total_cost_usd
    base::Seconds stallLimit = 5min;
    base::Seconds timeLimit = 20min;
  };
  const std::vector<Case> cases = {
      {{init, event("derived_result_max_structured_output_retries.json")}, "exit 1",
       "Claude couldn't produce a complete analysis in the expected format. Try again.", true},
      {{init, event("derived_result_error_max_turns.json")}, "exit 1",
       "Claude Code: Reached maximum number of turns (1)", true},
      {{init, event("derived_result_error_without_text.json")}, "exit 1",
       "Claude Code: unknown error", true},
      // A recorded run without a schema.
      {{event("real_basic_query.ndjson")}, "exit 0",
       "Claude Code: no structured output in the response. Update Claude Code with `claude "
       "update`.",
       true},
      {{init, event("derived_result_structured_not_object.json")}, "exit 0",
       "Couldn't read the AI's response: structured output is not a JSON object", true},
      {{init, event("derived_result_not_logged_in.json")}, "exit 1", signIn, true},
      {{"Not logged in · Please run /login"}, "exit 1", signIn, false},
      {{init, R"({"type":"system","subtype":"api_retry","attempt":1,"max_retries":10,"retry_delay_ms":508,"error_status":401,"error":"authentication_failed"})"},
       "exit 1", signIn, false},
      {{init, event("derived_assistant_text.json")},
       "echo 'Error: the API connection was reset' >&2; exit 1",
       "Claude Code: `claude` ended without a result (exit 1):\nError: the API connection was "
       "reset",
       false},
      {{}, "exit 3", "Claude Code: `claude` ended without a result (exit 3)", false},
      // The runner's watchdog stops an agent that goes silent or never finishes.
      {{init}, "exec sleep 30",
       "Claude Code: `claude` stopped responding (no output for 1 seconds), so Quillora stopped "
       "it.\nLast output:\n" + init.substr(init.size() - 600),
       false, 1s},
      {{}, "while :; do for i in 1 2 3 4 5 6 7 8; do echo '{\"type\":\"user\"}'; done; sleep 0.05; done",
       "Claude Code: `claude` didn't finish within 1 seconds, so Quillora stopped it.\n"
       "Last output:\n" + chatter,
       false, 5min, 1s},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.message);
    std::filesystem::remove(ledger->path());
    stream(c.events, c.ending);
    auto engine = provider();
    engine.stallLimit = c.stallLimit;
    engine.analysisTimeLimit = c.timeLimit;
    try {
      engine.analyze(prompt(), {});
      ADD_FAILURE() << "no error";
    } catch (const AIError& error) {
      EXPECT_EQ(std::string(error.what()), c.message);
    }
    expectSystemFileRemoved();
    auto entries = ledger->entries();
    ASSERT_EQ(entries.size(), 1u);
    EXPECT_TRUE(entries[0].failed);
    EXPECT_EQ(entries[0].usage.backend, "claude-code");
    EXPECT_EQ(entries[0].usage.reportedCostUSD.has_value(), c.recordsTheToolsCost);
  }
}

TEST_F(ClaudeCodeProviderTest, TheRecordedRunWithoutModelUsageIsMeteredFromItsUsage) {
  stream({event("real_basic_query.ndjson")});
  EXPECT_THROW(provider().analyze(prompt(), {}), AIError);
  auto entry = ledger->entries().at(0);
  EXPECT_EQ(entry.usage.inputTokens, 10);
  EXPECT_EQ(entry.usage.outputTokens, 25);
  EXPECT_EQ(entry.usage.cacheWriteTokens, 21570);
  EXPECT_EQ(entry.costUSD, 0.1354875);
  EXPECT_EQ(progress, (std::vector<std::string>{"Claude Code started (claude-opus-4-5-20251101)",
                                                "Claude: 4"}));
}

TEST_F(ClaudeCodeProviderTest, NothingRunsWithoutTheToolOrARepository) {
  stream({event("derived_result_structured.json")});
  const std::string notFound =
      "Claude Code: Not found. Install Claude Code, or set the full path to `claude`.";
  struct Case {
    std::function<void(ClaudeCodeProvider&, StructuredPrompt&)> change;
    std::string message;
  };
  const std::vector<Case> cases = {
      {[&](ClaudeCodeProvider& e, StructuredPrompt&) { e.claudePath = (dir.path() / "nope").string(); },
       notFound},
      {[&](ClaudeCodeProvider& e, StructuredPrompt&) {
         e.claudePath = dir.write("plain", "#!/bin/sh\n").string(); // not executable
       },
       notFound},
      {[](ClaudeCodeProvider&, StructuredPrompt& p) { p.repo.reset(); },
       "Claude Code mode needs your project folder. Choose a repository first."},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.message);
    auto engine = provider();
    StructuredPrompt p = prompt();
    c.change(engine, p);
    try {
      engine.analyze(p, {});
      ADD_FAILURE() << "no error";
    } catch (const AIError& error) {
      EXPECT_EQ(std::string(error.what()), c.message);
    }
  }
  EXPECT_FALSE(std::filesystem::exists(dir.path() / "args"));
  EXPECT_TRUE(ledger->entries().empty());
}

TEST_F(ClaudeCodeProviderTest, TheMonthlyBudgetWarnsThenBlocksBeforeTheAgentStarts) {
  stream({event("derived_result_structured.json")});
  base::Settings::shared().reset(base::Json{{"cost", {{"monthlyBudget", 0.2}}}});
  provider().analyze(prompt(), {});
  provider().analyze(prompt(), {});
  EXPECT_EQ(warnings, (std::vector<std::string>{
                          "This month's AI spending ($0.25) is over the budget of $0.20"}));

  base::Settings::shared().reset(
      base::Json{{"cost", {{"monthlyBudget", 0.2}, {"budgetMode", "block"}}}});
  std::filesystem::remove(dir.path() / "args");
  EXPECT_THROW(provider().analyze(prompt(), {}), cost::BudgetError);
  EXPECT_FALSE(std::filesystem::exists(dir.path() / "args"));
  EXPECT_EQ(ledger->entries().size(), 2u);
}

// The tool is looked up on the login search path, whose extra folders include ~/.local/bin. The
// path is computed once per process, so the lookup runs in a child test process whose HOME is a
// fresh folder.
TEST(ClaudeCodeLookup, FindsClaudeInTheLoginSearchPathsExtraFolders) {
  if (const char* child = std::getenv("QUILLORA_TEST_LOOKUP_DIR")) {
    std::filesystem::path work = child;
    std::filesystem::path repo = work / "repo";
    std::filesystem::create_directories(repo);
    ClaudeCodeProvider engine("", "opus", std::nullopt, {}, nullptr);
    StructuredPrompt p;
    p.schema = std::string(fixAnalysisSchema());
    p.repo = repo.string();
    try {
      engine.analyze(p, {});
      ADD_FAILURE() << "found a claude before it was installed";
    } catch (const AIError& error) {
      EXPECT_EQ(std::string(error.what()),
                "Claude Code: Not found. Install Claude Code, or set the full path to `claude`.");
    }
    writeFakeClaude(work / "home/.local/bin/claude", work);
    FixAnalysis analysis = engine.analyze(p, {});
    EXPECT_EQ(analysis.severity, "high");
    return;
  }
  TempDir work;
  std::filesystem::create_directories(work.path() / "home");
  work.write("stream.ndjson", lines({event("derived_result_structured.json")}));
  quillora::testing::RunOptions options;
  options.env = {{"QUILLORA_TEST_LOOKUP_DIR", work.path().string()},
                 {"HOME", (work.path() / "home").string()},
                 {"SHELL", "/bin/sh"}};
  auto child = quillora::testing::run(
      std::filesystem::read_symlink("/proc/self/exe").string(),
      {"--gtest_filter=ClaudeCodeLookup.FindsClaudeInTheLoginSearchPathsExtraFolders"}, options);
  EXPECT_EQ(child.exitCode, 0) << child.out << child.err;
  EXPECT_NE(child.out.find("[  PASSED  ] 1 test"), std::string::npos) << child.out;
  EXPECT_TRUE(std::filesystem::exists(work.path() / "args"));
}

} // namespace
} // namespace quillora::ai
