#include "base/notifications.h"

#include <fcntl.h>
#include <unistd.h>

#include <map>
#include <mutex>
#include <vector>

#include "base/paths.h"
#include "base/time.h"

namespace quillora::base {

namespace {

struct Observer {
  std::string name;
  std::function<void()> callback;
};

std::mutex& observersMutex() {
  static std::mutex mutex;
  return mutex;
}

std::map<ObserverToken, Observer>& observers() {
  static std::map<ObserverToken, Observer> map;
  return map;
}

void touchSignal(const std::filesystem::path& folder, std::string_view name) {
  std::error_code ec;
  auto path = changeSignalPath(folder, name);
  std::filesystem::create_directories(path.parent_path(), ec);
  if (ec) return;
  // Rewriting the file gives watchers an IN_CLOSE_WRITE; its text is only for people looking.
  int fd = ::open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644);
  if (fd < 0) return;
  std::string stamp = formatISO8601(Clock::now()) + "\n";
  [[maybe_unused]] auto written = ::write(fd, stamp.data(), stamp.size());
  ::close(fd);
}

}  // namespace

ObserverToken addChangeObserver(std::string name, std::function<void()> observer) {
  static ObserverToken next = 0;
  std::lock_guard guard(observersMutex());
  ObserverToken token = ++next;
  observers()[token] = Observer{std::move(name), std::move(observer)};
  return token;
}

void removeChangeObserver(ObserverToken token) {
  std::lock_guard guard(observersMutex());
  observers().erase(token);
}

std::filesystem::path changeSignalPath(const std::filesystem::path& folder, std::string_view name) {
  return folder / "notifications" / ("com.veldmoor.Quillora." + std::string(name) + "DidChange");
}

void postChange(std::string_view name, const std::filesystem::path& folder) {
  touchSignal(folder, name);
  // Observers run without the registry lock so that they may add or remove observers.
  std::vector<std::function<void()>> callbacks;
  {
    std::lock_guard guard(observersMutex());
    for (const auto& [token, observer] : observers())
      if (observer.name == name) callbacks.push_back(observer.callback);
  }
  for (const auto& callback : callbacks) {
    try {
      callback();
    } catch (...) {
      // An observer's failure is its own; the store's change stands.
    }
  }
}

void postChange(std::string_view name) {
  std::filesystem::path folder;
  try {
    folder = appSupportDirectory();
  } catch (...) {
    return;
  }
  postChange(name, folder);
}

}  // namespace quillora::base
