#include "crash/parser_pattern.h"

#include <cstdio>
#include <cstdlib>
#include <stdexcept>

namespace quillora::crash {

base::Regex compileParserPattern(std::string_view pattern, bool multiline) {
  try {
    return base::Regex(pattern, base::RegexOptions{.multiline = multiline});
  } catch (const std::logic_error& error) {
    std::fprintf(stderr, "StackTraceParser: %s\n", error.what());
    std::abort();
  }
}

size_t countMatches(const base::Regex& regex, std::string_view text) {
  size_t count = 0;
  size_t offset = 0;
  while (offset <= text.size()) {
    auto match = regex.search(text, offset);
    if (!match) break;
    ++count;
    // An empty match would repeat forever; step over it.
    offset = match->end() > match->start() ? match->end() : match->start() + 1;
  }
  return count;
}

}  // namespace quillora::crash
