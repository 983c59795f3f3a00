// What the cost ledger costs at 100,000 entries (years of heavy use): the whole `quillora cost`
// process, one record appended under the lock, and the month-to-date read every AI call makes
// for the budget. Targets: the command and a record each under 300 ms.
#include <stdlib.h>

#include <benchmark/benchmark.h>

#include <chrono>
#include <filesystem>

#include "base/process_runner.h"
#include "base/settings.h"
#include "base/uuid.h"
#include "cost/budget.h"
#include "cost/cost_ledger.h"

namespace {

using namespace quillora;

constexpr int kEntries = 100'000;

// A QUILLORA_HOME with a 100,000-entry ledger over the last twelve months, made once.
const std::filesystem::path& ledgerHome() {
  static const std::filesystem::path home = [] {
    char pattern[] = "/tmp/quillora-cost-bench-XXXXXX";
    std::filesystem::path dir = mkdtemp(pattern);
    const char* kinds[] = {"analysis", "triage", "secondOpinion", "ticketAnalysis"};
    const char* models[] = {"claude-sonnet-5-5", "claude-opus-5-5-20261001", "gpt-6-astra",
                            "gemini-3.8-flash", "house-model"};
    cost::PriceTable prices;
    auto now = base::Clock::now();
    std::vector<cost::CostEntry> entries;
    entries.reserve(kEntries);
    for (int i = 0; i < kEntries; ++i) {
      cost::CostEntry entry;
      entry.id = base::makeUUID();
      entry.date = now - std::chrono::minutes(5) * (kEntries - i);  // ~350 days back
      entry.kind = kinds[i % 4];
      entry.usage = cost::AnalysisUsage{"claude-api", models[i % 5], 20'000 + i % 1000, 1500,
                                        i % 3 == 0 ? 8000 : 0, 0, std::nullopt, 21.5};
      entry.costUSD = prices.cost(entry.usage, entry.date);
      entry.failed = i % 50 == 0;
      if (i % 2 == 0) entry.recordID = base::makeUUID();
      entries.push_back(std::move(entry));
    }
    cost::CostLedger(dir).append(entries);
    return dir;
  }();
  return home;
}

void runCost(benchmark::State& state, std::vector<std::string> arguments) {
  const auto& home = ledgerHome();
  base::ProcessRunner runner;
  base::ProcessRequest request;
  request.executable = QUILLORA_BINARY;
  request.arguments = std::move(arguments);
  request.environment = {{"QUILLORA_HOME", home.string()}};
  for (auto _ : state) {
    auto result = runner.run(request);
    if (result.status != 0) state.SkipWithError(result.stderr.c_str());
    benchmark::DoNotOptimize(result);
  }
  state.counters["ledgerMB"] =
      static_cast<double>(std::filesystem::file_size(home / "cost-ledger.json")) / 1e6;
}
// The child's CPU time isn't the parent's: only real time means anything here.
BENCHMARK_CAPTURE(runCost, text, std::vector<std::string>{"cost"})
    ->Unit(benchmark::kMillisecond)
    ->UseRealTime()
    ->MinWarmUpTime(0.5)
    ->MinTime(2);
BENCHMARK_CAPTURE(runCost, json, std::vector<std::string>{"cost", "--format", "json"})
    ->Unit(benchmark::kMillisecond)
    ->UseRealTime()
    ->MinTime(2);

void RecordIntoLedger(benchmark::State& state) {
  cost::CostLedger ledger(ledgerHome());
  cost::PriceTable prices;
  cost::AnalysisUsage usage{"claude-api", "claude-sonnet-5-5", 30'000, 2000, 0, 0, std::nullopt, 30};
  for (auto _ : state) {
    auto entry = ledger.record(usage, "analysis", std::nullopt, false, prices);
    benchmark::DoNotOptimize(entry);
  }
}
BENCHMARK(RecordIntoLedger)->Unit(benchmark::kMillisecond)->UseRealTime()->Iterations(20);

void BudgetCheckBeforeCall(benchmark::State& state) {
  cost::CostLedger ledger(ledgerHome());
  base::Settings::shared().reset(base::Json::parse(R"({"cost": {"monthlyBudget": 1000000}})"));
  for (auto _ : state) {
    auto notice = cost::checkBudgetBeforeCall(ledger);
    benchmark::DoNotOptimize(notice);
  }
}
BENCHMARK(BudgetCheckBeforeCall)->Unit(benchmark::kMillisecond)->UseRealTime();

}  // namespace

int main(int argc, char** argv) {
  benchmark::Initialize(&argc, argv);
  benchmark::RunSpecifiedBenchmarks();
  benchmark::Shutdown();
  std::error_code ec;
  std::filesystem::remove_all(ledgerHome(), ec);
  return 0;
}
