#pragma once

#include <string>
#include <vector>

#include "crash/crash_report.h"

namespace quillora::crash {

// Turns crash text (pasted, read from a file or rendered from a crash service's sample event)
// into a CrashReport: platform, threads, frames with their in-app mark, exception type and
// message. It never fails and never throws for any input: text it can't read gives platform
// unknown and no frames, and the caller says the engine works from the text alone. Immutable
// after construction and safe to share between threads.
//
// Choices of this build where the rules leave room:
// - Lines are read with their surrounding white space removed (traces indent "at" frames and
//   "Caused by:" lines); a frame keeps its raw line unchanged.
// - Detection ties go to the order of the detection table (unity, unreal, Android Java, Android
//   native, iOS).
// - Thread headers never end the exception search ("Crashed: com.apple.main-thread" names the
//   thread; the "EXC_BREAKPOINT" line after it still gives the type).
// - A "Thread N" header without a queue is named by an earlier "Thread N name: …" line when there
//   is one, else "Thread N". "Crashed:" with nothing after it names the thread "Crashed".
// - A tombstone's "pid: …, tid: …, name: X" line starts a thread named X; the first one in the
//   text is the crashing thread.
// - Frames without an index in their line are numbered by position in their thread, from 0.
// - Frames before any thread header go to a thread named "Thread 0", marked crashed when no
//   header marks another one; a text without any header therefore yields one crashed thread.
class StackTraceParser {
 public:
  // `inAppPrefixes`: module, file or symbol prefixes that always mean the app's own code; empty
  // entries are ignored.
  explicit StackTraceParser(std::vector<std::string> inAppPrefixes = {});

  // A parser with the configured in-app prefixes (setting "inAppPrefixes"). Main thread only,
  // like the settings it reads.
  static StackTraceParser configured();

  // Parses the text; the report keeps the text whole as its rawText.
  [[nodiscard]] CrashReport parse(std::string text) const;

  [[nodiscard]] const std::vector<std::string>& inAppPrefixes() const { return m_inAppPrefixes; }

 private:
  std::vector<std::string> m_inAppPrefixes;
};

}  // namespace quillora::crash
