#include "base/repository_lock.h"

#include "base/cancellation.h"

#include <thread>

namespace quillora::base {

namespace {
constexpr size_t kKeptPathCharacters = 80;
// Ctrl-C during the wait is noticed within this time.
constexpr auto kSleepSlice = std::chrono::milliseconds(100);

// The absolute path with "." and ".." resolved by name (symbolic links are left as they are) and
// no trailing "/".
std::filesystem::path standardised(const std::filesystem::path& repository) {
  std::filesystem::path path = std::filesystem::absolute(repository).lexically_normal();
  if (!path.has_filename() && path.has_relative_path()) path = path.parent_path();
  return path;
}

void sleepUnlessCancelled(std::chrono::steady_clock::duration duration) {
  auto end = std::chrono::steady_clock::now() + duration;
  for (auto now = std::chrono::steady_clock::now(); now < end;
       now = std::chrono::steady_clock::now()) {
    throwIfCancelled();
    std::this_thread::sleep_for(
        std::min<std::chrono::steady_clock::duration>(end - now, kSleepSlice));
  }
  throwIfCancelled();
}
} // namespace

std::string RepositoryLock::fileName(const std::filesystem::path& repository) {
  std::string sanitised;
  for (char c : standardised(repository).string()) {
    // One "_" for each character, not for each byte of it: UTF-8 continuation bytes add nothing.
    if ((static_cast<unsigned char>(c) & 0xC0) == 0x80) continue;
    bool kept = (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') || (c >= '0' && c <= '9');
    sanitised.push_back(kept ? c : '_');
  }
  if (sanitised.size() > kKeptPathCharacters) {
    sanitised.erase(0, sanitised.size() - kKeptPathCharacters);
  }
  return "repo-" + sanitised + ".lock";
}

RepositoryLock::RepositoryLock(const std::filesystem::path& repository,
                               const std::function<void(const std::string&)>& onWaiting,
                               RepositoryLockTiming timing)
    : m_lock(fileName(repository)) {
  const std::string folder = standardised(repository).filename().string();
  const auto firstTry = std::chrono::steady_clock::now();
  bool announced = false;
  while (true) {
    bool taken = false;
    try {
      taken = m_lock.tryLock();
    } catch (const Error&) {
      throw LockError("Couldn't create a lock file for " + folder + ".");
    }
    if (taken) return;
    if (std::chrono::steady_clock::now() - firstTry >= timing.giveUpAfter) {
      throw LockError(folder + " has been busy with another Quillora task for 15 minutes.");
    }
    if (!announced) {
      announced = true;
      if (onWaiting) onWaiting("Waiting for another Quillora task in " + folder + " to finish…");
    }
    sleepUnlessCancelled(timing.retryInterval);
  }
}

} // namespace quillora::base
