#pragma once

#include "base/error.h"
#include "base/file_lock.h"

#include <chrono>
#include <filesystem>
#include <functional>
#include <string>

// Serialises all work in one repository across the processes of the system (desktop app, command
// line, background bot) and across tasks of one process.
namespace quillora::base {

// The repository lock couldn't be taken: its file can't be made, or the repository stayed busy.
class LockError : public Error {
public:
  using Error::Error;
  [[nodiscard]] std::string kind() const override { return "lock"; }
};

// How patiently the lock is waited for. The defaults are the product's; tests shrink them. The
// give-up text names the product's 15 minutes whatever `giveUpAfter` is.
struct RepositoryLockTiming {
  std::chrono::milliseconds retryInterval{3000};
  std::chrono::milliseconds giveUpAfter{900'000};
};

// Holds "repo-….lock" in the application-support folder from construction to destruction.
class RepositoryLock {
public:
  // Takes the lock, waiting while another task holds it. `onWaiting` receives "Waiting for another
  // Quillora task in {folder} to finish…" once, before the first wait. Throws LockError when the
  // lock file can't be made or the wait runs out, CancelledError on Ctrl-C.
  RepositoryLock(const std::filesystem::path& repository,
                 const std::function<void(const std::string&)>& onWaiting,
                 RepositoryLockTiming timing = {});
  RepositoryLock(const RepositoryLock&) = delete;
  RepositoryLock& operator=(const RepositoryLock&) = delete;

  // "repo-" + the last 80 characters of the normalised absolute path with every character outside
  // A–Z, a–z, 0–9 as "_", + ".lock".
  static std::string fileName(const std::filesystem::path& repository);

private:
  FileLock m_lock;
};

} // namespace quillora::base
