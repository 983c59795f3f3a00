// Indexing a repository of 250,000 files against `find <tree> -type f` on the same tree, and the
// peak memory of a process that holds such an index. The tree is generated under /tmp and removed
// afterwards. Exits 1 when indexing takes more than 1.3 times find's time or the index process
// peaks at 100 MB or more.
#include <benchmark/benchmark.h>
#include <fmt/format.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>

#include <fcntl.h>
#include <spawn.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include "ai/repository_index.h"

extern char** environ;

namespace {

namespace fs = std::filesystem;

fs::path g_tree;

// 50 × 50 folders of 100 files each, named like a game's sources.
void generateTree(const fs::path& root) {
  for (int a = 0; a < 50; ++a) {
    for (int b = 0; b < 50; ++b) {
      fs::path folder = root / fmt::format("Assets/Module{:02}/Feature{:02}", a, b);
      fs::create_directories(folder);
      for (int f = 0; f < 100; ++f) {
        int fd = open((folder / fmt::format("Component{:03}.cs", f)).c_str(), O_CREAT | O_WRONLY, 0644);
        if (fd >= 0) close(fd);
      }
    }
  }
}

void runFind(const fs::path& tree) {
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  posix_spawn_file_actions_addopen(&actions, 1, "/dev/null", O_WRONLY, 0);
  std::string path = tree.string();
  char* argv[] = {const_cast<char*>("find"), path.data(), const_cast<char*>("-type"),
                  const_cast<char*>("f"), nullptr};
  pid_t pid = 0;
  if (posix_spawnp(&pid, "find", &actions, nullptr, argv, environ) == 0) {
    int status = 0;
    waitpid(pid, &status, 0);
  }
  posix_spawn_file_actions_destroy(&actions);
}

void BM_FindTypeF(benchmark::State& state) {
  for (auto _ : state) runFind(g_tree);
}

void BM_RepositoryIndex(benchmark::State& state) {
  size_t files = 0;
  for (auto _ : state) {
    auto index = quillora::ai::RepositoryIndex::build(g_tree);
    files = index.size();
    benchmark::DoNotOptimize(files);
  }
  state.counters["files"] = static_cast<double>(files);
}

BENCHMARK(BM_FindTypeF)->Unit(benchmark::kMillisecond)->Repetitions(5)->ReportAggregatesOnly(true);
BENCHMARK(BM_RepositoryIndex)->Unit(benchmark::kMillisecond)->Repetitions(5)->ReportAggregatesOnly(true);

// Peak resident memory, in MB, of a fresh child process that builds the index once.
double indexProcessPeakMB() {
  int pipeFDs[2];
  if (pipe(pipeFDs) != 0) return -1;
  pid_t pid = fork();
  if (pid == 0) {
    close(pipeFDs[0]);
    auto index = quillora::ai::RepositoryIndex::build(g_tree);
    rusage usage{};
    getrusage(RUSAGE_SELF, &usage);
    benchmark::DoNotOptimize(index);
    long kb = usage.ru_maxrss;
    ssize_t written = write(pipeFDs[1], &kb, sizeof kb);
    _exit(written == sizeof kb ? 0 : 1);
  }
  close(pipeFDs[1]);
  long kb = -1;
  if (read(pipeFDs[0], &kb, sizeof kb) != sizeof kb) kb = -1;
  close(pipeFDs[0]);
  int status = 0;
  waitpid(pid, &status, 0);
  return static_cast<double>(kb) / 1024.0;
}

// Collects the medians so the targets can be checked after the run.
class MedianReporter : public benchmark::ConsoleReporter {
 public:
  double findMs = 0, indexMs = 0;
  void ReportRuns(const std::vector<Run>& runs) override {
    ConsoleReporter::ReportRuns(runs);
    for (const auto& run : runs) {
      if (run.aggregate_name != "median") continue;
      double ms = run.GetAdjustedRealTime();
      if (run.benchmark_name().find("BM_FindTypeF") == 0) findMs = ms;
      if (run.benchmark_name().find("BM_RepositoryIndex") == 0) indexMs = ms;
    }
  }
};

}  // namespace

int main(int argc, char** argv) {
  char pattern[] = "/tmp/quillora-index-bench-XXXXXX";
  if (!mkdtemp(pattern)) return 1;
  g_tree = pattern;
  generateTree(g_tree);
  // Both walkers start from a warm cache.
  runFind(g_tree);

  benchmark::Initialize(&argc, argv);
  MedianReporter reporter;
  benchmark::RunSpecifiedBenchmarks(&reporter);
  double peakMB = indexProcessPeakMB();
  benchmark::Shutdown();
  std::error_code error;
  fs::remove_all(g_tree, error);

  double ratio = reporter.findMs > 0 ? reporter.indexMs / reporter.findMs : 0;
  std::printf("find -type f: %.1f ms (median); RepositoryIndex: %.1f ms (median); ratio %.2f "
              "(target at most 1.30)\n",
              reporter.findMs, reporter.indexMs, ratio);
  std::printf("peak memory of a process holding the 250,000-file index: %.1f MB (target under 100 MB)\n",
              peakMB);
  bool ok = ratio > 0 && ratio <= 1.3 && peakMB > 0 && peakMB < 100;
  std::printf("%s\n", ok ? "targets met" : "TARGETS MISSED");
  return ok ? 0 : 1;
}
