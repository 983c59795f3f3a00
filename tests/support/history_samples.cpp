#include "support/history_samples.h"

#include <fmt/format.h>

#include "base/time.h"

namespace quillora::testing {

crash::CrashReport nativeCrash(const std::vector<NativeFrame>& frames, int build,
                               std::string exceptionType, std::string message) {
  crash::CrashReport report;
  report.platform = crash::CrashPlatform::iOSNative;
  report.exceptionType = std::move(exceptionType);
  report.exceptionMessage = std::move(message);
  crash::ThreadTrace thread;
  thread.name = "Thread 0";
  thread.isCrashed = true;
  int index = 0;
  for (const NativeFrame& f : frames) {
    crash::StackFrame frame;
    frame.index = index;
    frame.module = f.isInApp ? "SpaceMiners" : "libsystem_kernel.dylib";
    frame.symbol = f.symbol;
    if (!f.file.empty()) frame.file = f.file;
    if (f.line > 0) frame.line = f.line;
    frame.isInApp = f.isInApp;
    frame.raw = fmt::format("{}   {}  0x{:016x} {}", index, frame.module,
                            0x100000000ull + static_cast<unsigned long long>(build) * 0x9a3000ull +
                                static_cast<unsigned long long>(index) * 0x1c4ull,
                            f.symbol);
    thread.frames.push_back(frame);
    ++index;
  }
  report.threads.push_back(thread);
  for (const auto& frame : report.threads[0].frames) report.rawText += frame.raw + "\n";
  return report;
}

history::AnalysisRecord sampleRecord(const crash::CrashReport& report, const std::string& title,
                                     const std::string& isoDate, const std::string& signature) {
  history::AnalysisRecord record = history::recordForCrash(report, signature);
  record.date = *base::parseISO8601(isoDate);
  record.analysis.title = title;
  record.analysis.severity = "high";
  record.analysis.confidence = "medium";
  record.analysis.rootCause = "The player object is used after it was destroyed.";
  record.analysis.fixSummary = "Check the player before use.";
  record.engineLabel = "Claude API (claude-opus-5-5)";
  record.backend = "claude-api";
  return record;
}

crash::CrashReport unityCrash(const std::string& symbol) {
  crash::CrashReport report;
  report.platform = crash::CrashPlatform::unity;
  report.exceptionType = "NullReferenceException";
  report.exceptionMessage = "Object reference not set to an instance of an object";
  crash::ThreadTrace thread;
  thread.name = "Main Thread";
  thread.isCrashed = true;
  crash::StackFrame top;
  top.index = 0;
  top.module = "Assembly-CSharp";
  top.symbol = symbol;
  top.file = "Assets/Scripts/Player.cs";
  top.line = 42;
  top.isInApp = true;
  top.raw = symbol + " (at Assets/Scripts/Player.cs:42)";
  crash::StackFrame engine;
  engine.index = 1;
  engine.module = "UnityEngine";
  engine.symbol = "UnityEngine.Behaviour.Update ()";
  engine.raw = "UnityEngine.Behaviour.Update ()";
  thread.frames = {top, engine};
  report.threads.push_back(thread);
  report.rawText = "NullReferenceException: Object reference not set to an instance of an object\n" +
                   top.raw + "\n" + engine.raw + "\n";
  return report;
}

}  // namespace quillora::testing
