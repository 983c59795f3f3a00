#include "base/child_process.h"

#include <fcntl.h>
#include <poll.h>
#include <pthread.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>
#ifdef __linux__
#include <sys/syscall.h>
#endif

#include "base/cancellation.h"
#include "base/text.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <exception>
#include <memory>
#include <thread>
#include <utility>

namespace quillora::base::detail {

namespace {
using Clock = std::chrono::steady_clock;

constexpr size_t kReadChunk = 256 * 1024;
// A stream that never pauses must not keep the watchdog from its tick.
constexpr int kReadsPerWake = 16;
constexpr size_t kWriteChunk = 1024 * 1024;
constexpr size_t kTailBytes = 2000;
// Ctrl-C may be delivered to another thread and leave poll asleep; this bounds how late it's seen.
constexpr auto kCancellationCheck = std::chrono::milliseconds(200);
// Without a pidfd the child's end is found by asking; this is how often.
constexpr auto kExitCheck = std::chrono::milliseconds(10);

class Fd {
public:
  Fd() = default;
  explicit Fd(int fd) : m_fd(fd) {}
  ~Fd() { reset(); }
  Fd(Fd&& other) noexcept : m_fd(std::exchange(other.m_fd, -1)) {}
  Fd& operator=(Fd&& other) noexcept {
    if (this != &other) {
      reset();
      m_fd = std::exchange(other.m_fd, -1);
    }
    return *this;
  }
  Fd(const Fd&) = delete;
  Fd& operator=(const Fd&) = delete;
  [[nodiscard]] int get() const { return m_fd; }
  [[nodiscard]] bool valid() const { return m_fd >= 0; }
  void reset() {
    if (m_fd >= 0) ::close(m_fd);
    m_fd = -1;
  }

private:
  int m_fd = -1;
};

struct Pipe {
  Fd read;
  Fd write;
};

// Close-on-exec from the start, so a child started by another thread never inherits our ends.
Pipe makePipe(const std::string& label) {
  int fds[2];
#ifdef __linux__
  if (::pipe2(fds, O_CLOEXEC) != 0) throw ShellLaunchError(label, errno);
#else
  if (::pipe(fds) != 0) throw ShellLaunchError(label, errno);
  ::fcntl(fds[0], F_SETFD, FD_CLOEXEC);
  ::fcntl(fds[1], F_SETFD, FD_CLOEXEC);
#endif
  return {Fd(fds[0]), Fd(fds[1])};
}

void setNonBlocking(int fd) {
  ::fcntl(fd, F_SETFL, ::fcntl(fd, F_GETFL) | O_NONBLOCK);
}

// Writes to a pipe whose reader may have gone away without SIGPIPE ending this process: the
// signal is blocked on this thread for the write, and one the write raised is taken back.
ssize_t writeWithoutSigpipe(int fd, const char* data, size_t size) {
#ifdef __linux__
  sigset_t pipeSignal;
  sigset_t previous;
  sigemptyset(&pipeSignal);
  sigaddset(&pipeSignal, SIGPIPE);
  pthread_sigmask(SIG_BLOCK, &pipeSignal, &previous);
  sigset_t pending;
  sigpending(&pending);
  bool alreadyPending = sigismember(&pending, SIGPIPE) == 1;
  ssize_t written = ::write(fd, data, size);
  int saved = errno;
  if (written < 0 && saved == EPIPE && !alreadyPending) {
    timespec zero{};
    while (sigtimedwait(&pipeSignal, nullptr, &zero) < 0 && errno == EINTR) {
    }
  }
  pthread_sigmask(SIG_SETMASK, &previous, nullptr);
  errno = saved;
  return written;
#else
  return ::write(fd, data, size); // F_SETNOSIGPIPE is set on the pipe
#endif
}

int32_t exitStatus(int status) {
  if (WIFEXITED(status)) return WEXITSTATUS(status);
  if (WIFSIGNALED(status)) return 128 + WTERMSIG(status);
  return status;
}

// Hands complete lines of one stream to the caller; the unfinished rest waits for more bytes.
class LineSplitter {
public:
  explicit LineSplitter(const LineCallback* onLine)
      : m_onLine(onLine && *onLine ? onLine : nullptr) {}

