#include "base/files.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <random>

#include "base/error.h"

namespace quillora::base {

namespace {
struct Fd {
  int fd = -1;
  ~Fd() {
    if (fd >= 0) ::close(fd);
  }
};

bool writeAll(int fd, std::string_view data) {
  while (!data.empty()) {
    ssize_t n = ::write(fd, data.data(), data.size());
    if (n < 0) {
      if (errno == EINTR) continue;
      return false;
    }
    data.remove_prefix(static_cast<size_t>(n));
  }
  return true;
}
}  // namespace

std::optional<std::string> readFile(const std::filesystem::path& path, std::string* reason) {
  Fd file{::open(path.c_str(), O_RDONLY | O_CLOEXEC)};
  if (file.fd < 0) {
    if (reason) *reason = std::strerror(errno);
    return std::nullopt;
  }
  struct stat st {};
  if (::fstat(file.fd, &st) == 0 && S_ISDIR(st.st_mode)) {
    if (reason) *reason = std::strerror(EISDIR);
    return std::nullopt;
  }
  std::string content;
  if (st.st_size > 0) content.reserve(static_cast<size_t>(st.st_size));
  char buffer[65536];
  while (true) {
    ssize_t n = ::read(file.fd, buffer, sizeof buffer);
    if (n < 0) {
      if (errno == EINTR) continue;
      if (reason) *reason = std::strerror(errno);
      return std::nullopt;
    }
    if (n == 0) break;
    content.append(buffer, static_cast<size_t>(n));
  }
  return content;
}

void writeFileAtomically(const std::filesystem::path& path, std::string_view content, unsigned mode) {
  auto fail = [&](const std::string& what) -> void {
    throw Error("Couldn't write " + path.string() + ": " + what);
  };
  std::filesystem::path dir = path.parent_path().empty() ? "." : path.parent_path();
  std::random_device random;
  std::filesystem::path temp =
      dir / ("." + path.filename().string() + ".tmp-" + std::to_string(::getpid()) + "-" +
             std::to_string(random()));
  Fd file{::open(temp.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, mode)};
  if (file.fd < 0) fail(std::strerror(errno));
  if (!writeAll(file.fd, content) || ::fsync(file.fd) != 0) {
    int saved = errno;
    ::unlink(temp.c_str());
    fail(std::strerror(saved));
  }
  ::fchmod(file.fd, mode);  // O_CREAT's mode is narrowed by the umask
  ::close(file.fd);
  file.fd = -1;
  if (::rename(temp.c_str(), path.c_str()) != 0) {
    int saved = errno;
    ::unlink(temp.c_str());
    fail(std::strerror(saved));
  }
  // The rename itself is durable only once the folder is synced.
  Fd folder{::open(dir.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC)};
  if (folder.fd >= 0) ::fsync(folder.fd);
}

}  // namespace quillora::base
