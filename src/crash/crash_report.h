#pragma once

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

#include "base/json.h"
#include "crash/crash_platform.h"
#include "crash/thread_trace.h"

namespace quillora::crash {

// How many frames of the crashed thread the summary text lists.
inline constexpr size_t kSummaryFrameLimit = 25;
// The limit of the blamed symbol in a title.
inline constexpr size_t kTitleSymbolLimit = 80;

// A parsed crash: what the stack-trace parser, the Apple crash-log reader and crash services
// produce, and what engines, reports and the history read. Plain value; derived values are
// computed on demand.
struct CrashReport {
  CrashPlatform platform = CrashPlatform::unknown;
  std::string exceptionType;     // exception class or signal name; empty when unknown
  std::string exceptionMessage;  // may be empty
  std::vector<ThreadTrace> threads;  // in the order of the trace
  std::string rawText;               // the text that was parsed, whole

  // The first thread marked crashed, else the first thread; nullptr without threads.
  [[nodiscard]] const ThreadTrace* crashedThread() const;
  // The first in-app frame of the crashed thread; nullptr when it has none (never a system frame).
  [[nodiscard]] const StackFrame* blamedFrame() const;
  // The exception type (or "Crash"), plus " in <short symbol>" of the blamed frame.
  [[nodiscard]] std::string title() const;
  // The lines given to engines and shown in reports: platform, exception, message, blamed frame,
  // and the first 25 frames of the crashed thread. Lines joined by "\n", no final newline.
  [[nodiscard]] std::string summaryText() const;
  // Number of frames in all threads, and of in-app ones.
  [[nodiscard]] size_t frameCount() const;
  [[nodiscard]] size_t inAppFrameCount() const;
};

// A symbol shortened for titles: from a "(" at the 5th character or later on, everything is
// dropped; then trimmed; then cut to `limit` characters with "…" appended when longer.
std::string shortSymbol(std::string_view symbol, size_t limit);

// JSON keys "platform", "exceptionType", "exceptionMessage", "threads", "rawText". Decoding is
// lenient and gives fresh frame and thread ids.
void to_json(base::Json& json, const CrashReport& report);
void from_json(const base::Json& json, CrashReport& report);

}  // namespace quillora::crash
