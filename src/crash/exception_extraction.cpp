#include "crash/exception_extraction.h"

#include <functional>

#include "base/strings.h"
#include "crash/parser_pattern.h"

namespace quillora::crash {

namespace {

using base::Regex;
using base::RegexMatch;

// The first match of `regex` that lies within one line. A multi-line pattern's "\s" also eats
// line breaks; a match that spills over is tried again on its own line alone.
std::optional<RegexMatch> searchWithinLines(const Regex& regex, std::string_view text) {
  size_t offset = 0;
  while (offset <= text.size()) {
    auto match = regex.search(text, offset);
    if (!match) return std::nullopt;
    size_t lineStart = 0;
    if (match->start() > 0) {
      size_t newline = text.rfind('\n', match->start() - 1);
      lineStart = newline == std::string_view::npos ? 0 : newline + 1;
    }
    size_t lineEnd = text.find('\n', match->start());
    if (lineEnd == std::string_view::npos) lineEnd = text.size();
    if (match->end() <= lineEnd) return match;
    if (auto inLine = regex.search(text.substr(lineStart, lineEnd - lineStart))) return inLine;
    offset = lineEnd + 1;
  }
  return std::nullopt;
}

std::pair<std::string, std::string> splitAt(std::string_view text, std::string_view separator) {
  size_t at = text.find(separator);
  if (at == std::string_view::npos) return {base::trimmed(text), ""};
  return {base::trimmed(text.substr(0, at)), base::trimmed(text.substr(at + separator.size()))};
}

struct Rule {
  const Regex& regex;
  std::function<ExceptionInfo(const RegexMatch&)> read;
};

ExceptionInfo typeAndMessage(const RegexMatch& m, size_t typeGroup, size_t messageGroup) {
  return {std::string(m.group(typeGroup)), base::trimmed(m.group(messageGroup))};
}

}  // namespace

ExceptionInfo findException(std::string_view text) {
  static const Regex crashlytics =
      compileParserPattern(R"(^(Fatal Exception|Non-fatal Exception|Exception):\s*(.+)$)", true);
  static const Regex exceptionType = compileParserPattern(R"(^Exception Type:\s*(\S+)\s*(.*)$)", true);
  static const Regex machOrSignal =
      compileParserPattern(R"(^((?:EXC_[A-Z_]+)|(?:SIG[A-Z]+))\b\s*(.*)$)", true);
  static const Regex signalLine = compileParserPattern(R"(signal\s+\d+\s+\((SIG\w+)\),?\s*(.*)$)", true);
  static const Regex causedBy =
      compileParserPattern(R"(^Caused by:\s*((?:[\w$]+\.)*[\w$]+)(?::\s*(.*))?$)", true);
  static const Regex throwable = compileParserPattern(
      R"(^((?:[\w$]+\.)*[A-Z][\w$]*(?:Exception|Error|Throwable))(?::\s*(.*))?$)", true);
  static const Regex assertion = compileParserPattern(R"(^Assertion failed:\s*(.+)$)", true);
  static const Regex unhandled = compileParserPattern(R"(^Unhandled Exception:\s*(.+)$)", true);
  static const Regex fatalError = compileParserPattern(R"(^(?:Fatal error|fatal error):\s*(.+)$)", true);
  static const Regex abortMessage = compileParserPattern(R"(^Abort message:\s*(.+)$)", true);
  static const Regex termination = compileParserPattern(R"(^Termination Reason:\s*(.+)$)", true);

  static const std::vector<Rule> rules = {
      {crashlytics,
       [](const RegexMatch& m) {
         auto [type, message] = splitAt(m.group(2), ": ");
         return ExceptionInfo{type, message};
       }},
      {exceptionType, [](const RegexMatch& m) { return typeAndMessage(m, 1, 2); }},
      {machOrSignal, [](const RegexMatch& m) { return typeAndMessage(m, 1, 2); }},
      {signalLine, [](const RegexMatch& m) { return typeAndMessage(m, 1, 2); }},
      {causedBy, [](const RegexMatch& m) { return typeAndMessage(m, 1, 2); }},
      {throwable, [](const RegexMatch& m) { return typeAndMessage(m, 1, 2); }},
      {assertion,
       [](const RegexMatch& m) { return ExceptionInfo{"Assertion failed", base::trimmed(m.group(1))}; }},
      {unhandled,
       [](const RegexMatch& m) {
         std::string_view rest = base::trim(m.group(1));
         size_t end = rest.find_first_of(": \t");
         if (end == std::string_view::npos) return ExceptionInfo{std::string(rest), ""};
         std::string_view message = rest.substr(end);
         while (!message.empty() && (message.front() == ':' || message.front() == ' ' || message.front() == '\t'))
           message.remove_prefix(1);
         return ExceptionInfo{std::string(rest.substr(0, end)), std::string(message)};
       }},
      {fatalError,
       [](const RegexMatch& m) { return ExceptionInfo{"Fatal error", base::trimmed(m.group(1))}; }},
      {abortMessage,
       [](const RegexMatch& m) { return ExceptionInfo{"SIGABRT", base::trimmed(m.group(1))}; }},
      {termination, [](const RegexMatch& m) { return ExceptionInfo{"", base::trimmed(m.group(1))}; }},
  };

  for (const Rule& rule : rules) {
    if (auto match = searchWithinLines(rule.regex, text)) return rule.read(*match);
  }
  return {};
}

}  // namespace quillora::crash
