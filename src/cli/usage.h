#pragma once

#include <string>

namespace quillora::cli {

// The general usage printed by `quillora help` (and by `quillora` alone).
std::string generalUsage();
// One command's usage; the general usage for a name that is not a command.
std::string commandUsage(const std::string& command);

}  // namespace quillora::cli