  void feed(std::string_view chunk) {
    if (!m_onLine) return;
    size_t start = 0;
    for (size_t newline = chunk.find('\n'); newline != std::string_view::npos;
         newline = chunk.find('\n', start)) {
      std::string_view piece = chunk.substr(start, newline - start);
      start = newline + 1;
      if (m_pending.empty()) {
        deliver(piece);
      } else {
        m_pending.append(piece);
        std::string line = std::exchange(m_pending, {});
        deliver(line);
      }
    }
    m_pending.append(chunk.substr(start));
  }

  // The last line of a stream that didn't end with a newline.
  void finish() {
    if (!m_onLine || m_pending.empty()) return;
    std::string line = std::exchange(m_pending, {});
    deliver(line);
  }

private:
  void deliver(std::string_view bytes) { (*m_onLine)(decodeLossy(std::string(bytes))); }

  const LineCallback* m_onLine;
  std::string m_pending;
};

struct Stream {
  Fd fd;
  std::string data;
  LineSplitter lines;
};

// One started child from launch to reaping. Everything runs on the caller's thread: the poll loop
// stands in for readability handlers, termination handler and watchdog timer alike.
class ChildRun {
public:
  ChildRun(const ChildSpec& childSpec, const ProcessTiming& timing)
      : m_spec(childSpec), m_timing(timing), m_out{Fd(), {}, LineSplitter(childSpec.onStdoutLine)},
        m_err{Fd(), {}, LineSplitter(childSpec.onStderrLine)} {}

  ~ChildRun() {
    // Reap the child if an unexpected failure left it behind.
    if (m_pid > 0) {
      killGroup(SIGKILL);
      int status = 0;
      while (::waitpid(m_pid, &status, 0) < 0 && errno == EINTR) {
      }
    }
  }
  ChildRun(const ChildRun&) = delete;
  ChildRun& operator=(const ChildRun&) = delete;

  void launch();
  ChildOutcome wait();

private:
  void abandon();
  void readFrom(Stream& stream, Clock::time_point now);
  void writeInput();
  void noteExit(Clock::time_point now);
  void tick(Clock::time_point now);
  void stop(Clock::time_point now);
  void killGroup(int signal) const;
  void deliverLines(LineSplitter& lines, std::string_view chunk, bool finish,
                    Clock::time_point now);

