#include "base/cancellation.h"

#include <csignal>

#include <atomic>

#include "base/error.h"

namespace quillora::base {

namespace {
std::atomic<bool> g_cancelled{false};
static_assert(std::atomic<bool>::is_always_lock_free, "set from a signal handler");

void onSignal(int) { g_cancelled.store(true); }
}  // namespace

void installCancellationHandlers() {
  struct sigaction action {};
  action.sa_handler = onSignal;
  sigemptyset(&action.sa_mask);
  // No SA_RESTART: blocking calls return EINTR so loops notice the flag promptly.
  sigaction(SIGINT, &action, nullptr);
  sigaction(SIGTERM, &action, nullptr);
}

bool isCancelled() { return g_cancelled.load(); }

void throwIfCancelled() {
  if (g_cancelled.load()) throw CancelledError();
}

void setCancelled(bool cancelled) { g_cancelled.store(cancelled); }

}  // namespace quillora::base
