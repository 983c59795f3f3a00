#pragma once

#include <filesystem>
#include <string>
#include <string_view>

namespace quillora::base {

// $HOME, else the password database's home folder.
std::filesystem::path homeDirectory();
// "~" and "~/…" expanded against the home folder; other paths unchanged.
std::filesystem::path expandTilde(std::string_view path);
// Where stores, locks and settings live: $QUILLORA_HOME, else $XDG_DATA_HOME/Quillora, else
// ~/.local/share/Quillora. Created (with parents) on first use; throws quillora::Error when that fails.
std::filesystem::path appSupportDirectory();
// The running executable's absolute path (/proc/self/exe).
std::filesystem::path executablePath();

}  // namespace quillora::base
