#pragma once

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <functional>
#include <string>
#include <vector>

#include "ai/code_snippet.h"
#include "crash/crash_report.h"

namespace quillora::ai {

// Picks the source excerpts sent with a crash: the files behind its first in-app frames, cut to a
// window around the crashing line, within a byte budget.
//
// Matching a frame to a file: the frame's file (or, without one, a file name guessed from its
// class and the platform's source extensions) is compared by name with the indexed files; among
// files of that name the one sharing the longest trailing run of path components with the frame's
// path wins, then the shortest path, then the first in byte order. Java/Kotlin frames contribute
// their package as folders ("com/game/Player.java").
class RepoContextBuilder {
 public:
  static constexpr size_t kFrameLimit = 10;
  static constexpr uintmax_t kLargeFileBytes = 2'000'000;  // files this large are skipped
  static constexpr int kWholeFileLines = 350;
  static constexpr int kWindowRadius = 60;
  static constexpr size_t kStopBelowBytes = 2'000;
  static constexpr long long kDefaultMaxContextKB = 100;

  using Progress = std::function<void(const std::string& line)>;

  std::filesystem::path repo;
  crash::CrashPlatform platform = crash::CrashPlatform::unknown;
  size_t maxBytes = static_cast<size_t>(kDefaultMaxContextKB) * 1024;

  RepoContextBuilder(std::filesystem::path repoFolder, crash::CrashPlatform crashPlatform,
                     size_t budgetBytes);
  // The budget from the "maxContextKB" setting (default 100 KB; values below 1 count as 1).
  RepoContextBuilder(std::filesystem::path repoFolder, crash::CrashPlatform crashPlatform);

  // The excerpts for the report's in-app frames (crashed thread first, then the other threads in
  // trace order; the first 10). Reports "Found <path> (lines a-b)" per excerpt and a closing
  // line through `progress`. `engineSearchesItself` (Claude Code) changes the closing line of a
  // search that found nothing. Never fails: unreadable files are skipped.
  [[nodiscard]] std::vector<CodeSnippet> build(const crash::CrashReport& report,
                                               const Progress& progress = {},
                                               bool engineSearchesItself = false) const;
};

// The in-app frames an analysis considers, in the order they are used (at most 10).
std::vector<crash::StackFrame> consideredFrames(const crash::CrashReport& report);

}  // namespace quillora::ai
