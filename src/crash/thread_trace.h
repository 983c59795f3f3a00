#pragma once

#include <string>
#include <vector>

#include "base/json.h"
#include "crash/identifier.h"
#include "crash/stack_frame.h"

namespace quillora::crash {

// One thread of a crash, frames innermost first.
struct ThreadTrace {
  Identifier id = newIdentifier();  // identity for lists; fresh on creation and on decoding
  std::string name;
  bool isCrashed = false;
  std::vector<StackFrame> frames;
};

// JSON keys "name", "isCrashed", "frames". Decoding skips frames that aren't objects.
void to_json(base::Json& json, const ThreadTrace& thread);
void from_json(const base::Json& json, ThreadTrace& thread);

}  // namespace quillora::crash
