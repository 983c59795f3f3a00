#include "crash/stack_trace_parser.h"

#include <algorithm>
#include <deque>
#include <map>

#include "base/settings.h"
#include "base/strings.h"
#include "crash/exception_extraction.h"
#include "crash/frame_reader.h"
#include "crash/in_app_rules.h"
#include "crash/parser_pattern.h"
#include "crash/platform_detection.h"

namespace quillora::crash {

namespace {

using base::Regex;

ThreadTrace newThread(std::string name, bool crashed) {
  ThreadTrace thread;
  thread.name = std::move(name);
  thread.isCrashed = crashed;
  return thread;
}

// Walks the lines of a text without copying them.
class LineCursor {
 public:
  explicit LineCursor(std::string_view text) : m_text(text) {}
  bool next(std::string_view& line) {
    if (m_offset >= m_text.size()) return false;
    size_t end = m_text.find('\n', m_offset);
    if (end == std::string_view::npos) end = m_text.size();
    line = m_text.substr(m_offset, end - m_offset);
    if (!line.empty() && line.back() == '\r') line.remove_suffix(1);
    m_offset = end + 1;
    return true;
  }

 private:
  std::string_view m_text;
  size_t m_offset = 0;
};

// The text with every line trimmed, for the exception patterns, which anchor at line starts.
std::string trimmedLines(std::string_view text) {
  std::string out;
  out.reserve(text.size() + 1);  // a text without a final newline gains one
  LineCursor cursor(text);
  std::string_view line;
  while (cursor.next(line)) {
    out.append(base::trim(line));
    out.push_back('\n');
  }
  return out;
}

enum class HeaderKind { none, thread, crashed, lastException, tombstoneThread, threadName };

struct Header {
  HeaderKind kind = HeaderKind::none;
  std::string name;
  bool crashed = false;
  int number = -1;
};

Header readHeader(std::string_view line) {
  static const Regex thread =
      compileParserPattern(R"(^Thread\s+(\d+)\s*(Crashed)?:*\s*(?:Dispatch queue:\s*(.+))?$)");
  static const Regex threadName =
      compileParserPattern(R"(^Thread\s+(\d+)\s+name:\s*(?:Dispatch queue:\s*)?(.+)$)");
  static const Regex crashed = compileParserPattern(R"(^Crashed:\s*(.*)$)");
  static const Regex lastException =
      compileParserPattern(R"(^Last Exception Backtrace(?:\s*\(\d+\))?\s*:?\s*$)");
  static const Regex tombstoneThread =
      compileParserPattern(R"(^pid:\s*\d+,\s*tid:\s*(\d+),\s*name:\s*(.*?)\s*(?:>>>.*)?$)");

  Header header;
  if (line.size() < 6 || line.size() > kMaxFrameLineLength) return header;
  auto startsWith = [&](std::string_view prefix) { return line.substr(0, prefix.size()) == prefix; };
  switch (line[0]) {
    case 'T':
      if (!startsWith("Thread")) break;
      if (auto m = thread.search(line)) {
        header.kind = HeaderKind::thread;
        header.number = static_cast<int>(base::parseInteger(m->group(1)).value_or(-1));
        header.crashed = m->hasGroup(2);
        header.name = base::trimmed(m->group(3));
      } else if (auto n = threadName.search(line)) {
        header.kind = HeaderKind::threadName;
        header.number = static_cast<int>(base::parseInteger(n->group(1)).value_or(-1));
        header.name = base::trimmed(n->group(2));
      }
      break;
    case 'C':
      if (!startsWith("Crashed:")) break;
      if (auto m = crashed.search(line)) {
        header.kind = HeaderKind::crashed;
        header.crashed = true;
        header.name = base::trimmed(m->group(1));
        if (header.name.empty()) header.name = "Crashed";
      }
      break;
    case 'L':
      if (!startsWith("Last Exception Backtrace")) break;
      if (lastException.test(line)) {
        header.kind = HeaderKind::lastException;
        header.name = "Last Exception Backtrace";
      }
      break;
    case 'p':
      if (!startsWith("pid:")) break;
      if (auto m = tombstoneThread.search(line)) {
        header.kind = HeaderKind::tombstoneThread;
        header.name = base::trimmed(m->group(2));
        if (header.name.empty()) header.name = "tid " + std::string(m->group(1));
      }
      break;
    default: break;
  }
  return header;
}

}  // namespace

StackTraceParser::StackTraceParser(std::vector<std::string> inAppPrefixes) {
  for (std::string& prefix : inAppPrefixes) {
    if (!prefix.empty()) m_inAppPrefixes.push_back(std::move(prefix));
  }
}

StackTraceParser StackTraceParser::configured() {
  return StackTraceParser(base::Settings::shared().textList("inAppPrefixes"));
}

CrashReport StackTraceParser::parse(std::string text) const {
  CrashReport report;
  report.platform = detectPlatform(text);
  {
    // Freed before the frames are built, so the copy never adds to the peak.
    ExceptionInfo exception = findException(trimmedLines(text));
    report.exceptionType = std::move(exception.type);
    report.exceptionMessage = std::move(exception.message);
  }

  std::map<int, std::string> threadNames;  // from "Thread N name:" lines
  // Frames of the last thread gather in a deque and move into its vector once the thread ends:
  // a growing vector would briefly hold old and new storage, a third more than the frames.
  std::deque<StackFrame> pending;
  auto flush = [&] {
    if (report.threads.empty()) return;
    std::vector<StackFrame>& frames = report.threads.back().frames;
    frames.reserve(frames.size() + pending.size());
    while (!pending.empty()) {
      frames.push_back(std::move(pending.front()));
      pending.pop_front();
    }
  };
  bool implicitFirstThread = false;
  bool sawTombstoneThread = false;
  LineCursor cursor(text);
  std::string_view raw;
  while (cursor.next(raw)) {
    std::string_view line = base::trim(raw);
    if (line.empty()) continue;
    Header header = readHeader(line);
    switch (header.kind) {
      case HeaderKind::none: break;
      case HeaderKind::threadName:
        threadNames[header.number] = header.name;
        continue;
      case HeaderKind::thread:
        if (header.name.empty()) {
          auto named = threadNames.find(header.number);
          header.name = named != threadNames.end() ? named->second : "Thread " + std::to_string(header.number);
        }
        [[fallthrough]];
      case HeaderKind::crashed:
      case HeaderKind::lastException:
        flush();
        report.threads.push_back(newThread(header.name, header.crashed));
        continue;
      case HeaderKind::tombstoneThread:
        flush();
        report.threads.push_back(newThread(header.name, !sawTombstoneThread));
        sawTombstoneThread = true;
        continue;
    }
    auto reading = readFrame(line, raw, report.platform);
    if (!reading) continue;
    if (report.threads.empty()) {
      report.threads.push_back(newThread("Thread 0", false));
      implicitFirstThread = true;
    }
    if (!reading->hasIndex) reading->frame.index = static_cast<int>(pending.size());
    reading->frame.isInApp = isInApp(reading->frame, reading->form, m_inAppPrefixes);
    pending.push_back(std::move(reading->frame));
  }
  flush();
  bool anyCrashed = std::any_of(report.threads.begin(), report.threads.end(),
                                [](const ThreadTrace& t) { return t.isCrashed; });
  if (implicitFirstThread && !anyCrashed) report.threads.front().isCrashed = true;
  report.rawText = std::move(text);
  return report;
}

}  // namespace quillora::crash
