#include "git/patch_paths.h"

#include "base/strings.h"
#include "git/git_error.h"

namespace quillora::git {

namespace {

enum class Placement { inside, outside, gitFolder };

Placement placementOf(std::string_view path) {
  if (path.empty() || path.front() == '/') return Placement::outside;
  int depth = 0;
  bool inGitFolder = false;
  for (const std::string& part : base::split(path, '/')) {
    if (part.empty() || part == ".") continue;
    if (part == "..") {
      if (--depth < 0) return Placement::outside;
      continue;
    }
    // Case-insensitive file systems see ".GIT" as the same folder.
    if (base::toLowerASCII(part) == ".git") inGitFolder = true;
    ++depth;
  }
  return inGitFolder ? Placement::gitFolder : Placement::inside;
}

}  // namespace

std::vector<std::string> patchSourcePaths(std::string_view patchText) {
  // Such header lines can't be hunk content: every hunk line starts with " ", "+", "-" or "\".
  std::vector<std::string> paths;
  for (std::string_view line : base::splitLines(patchText)) {
    for (std::string_view prefix : {"rename from ", "copy from ", "rename old "}) {
      if (!line.starts_with(prefix)) continue;
      std::string_view path = line.substr(prefix.size());
      if (path.size() >= 2 && path.front() == '"' && path.back() == '"') {
        path = path.substr(1, path.size() - 2);
      }
      paths.emplace_back(path);
    }
  }
  return paths;
}

void refuseUnsafePatchPaths(const std::vector<std::string>& paths, const std::string& repoName) {
  for (const std::string& path : paths) {
    switch (placementOf(path)) {
      case Placement::inside:
        break;
      case Placement::outside:
        throw GitError("The fix's patch touches " + path + ", which is outside " + repoName +
                       ", so Quillora applied nothing.");
      case Placement::gitFolder:
        throw GitError("The fix's patch touches " + path + " inside the .git folder of " +
                       repoName + ", so Quillora applied nothing.");
    }
  }
}

}  // namespace quillora::git
