// One whole `quillora analyze --engine claude-api` process against a loopback server that answers
// at once with a recorded event stream, so the figure is everything but the model's own time:
// start-up, parsing, the repository search, the prompt, the HTTP call, decoding, the ledger and
// the report. Run on the bundled example and on a generated repository of 10,000 source files,
// with the peak memory of the process as a counter. Exits 1 when a run averages 100 ms or more,
// or peaks at 150 MB or more.
#include <benchmark/benchmark.h>
#include <fmt/format.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include <fcntl.h>
#include <spawn.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include "support/fake_server.h"

extern char** environ;

namespace {

namespace fs = std::filesystem;
using quillora::testing::FakeServer;

struct Setup {
  fs::path root;  // home, config and the generated repository
  fs::path bigRepo;
};

FakeServer* g_server = nullptr;
Setup g_setup;
double g_worstMs = 0;
double g_worstMB = 0;

void writeFile(const fs::path& path, const std::string& text) {
  fs::create_directories(path.parent_path());
  std::ofstream(path, std::ios::binary) << text;
}

// The bundled example plus 10,000 C# files in 100 folders, each a plausible component.
fs::path generateBigRepo(const fs::path& root) {
  fs::path repo = root / "big-game";
  fs::copy(fs::path(QUILLORA_SOURCE_DIR) / "examples" / "dungeon-game", repo,
           fs::copy_options::recursive);
  std::string body;
  for (int line = 0; line < 60; ++line)
    body += fmt::format("        total += values[{}] * scale; // keeps the sum in range\n", line);
  for (int folder = 0; folder < 100; ++folder) {
    fs::path dir = repo / fmt::format("Assets/Scripts/Gen{:03}", folder);
    fs::create_directories(dir);
    for (int file = 0; file < 100; ++file) {
      std::string name = fmt::format("Component{:03}_{:03}", folder, file);
      std::ofstream(dir / (name + ".cs"))
          << "using UnityEngine;\n\npublic class " << name << " : MonoBehaviour\n{\n"
          << "    float Sum(float[] values, float scale)\n    {\n        float total = 0;\n"
          << body << "        return total;\n    }\n}\n";
    }
  }
  return repo;
}

struct ProcessFigures {
  double wallMs = 0;
  double peakMB = 0;
  int status = -1;
};

ProcessFigures runAnalyze(const fs::path& repo) {
  std::string binary = QUILLORA_BINARY;
  std::string config = (g_setup.root / "config.json").string();
  std::string trace =
      (fs::path(QUILLORA_SOURCE_DIR) / "examples/crashes/unity-nullref.txt").string();
  std::string repoPath = repo.string();
  std::vector<std::string> args = {binary,   "analyze",  "--config", config, "--engine",
                                   "claude-api", "--repo", repoPath, "--trace",  trace,
                                   "--format", "json"};
  std::vector<char*> argv;
  for (auto& a : args) argv.push_back(a.data());
  argv.push_back(nullptr);

  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  posix_spawn_file_actions_addopen(&actions, 0, "/dev/null", O_RDONLY, 0);
  posix_spawn_file_actions_addopen(&actions, 1, "/dev/null", O_WRONLY, 0);
  posix_spawn_file_actions_addopen(&actions, 2, "/dev/null", O_WRONLY, 0);
  ProcessFigures figures;
  auto started = std::chrono::steady_clock::now();
  pid_t pid = 0;
  if (posix_spawn(&pid, binary.c_str(), &actions, nullptr, argv.data(), environ) == 0) {
    struct rusage usage {};
    wait4(pid, &figures.status, 0, &usage);
    figures.peakMB = static_cast<double>(usage.ru_maxrss) / 1024.0;
  }
  figures.wallMs =
      std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now() - started).count();
  posix_spawn_file_actions_destroy(&actions);
  return figures;
}

void measure(benchmark::State& state, const fs::path& repo) {
  double peak = 0;
  double totalMs = 0;
  for (auto _ : state) {
    ProcessFigures f = runAnalyze(repo);
    if (f.status != 0) {
      state.SkipWithError("quillora analyze failed");
      return;
    }
    peak = std::max(peak, f.peakMB);
    totalMs += f.wallMs;
  }
  state.counters["peak_MB"] = peak;
  double averageMs = totalMs / static_cast<double>(state.iterations());
  g_worstMs = std::max(g_worstMs, averageMs);
  g_worstMB = std::max(g_worstMB, peak);
}

void BM_AnalyzeBundledExample(benchmark::State& state) {
  measure(state, fs::path(QUILLORA_SOURCE_DIR) / "examples" / "dungeon-game");
}
void BM_AnalyzeTenThousandFileRepo(benchmark::State& state) { measure(state, g_setup.bigRepo); }

BENCHMARK(BM_AnalyzeBundledExample)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(BM_AnalyzeTenThousandFileRepo)->Unit(benchmark::kMillisecond)->UseRealTime();

}  // namespace

int main(int argc, char** argv) {
  char pattern[] = "/tmp/quillora-analyze-bench-XXXXXX";
  if (!mkdtemp(pattern)) return 2;
  g_setup.root = pattern;
  g_setup.bigRepo = generateBigRepo(g_setup.root);

  FakeServer server;
  g_server = &server;
  server.respond("POST", "/v1/messages",
                 quillora::testing::recordedEventStream(
                     fs::path(QUILLORA_SOURCE_DIR) /
                     "tests/fixtures/anthropic/derived_fix_analysis_with_thinking.sse"));
  writeFile(g_setup.root / "config.json",
            "{\"anthropicBaseURL\": \"" + server.url() + "\"}");
  setenv("QUILLORA_HOME", (g_setup.root / "home").c_str(), 1);
  setenv("ANTHROPIC_API_KEY", "sk-ant-bench", 1);
  setenv("SHELL", "/bin/sh", 1);

  benchmark::Initialize(&argc, argv);
  benchmark::RunSpecifiedBenchmarks();
  benchmark::Shutdown();
  fs::remove_all(g_setup.root);
  bool ok = g_worstMs < 100.0 && g_worstMB < 150.0;
  fmt::print("slowest average run {:.1f} ms (target < 100), peak {:.1f} MB (target < 150): {}\n",
             g_worstMs, g_worstMB, ok ? "ok" : "over target");
  return ok ? 0 : 1;
}
