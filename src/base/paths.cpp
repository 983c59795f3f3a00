#include "base/paths.h"

#include <pwd.h>
#include <unistd.h>

#include <cstdlib>
#include <system_error>

#include "base/error.h"

namespace quillora::base {

std::filesystem::path homeDirectory() {
  if (const char* home = std::getenv("HOME"); home && *home) return home;
  if (const passwd* pw = getpwuid(getuid()); pw && pw->pw_dir) return pw->pw_dir;
  return "/";
}

std::filesystem::path expandTilde(std::string_view path) {
  if (path == "~") return homeDirectory();
  if (path.size() >= 2 && path[0] == '~' && path[1] == '/') return homeDirectory() / path.substr(2);
  return std::filesystem::path(path);
}

std::filesystem::path appSupportDirectory() {
  std::filesystem::path dir;
  if (const char* q = std::getenv("QUILLORA_HOME"); q && *q) {
    dir = expandTilde(q);
  } else if (const char* xdg = std::getenv("XDG_DATA_HOME"); xdg && *xdg) {
    dir = std::filesystem::path(xdg) / "Quillora";
  } else {
    dir = homeDirectory() / ".local" / "share" / "Quillora";
  }
  std::error_code ec;
  std::filesystem::create_directories(dir, ec);
  if (ec) {
    throw Error("Can't create the Quillora data folder " + dir.string() + ": " + ec.message() +
                ". Set QUILLORA_HOME to a writable folder.");
  }
  return dir;
}

std::filesystem::path executablePath() {
  std::error_code ec;
  auto path = std::filesystem::read_symlink("/proc/self/exe", ec);
  return ec ? std::filesystem::path("quillora") : path;
}

}  // namespace quillora::base
