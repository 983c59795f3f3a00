#pragma once

#include <string>
#include <string_view>
#include <vector>

// Where a patch may write: inside the repository, never in its git folder.
namespace quillora::git {

// The paths a patch names besides those it writes: the sources of its renames and copies
// ("rename from …", "copy from …" lines), as written (quotes removed).
std::vector<std::string> patchSourcePaths(std::string_view patchText);

// Throws GitError when a path climbs out of the repository ("../x", "/x", "a/../../x") or lies in a
// ".git" folder, naming the path and `repoName`. Called before anything is applied.
void refuseUnsafePatchPaths(const std::vector<std::string>& paths, const std::string& repoName);

}  // namespace quillora::git
