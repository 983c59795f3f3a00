// The history at its limit of 5,000 analyses: the whole `quillora history` process (list and
// search), one save into the full store (pruning the oldest), a rebuild of the index from the
// record files, and the duplicate lookup of analyze (warm, and cold with the index read first).
// Targets: list and search under 50 ms, a save under 150 ms, a rebuild under 2 s, a lookup under
// 20 ms.
#include <fcntl.h>
#include <spawn.h>
#include <stdlib.h>
#include <sys/resource.h>
#include <sys/wait.h>

#include <benchmark/benchmark.h>

#include <filesystem>
#include <fstream>
#include <random>

#include <fmt/format.h>

#include "base/json.h"
#include "history/duplicate_finder.h"
#include "history/history_store.h"

extern char** environ;

namespace {

using namespace quillora;
namespace fs = std::filesystem;

constexpr size_t kRecords = 5000;

const char* const kWords[] = {"Player", "Enemy",   "Inventory", "Shop",    "Quest",  "Weapon",
                              "Level",  "Save",    "Network",   "Audio",   "Render", "Physics",
                              "Input",  "Camera",  "Spawner",   "Pathing", "Dialog", "Ads"};
const char* const kVerbs[] = {"Update", "Load", "Apply", "Resolve", "Tick", "Spawn", "Buy", "Open",
                              "Close",  "Sync", "Parse", "Attack",  "Heal", "Draw",  "Play"};
const char* const kExceptions[] = {"NullReferenceException", "IndexOutOfRangeException",
                                   "EXC_BAD_ACCESS (SIGSEGV)", "java.lang.IllegalStateException",
                                   "SIGABRT", "KeyNotFoundException"};

// A crash made of game-like frames; `seed` picks the classes and methods.
crash::CrashReport syntheticCrash(unsigned seed) {
  std::mt19937 random(seed);
  auto pick = [&](auto& list) { return list[random() % std::size(list)]; };
  crash::CrashReport report;
  report.platform = crash::CrashPlatform::unity;
  report.exceptionType = pick(kExceptions);
  report.exceptionMessage = fmt::format("{} {} failed for {} item", pick(kWords), pick(kVerbs), pick(kWords));
  crash::ThreadTrace thread;
  thread.name = "Main Thread";
  thread.isCrashed = true;
  for (int i = 0; i < 14; ++i) {
    crash::StackFrame frame;
    frame.index = i;
    frame.isInApp = i < 8;
    frame.module = frame.isInApp ? "Assembly-CSharp" : "UnityEngine";
    std::string cls = pick(kWords);
    frame.symbol = fmt::format("Game.{}.{}{} (System.Int32 id)", cls, pick(kVerbs), pick(kWords));
    frame.file = "Assets/Scripts/" + cls + ".cs";
    frame.line = static_cast<int>(10 + random() % 400);
    frame.raw = frame.symbol + " (at " + *frame.file + ":" + std::to_string(*frame.line) + ")";
    report.rawText += frame.raw + "\n";
    thread.frames.push_back(frame);
  }
  report.threads.push_back(thread);
  return report;
}

history::AnalysisRecord syntheticRecord(unsigned seed) {
  auto report = syntheticCrash(seed);
  history::AnalysisRecord record = history::recordForCrash(report, fmt::format("sig-{:08x}", seed));
  record.id = fmt::format("{:08X}-0000-4000-8000-{:012X}", seed, seed);
  record.date = *base::parseISO8601("2026-01-01T00:00:00Z") + std::chrono::minutes(seed);
  record.analysis.title = report.title();
  record.analysis.severity = "high";
  record.analysis.confidence = "medium";
  record.analysis.rootCause = std::string(600, 'r');
  record.analysis.fixSummary = std::string(300, 'f');
  record.analysis.patch = std::string(1500, 'p');
  record.analysis.reproSteps = {"Start a level", "Open the shop", "Buy twice"};
  record.engineLabel = "Claude API (claude-opus-5-5)";
  record.backend = "claude-api";
  record.subject.kind = "crashReport";
  record.subject.source = "crashlytics";
  record.subject.appName = "Space Miners";
  record.subject.issueID = std::to_string(seed);
  record.subject.issueTitle = report.title();
  return record;
}

// A QUILLORA_HOME holding a full history, written once (files and index directly, then read back
// through the store so the index is exactly what saves would write).
const fs::path& fullHome() {
  static const fs::path home = [] {
    char pattern[] = "/tmp/quillora-history-bench-XXXXXX";
    fs::path dir = mkdtemp(pattern);
    fs::create_directories(dir / "history");
    for (unsigned i = 0; i < kRecords; ++i) {
      std::ofstream(dir / "history" / (syntheticRecord(i).id + ".json"))
          << base::dumpJson(history::toJson(syntheticRecord(i)));
    }
    history::HistoryStore(dir).summaries();  // no index yet: rebuilds and writes it
    return dir;
  }();
  return home;
}

int runQuillora(const fs::path& home, const std::vector<std::string>& args) {
  std::vector<std::string> env = {"QUILLORA_HOME=" + home.string(), "TZ=UTC", "LC_ALL=C.UTF-8"};
  std::vector<char*> envp;
  for (auto& e : env) envp.push_back(e.data());
  envp.push_back(nullptr);
  std::vector<std::string> argv = {QUILLORA_BINARY};
  argv.insert(argv.end(), args.begin(), args.end());
  std::vector<char*> argp;
  for (auto& a : argv) argp.push_back(a.data());
  argp.push_back(nullptr);
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  posix_spawn_file_actions_addopen(&actions, 1, "/dev/null", O_WRONLY, 0);
  pid_t pid = 0;
  int status = -1;
  if (posix_spawn(&pid, argv[0].c_str(), &actions, nullptr, argp.data(), envp.data()) == 0) {
    waitpid(pid, &status, 0);
  }
  posix_spawn_file_actions_destroy(&actions);
  return status;
}

double childCPUMilliseconds() {
  struct rusage usage {};
  getrusage(RUSAGE_CHILDREN, &usage);
  return (static_cast<double>(usage.ru_utime.tv_sec + usage.ru_stime.tv_sec) * 1e3 +
          static_cast<double>(usage.ru_utime.tv_usec + usage.ru_stime.tv_usec) / 1e3);
}

// Wall time depends on what else the machine runs; the children's CPU time ("cpu_ms", user plus
// system) is the steadier figure.
void HistoryCommand(benchmark::State& state, std::vector<std::string> args) {
  const auto& home = fullHome();
  double before = childCPUMilliseconds();
  for (auto _ : state) {
    if (runQuillora(home, args) != 0) state.SkipWithError("quillora failed");
  }
  state.counters["cpu_ms"] = (childCPUMilliseconds() - before) / static_cast<double>(state.iterations());
  state.counters["indexMB"] = static_cast<double>(fs::file_size(home / "history" / "index.json")) / 1e6;
}
BENCHMARK_CAPTURE(HistoryCommand, version_for_comparison, std::vector<std::string>{"version"})
    ->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK_CAPTURE(HistoryCommand, list, std::vector<std::string>{"history"})
    ->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK_CAPTURE(HistoryCommand, list_json_all, std::vector<std::string>{"history", "--format", "json", "--limit", "5000"})
    ->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK_CAPTURE(HistoryCommand, search, std::vector<std::string>{"history", "search", "inventory"})
    ->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK_CAPTURE(HistoryCommand, search_miss, std::vector<std::string>{"history", "search", "no such text"})
    ->Unit(benchmark::kMillisecond)->UseRealTime();

// A fresh store object each time, as in a new process: the index is read, then written.
void SaveIntoFullStore(benchmark::State& state) {
  const auto& home = fullHome();
  unsigned seed = 100000;
  for (auto _ : state) {
    history::HistoryStore store(home);
    auto record = syntheticRecord(seed++);
    record.id.clear();
    record.date = base::Clock::now();
    benchmark::DoNotOptimize(store.save(std::move(record)));
  }
}
BENCHMARK(SaveIntoFullStore)->Unit(benchmark::kMillisecond)->UseRealTime();

void RebuildIndex(benchmark::State& state) {
  const auto& home = fullHome();
  for (auto _ : state) {
    fs::remove(home / "history" / "index.json");
    history::HistoryStore store(home);
    auto summaries = store.summaries();
    if (summaries->size() != kRecords) state.SkipWithError("records went missing");
  }
}
BENCHMARK(RebuildIndex)->Unit(benchmark::kMillisecond)->UseRealTime()->Iterations(3);

void DuplicateLookupWarm(benchmark::State& state) {
  history::HistoryStore store(fullHome());
  history::DuplicateFinder finder({std::make_shared<history::HistoryDuplicateSource>(store)});
  auto crash = syntheticCrash(4321);
  size_t found = finder.find(crash, "no-signature").size();
  for (auto _ : state) found = finder.find(crash, "no-signature").size();
  state.counters["matches"] = static_cast<double>(found);
}
BENCHMARK(DuplicateLookupWarm)->Unit(benchmark::kMillisecond)->UseRealTime();

// What analyze pays once: reading the index and preparing the match index, then the lookup.
void DuplicateLookupCold(benchmark::State& state) {
  auto crash = syntheticCrash(4321);
  for (auto _ : state) {
    history::HistoryStore store(fullHome());
    history::DuplicateFinder finder({std::make_shared<history::HistoryDuplicateSource>(store)});
    benchmark::DoNotOptimize(finder.find(crash, "no-signature"));
  }
}
BENCHMARK(DuplicateLookupCold)->Unit(benchmark::kMillisecond)->UseRealTime();

}  // namespace

BENCHMARK_MAIN();
