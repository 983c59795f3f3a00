// What the Claude Code engine adds around the agent: one analysis call against a stand-in `claude`
// that prints a long session (an init event, thousands of tool calls, the result) as fast as it
// can, so the figure is our own cost: starting the child, the system-prompt file, reading and
// dispatching every stream-json line, decoding the answer and writing the ledger entry.
#include <stdlib.h>

#include <benchmark/benchmark.h>

#include <filesystem>
#include <fstream>

#include "ai/analysis_schema.h"
#include "ai/analysis_stream.h"
#include "ai/claude_code_provider.h"
#include "base/json.h"
#include "base/settings.h"
#include "cost/cost_ledger.h"

namespace {

using namespace quillora;

struct Session {
  std::filesystem::path dir;
  std::filesystem::path claude;
};

// A folder with the stand-in agent and its output of `events` lines, made once per size.
Session makeSession(int events) {
  char pattern[] = "/tmp/quillora-claude-bench-XXXXXX";
  Session s{mkdtemp(pattern), {}};
  std::filesystem::create_directories(s.dir / "repo");
  std::filesystem::create_directories(s.dir / "data");
  std::ofstream out(s.dir / "stream.ndjson");
  out << R"({"type":"system","subtype":"init","model":"claude-opus-4-5-20251101","tools":["Read","Grep","Glob"]})"
      << "\n";
  for (int i = 0; i < events; ++i) {
    base::Json item = {{"type", "tool_use"}, {"id", "toolu_" + std::to_string(i)}};
    if (i % 3 == 0) {
      item["name"] = "Grep";
      item["input"] = {{"pattern", "OnDamage" + std::to_string(i)}, {"path", "Assets"}};
    } else if (i % 3 == 1) {
      item["name"] = "Read";
      item["input"] = {{"file_path", "/repo/Assets/Scripts/File" + std::to_string(i) + ".cs"}};
    } else {
      item = {{"type", "text"}, {"text", "Looking at caller number " + std::to_string(i) + "."}};
    }
    base::Json event = {{"type", "assistant"},
                        {"message", {{"role", "assistant"}, {"content", base::Json::array({item})}}}};
    out << base::dumpJsonCompact(event) << "\n";
  }
  base::Json answer = {{"title", "NullReferenceException in PlayerController.OnDamage"},
                       {"severity", "high"},
                       {"confidence", "medium"},
                       {"rootCause", "`health` is null."},
                       {"patch", ""}};
  base::Json result = {{"type", "result"},        {"subtype", "success"},
                       {"is_error", false},       {"duration_ms", 61000},
                       {"total_cost_usd", 0.42},  {"structured_output", answer},
                       {"modelUsage", {{"claude-opus-4-5-20251101",
                                        {{"inputTokens", 900}, {"outputTokens", 4000},
                                         {"cacheReadInputTokens", 80000},
                                         {"cacheCreationInputTokens", 20000}}}}}};
  out << base::dumpJsonCompact(result) << "\n";
  out.close();
  s.claude = s.dir / "claude";
  std::ofstream(s.claude) << "#!/bin/sh\nexec cat '" << (s.dir / "stream.ndjson").string() << "'\n";
  std::filesystem::permissions(s.claude, std::filesystem::perms::owner_all);
  return s;
}

void BM_AnalysisCall(benchmark::State& state) {
  ::setenv("SHELL", "/bin/sh", 1);
  base::Settings::shared().reset();
  int events = static_cast<int>(state.range(0));
  Session session = makeSession(events);
  auto ledger = std::make_shared<cost::CostLedger>(session.dir / "data");
  ai::StructuredPrompt prompt;
  prompt.system = "You are a crash expert.";
  prompt.user = "Analyze this production crash and propose a fix.";
  prompt.schema = std::string(ai::fixAnalysisSchema());
  prompt.labels = ai::analysisProgressLabels("Writing up the analysis");
  prompt.repo = (session.dir / "repo").string();
  size_t lines = 0;
  for (auto _ : state) {
    ai::ClaudeCodeProvider engine(session.claude.string(), "opus", std::nullopt,
                                  [&lines](const std::string&) { ++lines; }, nullptr);
    engine.recording.ledger = ledger;
    benchmark::DoNotOptimize(engine.analyze(prompt, {}));
  }
  state.counters["events/s"] =
      benchmark::Counter(static_cast<double>(events) * static_cast<double>(state.iterations()),
                         benchmark::Counter::kIsRate);
  state.counters["progress lines"] = static_cast<double>(lines / state.iterations());
  std::filesystem::remove_all(session.dir);
}
BENCHMARK(BM_AnalysisCall)->Arg(10)->Arg(5000)->Unit(benchmark::kMillisecond)->UseRealTime();

}  // namespace

BENCHMARK_MAIN();
