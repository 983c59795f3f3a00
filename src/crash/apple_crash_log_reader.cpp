#include "crash/apple_crash_log_reader.h"

#include <fmt/format.h>

#include <cstdint>
#include <set>

#include "base/json.h"
#include "base/strings.h"
#include "crash/in_app_rules.h"
#include "crash/parser_pattern.h"

namespace quillora::crash {

namespace {

using base::Json;

std::string_view firstLine(std::string_view text) {
  size_t end = text.find('\n');
  return base::trim(end == std::string_view::npos ? text : text.substr(0, end));
}

std::string_view afterFirstLine(std::string_view text) {
  size_t end = text.find('\n');
  return end == std::string_view::npos ? std::string_view() : text.substr(end + 1);
}

// The .ips header is one JSON object on the first line; Apple always writes "bug_type" in it.
bool hasIpsHeader(std::string_view text) {
  std::string_view line = firstLine(text);
  if (line.size() < 2 || line.front() != '{' || line.back() != '}') return false;
  if (line.find("\"bug_type\"") == std::string_view::npos) return false;
  auto header = base::parseJson(line);
  return header && header->is_object();
}

uint64_t readUnsigned(const Json& object, const char* key) {
  if (!object.is_object()) return 0;
  auto it = object.find(key);
  if (it == object.end()) return 0;
  if (it->is_number_unsigned()) return it->get<uint64_t>();
  if (it->is_number_integer()) return static_cast<uint64_t>(it->get<long long>());
  return 0;
}

std::string text(const Json& object, const char* key) { return base::readString(object, key).value_or(""); }

const Json& member(const Json& object, const char* key) {
  static const Json null;
  if (!object.is_object()) return null;
  auto it = object.find(key);
  return it == object.end() ? null : *it;
}

struct Image {
  std::string name;
  std::string path;
  uint64_t base = 0;
};

bool isSystemImagePath(std::string_view path) {
  for (std::string_view folder : {"/System/", "/usr/lib/", "/Library/Apple/", "/private/preboot/",
                                  "/System/iOSSupport/", "/Developer/"}) {
    if (path.substr(0, folder.size()) == folder) return true;
  }
  return false;
}

std::vector<Image> readImages(const Json& body) {
  std::vector<Image> images;
  const Json& list = member(body, "usedImages");
  if (!list.is_array()) return images;
  for (const Json& item : list) {
    Image image;
    image.name = text(item, "name");
    image.path = text(item, "path");
    image.base = readUnsigned(item, "base");
    if (image.name.empty() && !image.path.empty()) image.name = image.path.substr(image.path.rfind('/') + 1);
    if (image.name.empty()) image.name = "???";
    images.push_back(std::move(image));
  }
  return images;
}

// One frame as Apple's own text rendering writes it.
std::string renderFrame(size_t index, const Json& frame, const std::vector<Image>& images) {
  uint64_t imageIndex = readUnsigned(frame, "imageIndex");
  const Image* image = imageIndex < images.size() ? &images[imageIndex] : nullptr;
  uint64_t offset = readUnsigned(frame, "imageOffset");
  uint64_t base = image ? image->base : 0;
  std::string symbol = text(frame, "symbol");
  std::string where;
  if (symbol.empty()) {
    where = fmt::format("0x{:x} + {}", base, offset);
  } else {
    where = fmt::format("{} + {}", symbol, readUnsigned(frame, "symbolLocation"));
    std::string file = text(frame, "sourceFile");
    if (!file.empty()) where += fmt::format(" ({}:{})", file, readUnsigned(frame, "sourceLine"));
  }
  return fmt::format("{:<3} {:<30} 0x{:016x} {}\n", index, image ? image->name : "???", base + offset, where);
}

std::string renderFrames(const Json& frames, const std::vector<Image>& images) {
  std::string out;
  if (!frames.is_array()) return out;
  size_t index = 0;
  for (const Json& frame : frames) {
    if (frame.is_object()) out += renderFrame(index++, frame, images);
  }
  return out;
}

void appendLine(std::string& out, std::string_view label, const std::string& value) {
  if (!value.empty()) out += fmt::format("{:<20}{}\n", std::string(label) + ":", value);
}

std::string renderIps(const Json& header, const Json& body, std::set<std::string>& systemImages) {
  std::vector<Image> images = readImages(body);
  for (const Image& image : images) {
    if (isSystemImagePath(image.path)) systemImages.insert(image.name);
  }
  std::string out;
  appendLine(out, "Incident Identifier", text(header, "incident_id"));
  appendLine(out, "Hardware Model", text(body, "modelCode"));
  std::string process = text(body, "procName");
  if (process.empty()) process = text(header, "name");
  if (auto pid = base::readInteger(body, "pid")) process += fmt::format(" [{}]", *pid);
  appendLine(out, "Process", process);
  appendLine(out, "Path", text(body, "procPath"));
  appendLine(out, "Identifier", text(header, "bundleID"));
  std::string version = text(header, "app_version");
  if (!version.empty() && !text(header, "build_version").empty())
    version += " (" + text(header, "build_version") + ")";
  appendLine(out, "Version", version);
  appendLine(out, "OS Version", text(header, "os_version"));
  appendLine(out, "Date/Time", text(body, "captureTime"));
  out += "\n";

  const Json& exception = member(body, "exception");
  std::string type = text(exception, "type");
  if (!type.empty()) {
    std::string signal = text(exception, "signal");
    appendLine(out, "Exception Type", signal.empty() ? type : type + " (" + signal + ")");
  }
  appendLine(out, "Exception Subtype", text(exception, "subtype"));
  appendLine(out, "Exception Message", text(exception, "message"));
  appendLine(out, "Exception Codes", text(exception, "codes"));
  const Json& termination = member(body, "termination");
  if (termination.is_object()) {
    std::string reason = "Namespace " + text(termination, "namespace");
    if (termination.contains("code")) reason += ", Code " + text(termination, "code");
    std::string indicator = text(termination, "indicator");
    if (!indicator.empty()) reason += " " + indicator;
    appendLine(out, "Termination Reason", reason);
    const Json& reasons = member(termination, "reasons");
    if (reasons.is_array()) {
      for (const Json& line : reasons) {
        if (line.is_string()) out += line.get<std::string>() + "\n";
      }
    }
  }
  long long faulting = base::readInteger(body, "faultingThread").value_or(-1);
  if (faulting >= 0) appendLine(out, "Triggered by Thread", std::to_string(faulting));
  out += "\n";

  const Json& asi = member(body, "asi");
  if (asi.is_object() && !asi.empty()) {
    out += "Application Specific Information:\n";
    for (const auto& [owner, lines] : asi.items()) {
      if (lines.is_string()) out += lines.get<std::string>() + "\n";
      if (!lines.is_array()) continue;
      for (const Json& line : lines) {
        if (line.is_string()) out += line.get<std::string>() + "\n";
      }
    }
    out += "\n";
  }
  const Json& lastException = member(body, "lastExceptionBacktrace");
  if (lastException.is_array() && !lastException.empty()) {
    out += "Last Exception Backtrace:\n" + renderFrames(lastException, images) + "\n";
  }

  const Json& threads = member(body, "threads");
  if (threads.is_array()) {
    long long number = 0;
    for (const Json& thread : threads) {
      if (!thread.is_object()) continue;
      bool crashed = base::readBool(thread, "triggered").value_or(false) || number == faulting;
      std::string name = text(thread, "name");
      std::string queue = text(thread, "queue");
      if (!name.empty()) out += fmt::format("Thread {} name:  {}\n", number, name);
      out += fmt::format("Thread {}{}:", number, crashed ? " Crashed" : "");
      out += queue.empty() ? "\n" : ":  Dispatch queue: " + queue + "\n";
      out += renderFrames(member(thread, "frames"), images) + "\n";
      ++number;
    }
  }

  if (!images.empty()) {
    out += "Binary Images:\n";
    const Json& list = member(body, "usedImages");
    for (size_t i = 0; i < images.size(); ++i) {
      uint64_t size = readUnsigned(list[i], "size");
      out += fmt::format("0x{:x} - 0x{:x} {} {} <{}> {}\n", images[i].base,
                         images[i].base + (size ? size - 1 : 0), images[i].name, text(list[i], "arch"),
                         text(list[i], "uuid"), images[i].path);
    }
  }
  return out;
}

// What both kinds share once the parser has read the text.
void refine(CrashReport& report, const std::set<std::string>& systemImages,
            const std::vector<std::string>& prefixes) {
  static const base::Regex uncaught = compileParserPattern(
      R"(Terminating app due to uncaught exception '([^'\n]+)', reason: '([^\n]*)')");
  static const base::Regex symbolInParentheses =
      compileParserPattern(R"(^0x[0-9a-fA-F]+ \+ \d+ \((.+?)(?: \+ \d+)?\)$)");
  if (auto match = uncaught.search(report.rawText)) {
    report.exceptionType = std::string(match->group(1));
    report.exceptionMessage = std::string(match->group(2));
  }
  for (ThreadTrace& thread : report.threads) {
    for (StackFrame& frame : thread.frames) {
      if (auto match = symbolInParentheses.search(frame.symbol)) {
        frame.symbol = std::string(match->group(1));
        frame.isInApp = isInApp(frame, FrameForm::appleWithAddress, prefixes);
      }
      if (frame.isInApp && systemImages.count(frame.module) && !matchesInAppPrefix(frame, prefixes)) {
        frame.isInApp = false;
      }
    }
  }
}

}  // namespace

AppleCrashLogKind appleCrashLogKind(std::string_view text) {
  static const base::Regex textMarkers = compileParserPattern(
      R"(^(?:Incident Identifier:|Exception Type:|Triggered by Thread:|Crashed Thread:))", true);
  static const base::Regex threadHeader = compileParserPattern(R"(^Thread \d+(?: Crashed)?:)", true);
  if (hasIpsHeader(text)) {
    std::string_view body = base::trim(afterFirstLine(text));
    if (!body.empty() && body.front() == '{') return AppleCrashLogKind::ips;
    text = afterFirstLine(text);
  }
  // Only the head of a report carries these keys; looking further would cost time on large
  // logs that aren't Apple's.
  std::string_view head = text.substr(0, 64 * 1024);
  if (textMarkers.test(head) && (threadHeader.test(text) || head.find("Incident Identifier:") != std::string_view::npos)) {
    return AppleCrashLogKind::text;
  }
  return AppleCrashLogKind::none;
}

CrashReport readAppleCrashLog(std::string text, const StackTraceParser& parser) {
  std::set<std::string> systemImages;
  if (hasIpsHeader(text)) {
    auto header = base::parseJson(firstLine(text));
    auto body = base::parseJson(afterFirstLine(text));
    if (header && body && body->is_object()) {
      text = renderIps(*header, *body, systemImages);
    }
  }
  CrashReport report = parser.parse(std::move(text));
  refine(report, systemImages, parser.inAppPrefixes());
  return report;
}

CrashReport readCrashText(std::string text, const StackTraceParser& parser) {
  if (appleCrashLogKind(text) != AppleCrashLogKind::none) return readAppleCrashLog(std::move(text), parser);
  return parser.parse(std::move(text));
}

}  // namespace quillora::crash
