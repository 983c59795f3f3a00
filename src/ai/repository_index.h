#pragma once

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <string>
#include <string_view>
#include <vector>

// The list of a repository's source files, walked once per analysis.
namespace quillora::ai {

class RepositoryIndex {
 public:
  static constexpr size_t kFileLimit = 250'000;

  // Walks `root` without following symbolic links, skipping the build, cache and tool folders
  // (isSkippedFolder) at any depth. The walk ends at the (limit + 1)th file, keeping `limit`
  // files. Unreadable folders are skipped; a root that can't be opened gives an empty index.
  static RepositoryIndex build(const std::filesystem::path& root, size_t limit = kFileLimit);

  // The 24 folder names that never hold source worth sending (".git", "Library", "Pods", …).
  static bool isSkippedFolder(std::string_view name);

  [[nodiscard]] size_t size() const { return m_starts.size(); }
  // True when the walk stopped at the file limit.
  [[nodiscard]] bool reachedLimit() const { return m_reachedLimit; }
  // The repo-relative, "/"-separated path of file i.
  [[nodiscard]] std::string_view path(size_t i) const;
  // The last component of file i's path.
  [[nodiscard]] std::string_view fileName(size_t i) const;
  // The files whose name equals `name` without regard to ASCII case, in walk order.
  [[nodiscard]] std::vector<size_t> filesNamed(std::string_view name) const;

 private:
  // All paths back to back in one buffer: a quarter of a million small strings would cost more
  // in allocation headers than in text.
  std::string m_arena;
  std::vector<uint32_t> m_starts;
  std::vector<uint32_t> m_nameOffsets;  // where the file name starts, relative to the path
  bool m_reachedLimit = false;
};

}  // namespace quillora::ai
