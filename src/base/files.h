#pragma once

#include <filesystem>
#include <optional>
#include <string>
#include <string_view>

namespace quillora::base {

// The whole file, or nullopt with *reason set to the system's reason ("No such file or directory").
std::optional<std::string> readFile(const std::filesystem::path& path, std::string* reason = nullptr);

// Replaces `path` with `content` so that readers see either the old file or the new one, never a
// part: a temporary file in the same folder, fsync, rename, then fsync of the folder. The old file
// is never removed first. Throws quillora::Error naming the file and the reason.
void writeFileAtomically(const std::filesystem::path& path, std::string_view content,
                         unsigned mode = 0644);

}  // namespace quillora::base
