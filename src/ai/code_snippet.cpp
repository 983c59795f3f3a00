#include "ai/code_snippet.h"

#include <fmt/format.h>

#include "base/strings.h"

namespace quillora::ai {

namespace {
std::string fenceLanguage(const std::string& path) {
  auto slash = path.rfind('/');
  std::string_view name = std::string_view(path).substr(slash == std::string::npos ? 0 : slash + 1);
  auto dot = name.rfind('.');
  if (dot == std::string_view::npos || dot == 0) return "";
  return std::string(name.substr(dot + 1));
}
}  // namespace

std::string renderSnippet(const CodeSnippet& snippet) {
  std::string out = "### " + snippet.path;
  if (snippet.isWholeFile) {
    out += " (entire file)\n";
  } else {
    out += fmt::format(" (lines {}-{})\n", snippet.startLine, snippet.endLine);
  }
  out += "Referenced by: " + snippet.reason + "\n";
  out += "```" + fenceLanguage(snippet.path) + "\n";
  int number = snippet.startLine;
  for (std::string_view line : base::splitLines(snippet.text)) {
    out += fmt::format("{:>5} | {}\n", number++, line);
  }
  out += "```";
  return out;
}

}  // namespace quillora::ai
