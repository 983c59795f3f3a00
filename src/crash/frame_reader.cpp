#include "crash/frame_reader.h"

#include <limits>

#include "base/strings.h"
#include "crash/parser_pattern.h"

namespace quillora::crash {

namespace {

using base::Regex;
using base::RegexMatch;

enum class Attempt {
  appleWithAddress,
  appleWithoutAddress,
  androidNative,
  java,
  javaWithJavaLocation,  // Java, but only when the parentheses hold a Java location
  javaConsole,           // "pkg.Class.method (File.java:12)" as the Crashlytics console shows it
  unityWithLocation,
  dotNet,
  windows,
  unityWithoutLocation,
};

std::optional<int> lineNumber(std::string_view digits) {
  auto value = base::parseInteger(digits);
  if (!value || *value < 0 || *value > std::numeric_limits<int>::max()) return std::nullopt;
  return static_cast<int>(*value);
}

std::string removeAll(const Regex& regex, std::string_view text) { return regex.replaceAll(text, ""); }

std::string removeTail(const Regex& regex, std::string text) {
  if (auto match = regex.search(text)) text.erase(match->start());
  return text;
}

// The enclosing type of a qualified method name: everything before the last "." or ":".
std::string enclosingType(std::string_view method) {
  size_t at = method.find_last_of(".:");
  return at == std::string_view::npos ? std::string() : std::string(method.substr(0, at));
}

// The Java location clean-up. Returns false when the text is no Java location at all.
bool readJavaLocation(std::string_view location, StackFrame& frame) {
  static const Regex javaFile =
      compileParserPattern(R"(^[\w$\-]+\.(java|kt|kts|scala|groovy)(:\d+)?$)");
  static const Regex sourceFile = compileParserPattern(R"(^SourceFile(:\d+)?$)");
  if (location == "Native Method" || location.substr(0, 14) == "Unknown Source") return true;
  if (sourceFile.test(location)) return true;  // R8/ProGuard placeholder: no real file
  if (javaFile.test(location)) {
    size_t colon = location.find(':');
    frame.file = std::string(location.substr(0, colon));
    if (colon != std::string_view::npos) frame.line = lineNumber(location.substr(colon + 1));
    return true;
  }
  return false;
}

std::optional<FrameReading> appleFrame(const RegexMatch& m, FrameForm form) {
  static const Regex compilerGenerated = compileParserPattern(R"(\s*\(<compiler-generated>\)$)");
  static const Regex offsetTail = compileParserPattern(R"(\s+\+\s+\d+$)");
  FrameReading reading;
  reading.form = form;
  reading.hasIndex = true;
  reading.frame.index = lineNumber(m.group(1)).value_or(0);
  reading.frame.module = std::string(m.group(2));
  reading.frame.symbol = std::string(m.group(3));
  if (reading.frame.symbol.find("(<compiler-generated>)") != std::string::npos) {
    reading.frame.symbol = removeTail(compilerGenerated, std::move(reading.frame.symbol));
  }
  if (reading.frame.symbol.find('+') != std::string::npos) {
    reading.frame.symbol = removeTail(offsetTail, std::move(reading.frame.symbol));
  }
  if (m.hasGroup(4)) {
    reading.frame.file = std::string(m.group(4));
    reading.frame.line = lineNumber(m.group(5));
  }
  return reading;
}

std::optional<FrameReading> androidNativeFrame(const RegexMatch& m) {
  static const Regex buildId = compileParserPattern(R"(\(BuildId:[^)]*\))");
  static const Regex offset = compileParserPattern(R"(\(offset 0x[0-9a-fA-F]+\))");
  static const Regex fileLine = compileParserPattern(R"(\(([^()\s]+\.\w+):(\d+)\)\s*$)");
  static const Regex symbolOffset = compileParserPattern(R"(\s*\+\s*\d+$)");
  FrameReading reading;
  reading.form = FrameForm::androidNative;
  reading.hasIndex = true;
  reading.frame.index = lineNumber(m.group(1)).value_or(0);
  reading.frame.module = std::string(m.group(2));
  // Each clean-up pattern runs only when its text can be there at all.
  std::string rest(m.group(3));
  if (rest.find("(BuildId:") != std::string::npos) rest = removeAll(buildId, rest);
  if (rest.find("(offset 0x") != std::string::npos) rest = removeAll(offset, rest);
  if (rest.find(':') != std::string::npos) {
    if (auto location = fileLine.search(rest)) {
      reading.frame.file = std::string(location->group(1));
      reading.frame.line = lineNumber(location->group(2));
      rest.erase(location->start());
    }
  }
  std::string_view symbol = base::trim(rest);
  if (!symbol.empty() && symbol.front() == '(') {
    // The symbol is the text inside the first balanced pair of parentheses; it may hold
    // parentheses of its own ("Inventory::addItem(Item*)+44").
    int depth = 0;
    size_t close = std::string_view::npos;
    for (size_t i = 0; i < symbol.size(); ++i) {
      if (symbol[i] == '(') ++depth;
      if (symbol[i] == ')' && --depth == 0) {
        close = i;
        break;
      }
    }
    symbol = close == std::string_view::npos ? symbol.substr(1) : symbol.substr(1, close - 1);
  }
  reading.frame.symbol = std::string(base::trim(symbol));
  if (reading.frame.symbol.find('+') != std::string::npos) {
    reading.frame.symbol = removeTail(symbolOffset, std::move(reading.frame.symbol));
  }
  return reading;
}

std::optional<FrameReading> javaFrame(const RegexMatch& m, bool requireJavaLocation) {
  FrameReading reading;
  reading.form = FrameForm::java;
  std::string className(m.group(1));
  reading.frame.module = className;
  reading.frame.symbol = className + "." + std::string(m.group(2));
  if (!readJavaLocation(m.group(3), reading.frame) && requireJavaLocation) return std::nullopt;
  return reading;
}

std::optional<FrameReading> managedFrame(const RegexMatch& m, FrameForm form) {
  FrameReading reading;
  reading.form = form;
  std::string_view method = m.group(1);
  reading.frame.module = enclosingType(method);
  reading.frame.symbol = std::string(method) + " (" + std::string(m.group(2)) + ")";
  if (m.hasGroup(3)) {
    reading.frame.file = std::string(m.group(3));
    reading.frame.line = lineNumber(m.group(4));
  }
  return reading;
}

std::optional<FrameReading> javaConsoleFrame(const RegexMatch& m) {
  std::string_view method = m.group(1);
  size_t dot = method.rfind('.');
  if (dot == std::string_view::npos || method.find(':') != std::string_view::npos) return std::nullopt;
  FrameReading reading;
  reading.form = FrameForm::java;
  if (!readJavaLocation(m.group(2), reading.frame)) return std::nullopt;
  reading.frame.module = std::string(method.substr(0, dot));
  reading.frame.symbol = std::string(method);
  return reading;
}

std::optional<FrameReading> windowsFrame(const RegexMatch& m) {
  FrameReading reading;
  reading.form = FrameForm::windows;
  reading.frame.module = std::string(m.group(1));
  reading.frame.symbol = std::string(m.group(2));
  if (m.hasGroup(3)) {
    reading.frame.file = std::string(m.group(3));
    reading.frame.line = lineNumber(m.group(4));
  }
  return reading;
}

// Cheap necessary conditions, checked before a pattern is tried: most lines of a long trace are
// register dumps, memory maps and log noise that fail here without a regular expression.
bool startsWithIndexAndBlank(std::string_view line) {
  size_t digits = 0;
  while (digits < line.size() && line[digits] >= '0' && line[digits] <= '9') ++digits;
  return digits > 0 && digits < line.size() && (line[digits] == ' ' || line[digits] == '\t');
}
bool startsWithAt(std::string_view line) {
  return line.size() > 3 && line[0] == 'a' && line[1] == 't' && (line[2] == ' ' || line[2] == '\t');
}
bool endsWith(std::string_view line, char c) { return !line.empty() && line.back() == c; }
bool contains(std::string_view line, std::string_view part) { return line.find(part) != std::string_view::npos; }
bool isNameCharacter(char c) {
  return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '_' ||
         c == '.' || c == '-' || static_cast<unsigned char>(c) >= 0x80;
}

std::optional<FrameReading> attempt(Attempt kind, std::string_view line) {
  static const Regex appleWithAddress = compileParserPattern(
      R"(^(\d+)\s+(\S+)\s+0x[0-9a-fA-F]+\s+(.+?)(?:\s+\+\s+\d+)?(?:\s+\(([^()]+?):(\d+)\))?\s*$)");
  static const Regex appleWithoutAddress = compileParserPattern(
      R"(^(\d+)\s+(\S+)\s+(?!0x)(.+?)(?:\s+\+\s+\d+)?\s+\(([^()]+?\.\w+):(\d+)\)\s*$)");
  static const Regex androidNative =
      compileParserPattern(R"(^#(\d+)\s+pc\s+(?:0x)?[0-9a-fA-F]+\s+(\S+)(.*)$)");
  static const Regex java = compileParserPattern(
      R"(^at\s+([\w$.<>\-]+)\.([\w$<>\-]+)\(([^()]*)\)\s*(?:~?\[.*\])?\s*$)");
  static const Regex unityWithLocation =
      compileParserPattern(R"(^(.+?)\s*\(([^()]*)\)\s*\(at\s+(.+?):(\d+)\)\s*$)");
  static const Regex dotNet = compileParserPattern(
      R"(^at\s+(.+?)\s*\(([^()]*)\)\s*(?:\[0x[0-9a-fA-F]+\]\s*)?(?:in\s+(.+?):(?:line\s+)?(\d+))?\s*$)");
  static const Regex windows = compileParserPattern(
      R"(^(?:0x[0-9a-fA-F]+\s+)?([\w.\-]+)!(.+?)(?:\s*\[(.+?):(\d+)\])?\s*(?:\{.*\})?\s*$)");
  static const Regex unityWithoutLocation =
      compileParserPattern(R"(^([A-Za-z_][\w.`<>]*[.:][\w`<>]+)\s*\(([^()]*)\)\s*$)");

  // Each pattern is only tried on lines that could match it: a cheap look at the first
  // characters saves most of the regular-expression work on long traces.
  switch (kind) {
    case Attempt::appleWithAddress:
      if (!startsWithIndexAndBlank(line) || !contains(line, "0x")) return std::nullopt;
      if (auto m = appleWithAddress.search(line)) return appleFrame(*m, FrameForm::appleWithAddress);
      return std::nullopt;
    case Attempt::appleWithoutAddress:
      if (!startsWithIndexAndBlank(line) || !endsWith(line, ')')) return std::nullopt;
      if (auto m = appleWithoutAddress.search(line))
        return appleFrame(*m, FrameForm::appleWithoutAddress);
      return std::nullopt;
    case Attempt::androidNative:
      if (line.size() < 5 || line[0] != '#' || !contains(line, "pc")) return std::nullopt;
      if (auto m = androidNative.search(line)) return androidNativeFrame(*m);
      return std::nullopt;
    case Attempt::java:
    case Attempt::javaWithJavaLocation:
      if (!startsWithAt(line) || !contains(line, "(")) return std::nullopt;
      if (auto m = java.search(line)) return javaFrame(*m, kind == Attempt::javaWithJavaLocation);
      return std::nullopt;
    case Attempt::javaConsole:
      if (!endsWith(line, ')') || (!contains(line, ".java") && !contains(line, ".kt") &&
                                    !contains(line, "Source") && !contains(line, "Native Method"))) {
        return std::nullopt;
      }
      if (auto m = unityWithoutLocation.search(line)) return javaConsoleFrame(*m);
      return std::nullopt;
    case Attempt::unityWithLocation:
      if (!endsWith(line, ')') || !contains(line, "(at")) return std::nullopt;
      if (auto m = unityWithLocation.search(line)) return managedFrame(*m, FrameForm::unityWithLocation);
      return std::nullopt;
    case Attempt::dotNet:
      if (!startsWithAt(line) || !contains(line, "(")) return std::nullopt;
      if (auto m = dotNet.search(line)) return managedFrame(*m, FrameForm::dotNet);
      return std::nullopt;
    case Attempt::windows:
      if (!isNameCharacter(line[0]) || !contains(line, "!")) return std::nullopt;
      if (auto m = windows.search(line)) return windowsFrame(*m);
      return std::nullopt;
    case Attempt::unityWithoutLocation:
      if (!endsWith(line, ')') || !contains(line, "(")) return std::nullopt;
      if (auto m = unityWithoutLocation.search(line))
        return managedFrame(*m, FrameForm::unityWithoutLocation);
      return std::nullopt;
  }
  return std::nullopt;
}

const std::vector<Attempt>& attemptsFor(CrashPlatform platform) {
  using A = Attempt;
  static const std::vector<Attempt> iOS = {A::appleWithAddress, A::appleWithoutAddress};
  static const std::vector<Attempt> unity = {
      A::appleWithAddress, A::appleWithoutAddress, A::androidNative,        A::unityWithLocation,
      A::javaWithJavaLocation, A::dotNet,          A::unityWithoutLocation, A::windows};
  static const std::vector<Attempt> androidJava = {A::java, A::javaConsole, A::androidNative};
  static const std::vector<Attempt> androidNative = {A::androidNative, A::java};
  static const std::vector<Attempt> unreal = {A::windows, A::appleWithAddress, A::appleWithoutAddress,
                                              A::androidNative};
  static const std::vector<Attempt> unknown = {
      A::appleWithAddress, A::appleWithoutAddress, A::androidNative, A::javaWithJavaLocation,
      A::unityWithLocation, A::dotNet,             A::windows,       A::unityWithoutLocation};
  switch (platform) {
    case CrashPlatform::iOSNative: return iOS;
    case CrashPlatform::unity: return unity;
    case CrashPlatform::androidJava: return androidJava;
    case CrashPlatform::androidNative: return androidNative;
    case CrashPlatform::unreal: return unreal;
    case CrashPlatform::unknown: return unknown;
  }
  return unknown;
}

}  // namespace

std::optional<FrameReading> readFrame(std::string_view line, std::string_view raw,
                                      CrashPlatform platform) {
  if (line.empty() || line.size() > kMaxFrameLineLength) return std::nullopt;
  for (Attempt kind : attemptsFor(platform)) {
    if (auto reading = attempt(kind, line)) {
      reading->frame.raw = std::string(raw);
      return reading;
    }
  }
  return std::nullopt;
}

}  // namespace quillora::crash
