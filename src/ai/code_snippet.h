#pragma once

#include <string>

// One source excerpt sent with a crash, and how it reads inside the prompt.
namespace quillora::ai {

struct CodeSnippet {
  std::string path;  // repo-relative, "/"-separated
  int startLine = 1;  // counted from 1
  int endLine = 0;
  std::string text;  // the lines joined by "\n"
  std::string reason;  // the frame that led to the file
  bool isWholeFile = false;
  bool operator==(const CodeSnippet&) const = default;
};

// "### <path> (entire file)" or " (lines a-b)", "Referenced by: <reason>", a fence named after the
// file's extension, every line as its number right-aligned in 5 columns + " | " + text, and the
// closing fence (no newline after it). Models are told never to copy the " 123 | " prefixes.
std::string renderSnippet(const CodeSnippet& snippet);

}  // namespace quillora::ai
