#include "base/file_lock.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "base/cancellation.h"
#include "base/error.h"
#include "base/paths.h"

namespace quillora::base {

FileLock::FileLock(std::string name) : m_path(appSupportDirectory() / name) {}

FileLock::FileLock(std::filesystem::path path) : m_path(std::move(path)) {}

FileLock::~FileLock() { unlock(); }

int FileLock::open() {
  int fd = ::open(m_path.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0644);
  if (fd < 0) {
    throw Error("Can't open the lock file " + m_path.string() + ": " + std::strerror(errno));
  }
  return fd;
}

void FileLock::lock() {
  if (m_fd >= 0) return;
  int fd = open();
  while (::flock(fd, LOCK_EX) != 0) {
    if (errno == EINTR) {
      if (!isCancelled()) continue;
      ::close(fd);
      throw CancelledError();
    }
    int saved = errno;
    ::close(fd);
    throw Error("Can't lock " + m_path.string() + ": " + std::strerror(saved));
  }
  m_fd = fd;
}

bool FileLock::tryLock() {
  if (m_fd >= 0) return true;
  int fd = open();
  while (::flock(fd, LOCK_EX | LOCK_NB) != 0) {
    if (errno == EINTR) continue;
    int saved = errno;
    ::close(fd);
    if (saved == EWOULDBLOCK) return false;
    throw Error("Can't lock " + m_path.string() + ": " + std::strerror(saved));
  }
  m_fd = fd;
  return true;
}

void FileLock::unlock() {
  if (m_fd < 0) return;
  ::flock(m_fd, LOCK_UN);
  ::close(m_fd);
  m_fd = -1;
}

}  // namespace quillora::base
