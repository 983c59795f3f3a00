#pragma once

#include <string>

#include "base/json.h"
#include "cli/arguments.h"

namespace quillora::cli {

// One running command: its table entry, its parsed arguments and its output format.
struct CommandContext {
  const CommandSpec& commandSpec;
  ParsedArguments args;
  std::string format;
};

// Writes the result to --out (then "Wrote <path>" on stderr) or to standard output. A file that
// can't be written throws quillora::Error with the file system's reason.
void writeResult(const CommandContext& context, const std::string& text);
// Writes a file the user asked for (--out, --markdown-out) and says so on stderr.
void writeUserFile(const std::string& path, const std::string& text);
// A JSON document as the result, ending with a newline.
void writeJsonResult(const CommandContext& context, const base::Json& document);

// The JSON documents' common head: "schemaVersion", "command", "ok".
base::Json jsonResultHead(const std::string& command, bool ok);
inline constexpr int kJsonSchemaVersion = 1;

}  // namespace quillora::cli
