// What running a tool through ProcessRunner costs: the fixed price of one short-lived child, and
// the throughput of draining a tool that prints a lot.
#include "base/process_runner.h"

#include <benchmark/benchmark.h>

namespace {

using quillora::base::ProcessRequest;
using quillora::base::ProcessRunner;

void RunTrue(benchmark::State& state) {
  ProcessRunner runner;
  (void)ProcessRunner::loginSearchPath(); // once per process, not per run
  for (auto _ : state) {
    auto result = runner.run("/bin/true", {});
    benchmark::DoNotOptimize(result);
  }
}
BENCHMARK(RunTrue)->Unit(benchmark::kMillisecond)->UseRealTime();

void Drain100MB(benchmark::State& state, bool withLines) {
  ProcessRunner runner;
  (void)ProcessRunner::loginSearchPath();
  ProcessRequest request;
  request.executable = "/bin/sh";
  // Text lines of 64 bytes, as a build log would print them.
  request.arguments = {"-c", "yes 'compiling src/some/module/file.cpp with -O2 and warnings on..' "
                             "| head -c 104857600"};
  size_t lines = 0;
  if (withLines) request.onStdoutLine = [&](const std::string&) { ++lines; };
  for (auto _ : state) {
    auto result = runner.run(request);
    if (result.stdout.size() != 104857600) state.SkipWithError("short output");
    benchmark::DoNotOptimize(result);
  }
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) * 104857600);
  benchmark::DoNotOptimize(lines);
}
BENCHMARK_CAPTURE(Drain100MB, whole, false)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK_CAPTURE(Drain100MB, lineCallback, true)->Unit(benchmark::kMillisecond)->UseRealTime();

} // namespace

BENCHMARK_MAIN();
