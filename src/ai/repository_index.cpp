#include "ai/repository_index.h"

#include <array>
#include <cerrno>
#include <cstring>

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include "base/strings.h"

namespace quillora::ai {

namespace {

constexpr std::array<std::string_view, 24> kSkippedFolders = {
    ".git",        "Library",      "Temp",     "Obj",         "obj",         "Build",
    "Builds",      "build",        "DerivedData", "Pods",     "Carthage",    "node_modules",
    "Intermediate", "Binaries",    "Saved",    "DerivedDataCache", ".gradle", ".idea",
    ".vs",         "Logs",         "PackageCache", ".build",  "xcuserdata",  ".swiftpm"};

bool equalsIgnoringCaseASCII(std::string_view a, std::string_view b) {
  if (a.size() != b.size()) return false;
  for (size_t i = 0; i < a.size(); ++i) {
    char x = a[i], y = b[i];
    if (x >= 'A' && x <= 'Z') x = static_cast<char>(x - 'A' + 'a');
    if (y >= 'A' && y <= 'Z') y = static_cast<char>(y - 'A' + 'a');
    if (x != y) return false;
  }
  return true;
}

class Walker {
 public:
  Walker(size_t limit, std::string& arena, std::vector<uint32_t>& starts,
         std::vector<uint32_t>& nameOffsets)
      : m_limit(limit), m_arena(arena), m_starts(starts), m_nameOffsets(nameOffsets) {}

  // Returns false once the limit has been passed, which ends the whole walk.
  bool walk(int dirFD, std::string& relative) {
    DIR* dir = fdopendir(dirFD);
    if (!dir) {
      close(dirFD);
      return true;
    }
    bool keepGoing = true;
    while (keepGoing) {
      errno = 0;
      dirent* entry = readdir(dir);
      if (!entry) break;
      const char* name = entry->d_name;
      if (name[0] == '.' && (name[1] == 0 || (name[1] == '.' && name[2] == 0))) continue;
      unsigned char type = entry->d_type;
      if (type == DT_UNKNOWN) {
        struct stat info {};
        if (fstatat(dirfd(dir), name, &info, AT_SYMLINK_NOFOLLOW) != 0) continue;
        type = S_ISDIR(info.st_mode) ? DT_DIR : S_ISREG(info.st_mode) ? DT_REG : DT_LNK;
      }
      if (type == DT_REG) {
        keepGoing = addFile(relative, name);
      } else if (type == DT_DIR) {
        if (RepositoryIndex::isSkippedFolder(name)) continue;
        int child = openat(dirfd(dir), name, O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC);
        if (child < 0) continue;
        size_t before = relative.size();
        relative += name;
        relative += '/';
        keepGoing = walk(child, relative);
        relative.resize(before);
      }
      // Symbolic links are left alone: they may point outside the repository or back up.
    }
    closedir(dir);
    return keepGoing;
  }

  bool reachedLimit() const { return m_reachedLimit; }

 private:
  bool addFile(const std::string& relative, const char* name) {
    if (m_starts.size() >= m_limit) {
      m_reachedLimit = true;
      return false;
    }
    m_starts.push_back(static_cast<uint32_t>(m_arena.size()));
    m_nameOffsets.push_back(static_cast<uint32_t>(relative.size()));
    m_arena += relative;
    m_arena += name;
    m_arena += '\0';
    return true;
  }

  size_t m_limit;
  std::string& m_arena;
  std::vector<uint32_t>& m_starts;
  std::vector<uint32_t>& m_nameOffsets;
  bool m_reachedLimit = false;
};

}  // namespace

bool RepositoryIndex::isSkippedFolder(std::string_view name) {
  for (auto skipped : kSkippedFolders)
    if (skipped == name) return true;
  return false;
}

RepositoryIndex RepositoryIndex::build(const std::filesystem::path& root, size_t limit) {
  RepositoryIndex index;
  int rootFD = open(root.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
  if (rootFD < 0) return index;
  Walker walker(limit, index.m_arena, index.m_starts, index.m_nameOffsets);
  std::string relative;
  walker.walk(rootFD, relative);
  index.m_reachedLimit = walker.reachedLimit();
  index.m_arena.shrink_to_fit();
  index.m_starts.shrink_to_fit();
  index.m_nameOffsets.shrink_to_fit();
  return index;
}

std::string_view RepositoryIndex::path(size_t i) const {
  size_t start = m_starts.at(i);
  size_t end = i + 1 < m_starts.size() ? m_starts[i + 1] - 1 : m_arena.size() - 1;
  return std::string_view(m_arena).substr(start, end - start);
}

std::string_view RepositoryIndex::fileName(size_t i) const { return path(i).substr(m_nameOffsets.at(i)); }

std::vector<size_t> RepositoryIndex::filesNamed(std::string_view name) const {
  std::vector<size_t> out;
  for (size_t i = 0; i < size(); ++i)
    if (equalsIgnoringCaseASCII(fileName(i), name)) out.push_back(i);
  return out;
}

}  // namespace quillora::ai
