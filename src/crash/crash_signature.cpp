#include "crash/crash_signature.h"

#include "base/strings.h"
#include "base/text.h"
#include "crash/parser_pattern.h"

namespace quillora::crash {

namespace {

using base::Regex;

struct Rewrite {
  const Regex& regex;
  const char* replacement;
};

// Removes balanced <…> groups (generic arguments), keeping Java's <init> and <clinit>.
std::string withoutGenericArguments(const std::string& symbol) {
  std::string out;
  out.reserve(symbol.size());
  int depth = 0;
  for (size_t i = 0; i < symbol.size(); ++i) {
    char c = symbol[i];
    if (depth == 0 && c == '<') {
      std::string_view rest(symbol.data() + i, symbol.size() - i);
      if (rest.substr(0, 6) == "<init>" || rest.substr(0, 8) == "<clinit>") {
        size_t length = rest[1] == 'i' ? 6 : 8;
        out.append(rest.substr(0, length));
        i += length - 1;
        continue;
      }
    }
    if (c == '<') {
      ++depth;
      continue;
    }
    if (c == '>' && depth > 0) {
      --depth;
      continue;
    }
    if (depth == 0) out.push_back(c);
  }
  return out;
}

// Drops the parameter list: everything from the first "(" that follows a name.
std::string withoutParameters(std::string symbol) {
  for (size_t at = symbol.find('('); at != std::string::npos; at = symbol.find('(', at + 1)) {
    if (at > 0) {
      symbol.erase(at);
      break;
    }
  }
  return symbol;
}

std::string_view baseName(std::string_view path) {
  size_t slash = path.find_last_of("/\\");
  return slash == std::string_view::npos ? path : path.substr(slash + 1);
}

}  // namespace

std::string signatureFramePart(const StackFrame& frame) {
  // Ids that compilers number per build come first, before generic brackets vanish with them.
  static const Regex csharpLambda = compileParserPattern(R"(<([\w.]+)>b__\w+)");
  static const Regex csharpIterator = compileParserPattern(R"(<([\w.]+)>d__\d+)");
  static const Regex csharpDisplayClass = compileParserPattern(R"(<>c__DisplayClass\w*|<>c\b)");
  static const Regex msvcLambda = compileParserPattern(R"(<lambda_\w*>)");
  static const Regex msvcScope = compileParserPattern(R"(`\d+')");
  static const Regex anonymousNamespace = compileParserPattern(R"(\(anonymous namespace\)|`anonymous namespace')");
  static const Regex javaLambda = compileParserPattern(R"(\$\$Lambda\$[\w$]*?\$[\w\-]+|\$\$ExternalSyntheticLambda\d+|\$r8\$lambda\$[\w\-]+)");
  static const Regex numberedLambda = compileParserPattern(R"(lambda\$(\w+?)\$\d+)");
  static const Regex anonymousClass = compileParserPattern(R"(\$\d+)");
  static const Regex il2cppHash = compileParserPattern(R"(_m[0-9A-F]{6,}|_gshared\b)");
  static const Regex rustHash = compileParserPattern(R"(::h[0-9a-f]{16}\b)");
  static const Regex swiftClosure = compileParserPattern(R"(closure #\d+)");
  static const Regex address = compileParserPattern(R"(0x[0-9a-fA-F]+)");
  static const Regex offset = compileParserPattern(R"(\s*\+\s*\d+)");
  static const Regex location = compileParserPattern(R"(\s*\((?:at\s+)?[^()]*:\d+\)|\s*\[[^\[\]]*:\d+\]|:line \d+|:\d+)");
  static const Regex csharpArity = compileParserPattern(R"(`\d+)");
  static const Regex genericMethodArguments = compileParserPattern(R"((?<=\w)\[[^\[\]]*\])");
  static const Regex spaces = compileParserPattern(R"(\s+)");
  static const Regex emptyScopes = compileParserPattern(R"((?:::){2,})");

  std::string symbol = frame.symbol;
  const Rewrite early[] = {
      {csharpLambda, "$1.lambda"},   {csharpIterator, "$1.iterator"}, {csharpDisplayClass, "closure"},
      {msvcLambda, "lambda"},        {msvcScope, ""},                 {anonymousNamespace, "anonymous"},
      {javaLambda, "$$Lambda"},      {numberedLambda, "lambda$$$1"},  {anonymousClass, "$$anon"},
      {il2cppHash, ""},              {rustHash, ""},                  {swiftClosure, "closure"},
      {location, ""},                {address, ""},                   {offset, ""},
      {csharpArity, ""},             {emptyScopes, "::"},
  };
  for (const Rewrite& rewrite : early) symbol = rewrite.regex.replaceAll(symbol, rewrite.replacement);
  symbol = withoutGenericArguments(symbol);
  bool objectiveC = symbol.size() > 1 && (symbol[0] == '-' || symbol[0] == '+') && symbol[1] == '[';
  if (!objectiveC) symbol = genericMethodArguments.replaceAll(symbol, "");
  symbol = withoutParameters(symbol);
  symbol = base::trimmed(spaces.replaceAll(symbol, " "));
  if (symbol.empty()) symbol = std::string(baseName(frame.module));
  return std::string(base::prefixGraphemes(symbol, 160));
}

std::string signatureMessagePart(std::string_view message) {
  static const Regex identifiers = compileParserPattern(
      R"(0x[0-9a-fA-F]+|[0-9a-fA-F]{8}-[0-9a-fA-F]{4}-[0-9a-fA-F]{4}-[0-9a-fA-F]{4}-[0-9a-fA-F]{12}|\{[^{}]*\}|\d+)");
  static const Regex spaces = compileParserPattern(R"(\s+)");
  std::string text = spaces.replaceAll(identifiers.replaceAll(message, "#"), " ");
  return std::string(base::prefixGraphemes(base::trim(text), 100));
}

std::string crashSignature(const CrashReport& report) {
  std::string signature = "v1|" + (report.exceptionType.empty() ? std::string("Crash") : report.exceptionType);
  const ThreadTrace* thread = report.crashedThread();
  std::vector<const StackFrame*> chosen;
  if (thread) {
    for (const StackFrame& frame : thread->frames) {
      if (frame.isInApp && chosen.size() < 3) chosen.push_back(&frame);
    }
    if (chosen.empty()) {
      for (size_t i = 0; i < thread->frames.size() && i < 3; ++i) chosen.push_back(&thread->frames[i]);
    }
  }
  for (const StackFrame* frame : chosen) signature += "|" + signatureFramePart(*frame);
  if (chosen.empty()) {
    // Without frames only the words are left to tell crashes apart: the message, or else the
    // first line of the text.
    std::string_view words = report.exceptionMessage;
    if (words.empty()) {
      std::string_view text = base::trim(report.rawText);
      words = text.substr(0, text.find('\n'));
    }
    if (!words.empty()) signature += "|" + signatureMessagePart(words);
  }
  return signature;
}

}  // namespace quillora::crash
