// Parser speed and memory over real traces. Run: build/parser_bench [--benchmark_filter=…]
// The corpus folder is $QUILLORA_CORPUS, else ../shared/corpus/traces beside the source tree, else
// the test fixtures. Targets: at least 150 MB/s over the corpus concatenated; a 1 MB line of
// garbage and a 2 MB IL2CPP stack overflow each under 0.2 s; peak heap under 5x the input.
#include <benchmark/benchmark.h>

#include <atomic>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <new>
#include <random>
#include <sstream>

#include "crash/apple_crash_log_reader.h"

namespace {

// Live and peak heap bytes of operator new, to hold the parser to its memory budget.
std::atomic<size_t> g_live{0};
std::atomic<size_t> g_peak{0};

void noteAllocation(size_t size) {
  size_t live = g_live.fetch_add(size) + size;
  size_t peak = g_peak.load();
  while (live > peak && !g_peak.compare_exchange_weak(peak, live)) {
  }
}

}  // namespace

void* operator new(size_t size) {
  void* block = std::malloc(size + 16);
  if (!block) throw std::bad_alloc();
  *static_cast<size_t*>(block) = size;
  noteAllocation(size);
  return static_cast<char*>(block) + 16;
}
void operator delete(void* pointer) noexcept {
  if (!pointer) return;
  void* block = static_cast<char*>(pointer) - 16;
  g_live.fetch_sub(*static_cast<size_t*>(block));
  std::free(block);
}
void operator delete(void* pointer, size_t) noexcept { operator delete(pointer); }

namespace {

using namespace quillora::crash;

std::filesystem::path corpusFolder() {
  if (const char* configured = std::getenv("QUILLORA_CORPUS")) return configured;
  std::filesystem::path shared = std::filesystem::path(QUILLORA_SOURCE_DIR) / ".." / "shared" / "corpus" / "traces";
  if (std::filesystem::exists(shared)) return shared;
  return std::filesystem::path(QUILLORA_SOURCE_DIR) / "tests" / "fixtures" / "crash";
}

std::string readWhole(const std::filesystem::path& path) {
  std::ifstream in(path, std::ios::binary);
  std::stringstream buffer;
  buffer << in.rdbuf();
  return buffer.str();
}

const std::vector<std::string>& corpus() {
  static const std::vector<std::string> texts = [] {
    std::vector<std::filesystem::path> files;
    for (const auto& entry : std::filesystem::recursive_directory_iterator(corpusFolder())) {
      if (entry.is_regular_file() && entry.path().filename() != "SOURCES.tsv") files.push_back(entry.path());
    }
    std::sort(files.begin(), files.end());
    std::vector<std::string> out;
    for (const auto& file : files) out.push_back(readWhole(file));
    return out;
  }();
  return texts;
}

std::string concatenatedCorpus() {
  std::string all;
  for (const std::string& text : corpus()) all += text + "\n";
  return all;
}

std::string garbageLine() {
  std::mt19937 random(7);
  std::string line(1 << 20, ' ');
  for (char& c : line) c = static_cast<char>(32 + random() % 95);
  return line;
}

// A 2 MB Android tombstone of an IL2CPP stack overflow: one thread, tens of thousands of
// identical recursive frames.
std::string il2cppStackOverflow() {
  std::string text =
      "*** *** *** *** *** *** *** *** *** *** *** *** *** *** *** ***\n"
      "Build fingerprint: 'google/oriole/oriole:14/UQ1A.240205.004/11269751:user/release-keys'\n"
      "pid: 4100, tid: 4127, name: UnityMain  >>> com.mygame.app <<<\n"
      "signal 11 (SIGSEGV), code 2 (SEGV_ACCERR), fault addr 0x0000007a1bfffff8\n"
      "Cause: stack pointer is near guard page\n\nbacktrace:\n";
  for (int i = 0; text.size() < 2 * 1024 * 1024; ++i) {
    text += "      #" + std::to_string(i) +
            " pc 00000000004b2f24  /data/app/~~Qm9v==/com.mygame.app-Zm9v==/lib/arm64/libil2cpp.so "
            "(QuestLog_Resolve_m7F2C1A9B3E+52) (BuildId: 9f8e7d6c5b4a39281706f5e4d3c2b1a0)\n";
  }
  return text;
}

void measure(benchmark::State& state, const std::string& text) {
  StackTraceParser parser;
  size_t frames = 0;
  size_t peakRatio100 = 0;
  for (auto _ : state) {
    size_t before = g_live.load();
    g_peak.store(before);
    CrashReport report = readCrashText(text, parser);
    frames = report.frameCount();
    // The input copy handed to the reader counts against the budget, as the caller's string would.
    peakRatio100 = std::max(peakRatio100, (g_peak.load() - before) * 100 / std::max<size_t>(text.size(), 1));
    benchmark::DoNotOptimize(report);
  }
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * text.size()));
  state.counters["frames"] = static_cast<double>(frames);
  state.counters["inputMB"] = static_cast<double>(text.size()) / 1e6;
  state.counters["peakHeapXInput"] = static_cast<double>(peakRatio100) / 100.0;
}

void CorpusConcatenated(benchmark::State& state) { measure(state, concatenatedCorpus()); }
void CorpusFileByFile(benchmark::State& state) {
  StackTraceParser parser;
  size_t bytes = 0;
  for (auto _ : state) {
    for (const std::string& text : corpus()) {
      CrashReport report = readCrashText(text, parser);
      benchmark::DoNotOptimize(report);
      bytes += text.size();
    }
  }
  state.SetBytesProcessed(static_cast<int64_t>(bytes));
}
void GarbageLineOf1MB(benchmark::State& state) { measure(state, garbageLine()); }
void Il2cppStackOverflowOf2MB(benchmark::State& state) { measure(state, il2cppStackOverflow()); }
void RealIl2cppStackOverflow(benchmark::State& state) {
  measure(state, readWhole(corpusFolder() / "hard" / "il2cpp-stack-overflow-1.8MB.txt"));
}

}  // namespace

BENCHMARK(CorpusConcatenated)->Unit(benchmark::kMillisecond);
BENCHMARK(CorpusFileByFile)->Unit(benchmark::kMillisecond);
BENCHMARK(GarbageLineOf1MB)->Unit(benchmark::kMillisecond);
BENCHMARK(Il2cppStackOverflowOf2MB)->Unit(benchmark::kMillisecond);
BENCHMARK(RealIl2cppStackOverflow)->Unit(benchmark::kMillisecond);
BENCHMARK_MAIN();
