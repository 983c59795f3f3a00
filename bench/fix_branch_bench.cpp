// What one fix branch costs end to end in a small repository: lock, checks, branch, patch, commit
// and the diff summary (about twenty git processes), and the same flow ending in a rollback.
#include "base/process_runner.h"
#include "git/fix_branch.h"

#include <benchmark/benchmark.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>

namespace {

using namespace quillora;

void git(const std::filesystem::path& repo, std::vector<std::string> args) {
  base::ProcessRequest request;
  request.executable = "git";
  request.arguments = std::move(args);
  request.workingDirectory = repo;
  if (base::ProcessRunner().run(request).status != 0) throw std::runtime_error("git failed");
}

// A repository of 300 small C# files with one commit, in a fresh temporary folder.
std::filesystem::path makeRepository() {
  char pattern[] = "/tmp/quillora-bench-XXXXXX";
  std::filesystem::path root = ::mkdtemp(pattern);
  ::setenv("QUILLORA_HOME", (root / "home").c_str(), 1);
  std::filesystem::path repo = root / "game";
  std::filesystem::create_directories(repo / "Assets");
  for (int i = 0; i < 300; ++i) {
    std::ofstream(repo / "Assets" / ("Script" + std::to_string(i) + ".cs"))
        << "class Script" << i << " {\n  void Update() {\n    target.Move();\n  }\n}\n";
  }
  git(repo, {"init", "--quiet", "--initial-branch=main"});
  git(repo, {"config", "user.name", "Bench"});
  git(repo, {"config", "user.email", "bench@example.com"});
  git(repo, {"add", "-A"});
  git(repo, {"commit", "--quiet", "-m", "Initial"});
  return repo;
}

git::FixBranchRequest request(const std::filesystem::path& repo, bool changesNothing) {
  git::FixBranchRequest r;
  r.repository = repo;
  r.analysis.title = "NullReferenceException in Script7.Update";
  r.analysis.fixSummary = "Guard the target.";
  r.analysis.rootCause = "The target is destroyed first.";
  r.analysis.patch = std::string("--- a/Assets/Script7.cs\n+++ b/Assets/Script7.cs\n") +
                     "@@ -1,5 +1,5 @@\n class Script7 {\n   void Update() {\n" +
                     "-    target.Move();\n" +
                     (changesNothing ? "+    target.Move();\n" : "+    target?.Move();\n") +
                     "   }\n }\n";
  return r;
}

void FixBranch(benchmark::State& state, bool changesNothing) {
  (void)base::ProcessRunner::loginSearchPath();
  std::filesystem::path repo = makeRepository();
  git::FixBranchRequest r = request(repo, changesNothing);
  git::FixBranchProgress quiet;
  for (auto _ : state) {
    try {
      benchmark::DoNotOptimize(git::makeFixBranch(r, quiet));
    } catch (const Error&) {
      if (!changesNothing) state.SkipWithError("the flow failed");
    }
    state.PauseTiming();
    if (!changesNothing) {
      git(repo, {"checkout", "--quiet", "main"});
      git(repo, {"branch", "-D", "fix/crash-nullreferenceexception-in-script7-update"});
    }
    state.ResumeTiming();
  }
  std::filesystem::remove_all(repo.parent_path());
}
BENCHMARK_CAPTURE(FixBranch, patchCommitted, false)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK_CAPTURE(FixBranch, nothingToCommitRolledBack, true)
    ->Unit(benchmark::kMillisecond)
    ->UseRealTime();

}  // namespace

BENCHMARK_MAIN();
