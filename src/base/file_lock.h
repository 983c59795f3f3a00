#pragma once

#include <filesystem>
#include <string>

namespace quillora::base {

// An exclusive cross-process lock: flock on a sidecar file in the application-support folder
// (mode 0644, never deleted, so every process locks the same inode). Released by unlock(), by the
// destructor, or by the kernel when the holder dies. Not shared between threads of one process.
class FileLock {
 public:
  // `name` is the file name, e.g. "cost-ledger.lock".
  explicit FileLock(std::string name);
  explicit FileLock(const char* name) : FileLock(std::string(name)) {}
  // A lock file at an explicit path (tests, or stores kept elsewhere).
  explicit FileLock(std::filesystem::path path);
  ~FileLock();
  FileLock(const FileLock&) = delete;
  FileLock& operator=(const FileLock&) = delete;

  // Blocks until the lock is held. Throws quillora::Error when the lock file can't be opened,
  // CancelledError when Ctrl-C interrupts the wait.
  void lock();
  // Takes the lock if it is free; false when another process holds it.
  bool tryLock();
  void unlock();
  [[nodiscard]] bool isLocked() const { return m_fd >= 0; }
  [[nodiscard]] const std::filesystem::path& path() const { return m_path; }

 private:
  int open();
  std::filesystem::path m_path;
  int m_fd = -1;
};

// Holds a FileLock for one scope.
class FileLockGuard {
 public:
  explicit FileLockGuard(FileLock& lock) : m_lock(lock) { m_lock.lock(); }
  ~FileLockGuard() { m_lock.unlock(); }
  FileLockGuard(const FileLockGuard&) = delete;
  FileLockGuard& operator=(const FileLockGuard&) = delete;

 private:
  FileLock& m_lock;
};

}  // namespace quillora::base
