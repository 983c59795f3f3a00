#pragma once

#include <string_view>

#include "base/regex.h"

namespace quillora::crash {

// Compiles one of the parser's own patterns. They are constants of the program, so one that
// doesn't compile is a programming error: the process stops with a line naming StackTraceParser.
// Callers keep the result in a function-local static so each pattern compiles once per process.
base::Regex compileParserPattern(std::string_view pattern, bool multiline = false);

// Number of non-overlapping matches of `regex` in `text`.
size_t countMatches(const base::Regex& regex, std::string_view text);

}  // namespace quillora::crash
