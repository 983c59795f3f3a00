#pragma once

#include <optional>
#include <string>

#include "base/json.h"
#include "crash/identifier.h"

namespace quillora::crash {

// One frame of a thread, as read from a trace. Plain value; copy freely.
struct StackFrame {
  Identifier id = newIdentifier();  // identity for lists; fresh on creation and on decoding
  int index = 0;                     // position as the trace numbers it (0 = innermost)
  std::string module;                // binary, assembly, package or library; may be empty
  std::string symbol;                // function or method, cleaned; may be empty
  std::optional<std::string> file;
  std::optional<int> line;
  bool isInApp = false;  // the application's own code (the parser's in-app rules decide)
  std::string raw;       // the trace line the frame came from, unchanged

  // The symbol, or the raw line trimmed when there is no symbol.
  [[nodiscard]] std::string displaySymbol() const;
  // "File.cs:12" with a line of 1 or more, "File.cs" without one, nullopt without a file.
  [[nodiscard]] std::optional<std::string> location() const;
};

// JSON keys "index", "module", "symbol", "file", "line", "isInApp", "raw"; absent file and line
// are written as null. Decoding is lenient: missing or mistyped keys take their defaults.
void to_json(base::Json& json, const StackFrame& frame);
void from_json(const base::Json& json, StackFrame& frame);

}  // namespace quillora::crash