  const ChildSpec& m_spec;
  const ProcessTiming& m_timing;
  pid_t m_pid = -1;
  Fd m_pidfd;
  Stream m_out;
  Stream m_err;
  Fd m_in;
  size_t m_inWritten = 0;
  Clock::time_point m_started;
  Clock::time_point m_lastOutput;
  bool m_exited = false;
  Clock::time_point m_drainDeadline;
  bool m_stopping = false;
  std::optional<Clock::time_point> m_killAt;
  std::optional<ShellTimeout> m_timedOut;
  bool m_cancelled = false;
  std::exception_ptr m_callbackError;
  std::unique_ptr<char[]> m_buffer = std::make_unique<char[]>(kReadChunk);
};

void ChildRun::launch() {
  Pipe out = makePipe(m_spec.label);
  Pipe err = makePipe(m_spec.label);
  std::optional<Pipe> in;
  if (m_spec.standardInput) in = makePipe(m_spec.label);

  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  if (in) {
    posix_spawn_file_actions_adddup2(&actions, in->read.get(), 0);
  } else {
    posix_spawn_file_actions_addopen(&actions, 0, "/dev/null", O_RDONLY, 0);
  }
  posix_spawn_file_actions_adddup2(&actions, out.write.get(), 1);
  posix_spawn_file_actions_adddup2(&actions, err.write.get(), 2);
  if (m_spec.workingDirectory) {
    posix_spawn_file_actions_addchdir_np(&actions, m_spec.workingDirectory->c_str());
  }
#if defined(__GLIBC__) && (__GLIBC__ > 2 || (__GLIBC__ == 2 && __GLIBC_MINOR__ >= 34))
  // Descriptors some library opened without close-on-exec stay with us.
  posix_spawn_file_actions_addclosefrom_np(&actions, 3);
#endif

  posix_spawnattr_t attributes;
  posix_spawnattr_init(&attributes);
  // Its own process group, so that stopping the tool also stops what it started; default signal
  // handling and an empty mask, because ignored signals (SIGPIPE in the CLI) survive exec.
  posix_spawnattr_setflags(&attributes,
                           POSIX_SPAWN_SETPGROUP | POSIX_SPAWN_SETSIGDEF | POSIX_SPAWN_SETSIGMASK);
  posix_spawnattr_setpgroup(&attributes, 0);
  sigset_t all;
  sigfillset(&all);
  posix_spawnattr_setsigdefault(&attributes, &all);
  sigset_t none;
  sigemptyset(&none);
  posix_spawnattr_setsigmask(&attributes, &none);

  std::vector<char*> argv;
  argv.reserve(m_spec.argv.size() + 1);
  for (const auto& argument : m_spec.argv)
    argv.push_back(const_cast<char*>(argument.c_str()));
  argv.push_back(nullptr);
  std::vector<char*> envp;
  envp.reserve(m_spec.environment.size() + 1);
  for (const auto& entry : m_spec.environment)
    envp.push_back(const_cast<char*>(entry.c_str()));
  envp.push_back(nullptr);

  m_started = Clock::now();
  m_lastOutput = m_started;
  pid_t pid = -1;
  int failure =
      ::posix_spawn(&pid, m_spec.path.c_str(), &actions, &attributes, argv.data(), envp.data());
  posix_spawn_file_actions_destroy(&actions);
  posix_spawnattr_destroy(&attributes);
  if (failure != 0) throw ShellLaunchError(m_spec.label, failure);
  m_pid = pid;

  // The child's ends are the child's now; holding them here would keep EOF from ever coming.
  m_out.fd = std::move(out.read);
  m_err.fd = std::move(err.read);
  for (const Fd* fd : {&m_out.fd, &m_err.fd}) {
    setNonBlocking(fd->get());
#ifdef F_SETPIPE_SZ
    // Fewer, larger reads for chatty tools; refused beyond the system's limit, which is fine.
    ::fcntl(fd->get(), F_SETPIPE_SZ, static_cast<int>(kReadChunk));
#endif
  }
  if (in) {
    m_in = std::move(in->write);
    setNonBlocking(m_in.get());
#ifdef F_SETNOSIGPIPE
    ::fcntl(m_in.get(), F_SETNOSIGPIPE, 1);
#endif
    if (m_spec.standardInput->empty()) m_in.reset();
  }
#if defined(__linux__) && defined(SYS_pidfd_open)
  m_pidfd = Fd(static_cast<int>(::syscall(SYS_pidfd_open, m_pid, 0)));
#endif
}

ChildOutcome ChildRun::wait() {
  const bool watchdog = m_spec.timeLimit || m_spec.stallLimit;
  Clock::time_point nextTick = m_started + m_timing.tick;
  while (true) {
    Clock::time_point now = Clock::now();
    bool outputOpen = m_out.fd.valid() || m_err.fd.valid();
    if (m_exited && (!outputOpen || now >= m_drainDeadline)) break;

    pollfd fds[4];
    nfds_t count = 0;
    auto add = [&](const Fd& fd, short events) {
      if (fd.valid()) fds[count++] = pollfd{fd.get(), events, 0};
    };
    add(m_out.fd, POLLIN);
    add(m_err.fd, POLLIN);
    add(m_in, POLLOUT);
    add(m_pidfd, POLLIN);

    Clock::time_point deadline = now + kCancellationCheck;
    if (m_exited) {
      deadline = std::min(deadline, m_drainDeadline);
    } else {
      if (watchdog && !m_timedOut) deadline = std::min(deadline, nextTick);
      if (m_killAt) deadline = std::min(deadline, *m_killAt);
      if (!m_pidfd.valid()) deadline = std::min(deadline, now + kExitCheck);
    }
    auto wait = std::chrono::ceil<std::chrono::milliseconds>(deadline - now).count();
    int ready = ::poll(fds, count, static_cast<int>(std::max<decltype(wait)>(wait, 0)));
    if (ready < 0 && errno != EINTR) {
      throw ShellLaunchError(m_spec.label, errno); // the destructor kills and reaps the child
    }

    now = Clock::now();
    for (nfds_t i = 0; ready > 0 && i < count; ++i) {
      if (fds[i].revents == 0) continue;
      if (fds[i].fd == m_out.fd.get()) {
        readFrom(m_out, now);
      } else if (fds[i].fd == m_err.fd.get()) {
        readFrom(m_err, now);
      } else if (fds[i].fd == m_in.get()) {
        writeInput();
      } else if (fds[i].fd == m_pidfd.get()) {
        noteExit(now);
      }
    }
    if (!m_exited && !m_pidfd.valid()) {
      siginfo_t info{};
      if (::waitid(P_PID, static_cast<id_t>(m_pid), &info, WEXITED | WNOHANG | WNOWAIT) == 0 &&
          info.si_pid != 0) {
        noteExit(now);
      }
    }
    if (m_exited) continue;

    if (isCancelled() && !m_stopping) {
      if (m_spec.abandonInsteadOfStopping) {
        abandon();
        throw CancelledError();
      }
      m_cancelled = true;
      stop(now);
    }
    if (watchdog && now >= nextTick) {
      if (!m_timedOut) tick(now);
      while (nextTick <= now)
        nextTick += m_timing.tick;
      if (m_timedOut && m_spec.abandonInsteadOfStopping) {
        abandon();
        throw *m_timedOut;
      }
    }
    if (m_killAt && now >= *m_killAt) {
      killGroup(SIGKILL);
      m_killAt.reset();
    }
  }

  // Whatever still holds the pipes after the drain limit keeps them to itself.
  m_out.fd.reset();
  m_err.fd.reset();
  int status = 0;
  while (::waitpid(m_pid, &status, 0) < 0 && errno == EINTR) {
  }
  m_pid = -1;
  Clock::time_point now = Clock::now();
  deliverLines(m_out.lines, {}, true, now);
  deliverLines(m_err.lines, {}, true, now);

  if (m_callbackError) std::rethrow_exception(m_callbackError);
  if (m_cancelled) throw CancelledError();
  if (m_timedOut) throw *m_timedOut;
  return {exitStatus(status), std::move(m_out.data), std::move(m_err.data)};
}

void ChildRun::abandon() {
  m_in.reset();
  m_pidfd.reset();
  // Its output is still read (and dropped) until it ends, so it runs on as if it were listened to
  // and no write of its gets SIGPIPE; then it is reaped. Nothing waits for this.
  std::thread([pid = m_pid, out = std::move(m_out.fd), err = std::move(m_err.fd)]() mutable {
    char buffer[4096];
    while (out.valid() || err.valid()) {
      pollfd fds[2];
      nfds_t count = 0;
      for (const Fd* fd : {&out, &err}) {
        if (fd->valid()) fds[count++] = pollfd{fd->get(), POLLIN, 0};
      }
      if (::poll(fds, count, -1) < 0 && errno != EINTR) break;
      for (Fd* fd : {&out, &err}) {
        if (!fd->valid()) continue;
        ssize_t n = ::read(fd->get(), buffer, sizeof buffer);
        if (n == 0 || (n < 0 && errno != EAGAIN && errno != EWOULDBLOCK && errno != EINTR)) {
          fd->reset();
        }
      }
    }
    int status = 0;
    while (::waitpid(pid, &status, 0) < 0 && errno == EINTR) {
    }
  }).detach();
  m_pid = -1;
}

void ChildRun::readFrom(Stream& stream, Clock::time_point now) {
  for (int reads = 0; reads < kReadsPerWake && stream.fd.valid(); ++reads) {
    ssize_t n = ::read(stream.fd.get(), m_buffer.get(), kReadChunk);
    if (n > 0) {
      std::string_view chunk(m_buffer.get(), static_cast<size_t>(n));
      stream.data.append(chunk);
      m_lastOutput = now;
      deliverLines(stream.lines, chunk, false, now);
      continue;
    }
    if (n < 0 && errno == EINTR) continue;
    if (n < 0 && (errno == EAGAIN || errno == EWOULDBLOCK)) return;
    stream.fd.reset(); // end of file, or a pipe that can't be read any more
  }
}

void ChildRun::deliverLines(LineSplitter& lines, std::string_view chunk, bool finish,
                            Clock::time_point now) {
  if (m_callbackError) return;
  try {
    if (finish) {
      lines.finish();
    } else {
      lines.feed(chunk);
    }
  } catch (...) {
    m_callbackError = std::current_exception();
    if (!m_exited) stop(now);
  }
}

void ChildRun::writeInput() {
  const std::string& input = *m_spec.standardInput;
  while (m_in.valid() && m_inWritten < input.size()) {
    size_t size = std::min(kWriteChunk, input.size() - m_inWritten);
    ssize_t n = writeWithoutSigpipe(m_in.get(), input.data() + m_inWritten, size);
    if (n > 0) {
      m_inWritten += static_cast<size_t>(n);
    } else if (n < 0 && errno == EINTR) {
      continue;
    } else if (n < 0 && (errno == EAGAIN || errno == EWOULDBLOCK)) {
      return;
    } else {
      m_in.reset(); // the child closed its input; the rest isn't wanted
    }
  }
  m_in.reset();
}

void ChildRun::noteExit(Clock::time_point now) {
  m_exited = true;
  m_drainDeadline = now + m_timing.drainLimit;
  m_pidfd.reset();
  m_in.reset();
  m_killAt.reset();
  // A stopped tool's leftovers go at once. The unreaped leader keeps the group's id ours.
  if (m_stopping) killGroup(SIGKILL);
}

void ChildRun::tick(Clock::time_point now) {
  auto idle = now - m_lastOutput;
  auto elapsed = now - m_started;
  bool stalled;
  Seconds limit;
  if (m_spec.timeLimit && elapsed > *m_spec.timeLimit) {
    stalled = false;
    limit = *m_spec.timeLimit;
  } else if (m_spec.stallLimit && idle > *m_spec.stallLimit) {
    stalled = true;
    limit = *m_spec.stallLimit;
  } else {
    return;
  }
  const std::string& source = m_err.data.empty() ? m_out.data : m_err.data;
  std::string tail = source.substr(source.size() - std::min(source.size(), kTailBytes));
  m_timedOut.emplace(m_spec.label, static_cast<int64_t>(limit.count()),
                     decodeLossy(std::move(tail)), stalled);
  if (!m_spec.abandonInsteadOfStopping) stop(now);
}

void ChildRun::stop(Clock::time_point now) {
  if (m_stopping) return;
  m_stopping = true;
  killGroup(SIGTERM);
  m_killAt = now + m_timing.killDelay;
}

void ChildRun::killGroup(int signal) const {
  if (::kill(-m_pid, signal) != 0) ::kill(m_pid, signal);
}
} // namespace

ChildOutcome runChild(const ChildSpec& childSpec, const ProcessTiming& timing) {
  ChildRun run(childSpec, timing);
  run.launch();
  return run.wait();
}

std::string decodeLossy(std::string bytes) {
  // Most output is ASCII: skip it eight bytes at a time before the careful check.
  size_t i = 0;
  for (; i + 8 <= bytes.size(); i += 8) {
    uint64_t word;
    std::memcpy(&word, bytes.data() + i, sizeof word);
    if (word & 0x8080808080808080ULL) break;
  }
  if (isValidUTF8(std::string_view(bytes).substr(i))) return bytes;
  return sanitizeUTF8(bytes);
}

} // namespace quillora::base::detail
