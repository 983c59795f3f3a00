// Ctrl-C of the user ends a command with "Cancelled." and exit 1.
#include <gtest/gtest.h>

#include <fcntl.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include "support/test_support.h"

namespace quillora::testing {
namespace {

TEST(Cancellation, InterruptWhileWaitingForStdinSaysCancelledAndExitsOne) {
  TempDir home;
  int input[2];
  ASSERT_EQ(pipe(input), 0);
  auto errPath = home.path() / "stderr";
  pid_t pid = fork();
  ASSERT_GE(pid, 0);
  if (pid == 0) {
    dup2(input[0], 0);
    close(input[1]);
    int err = open(errPath.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
    dup2(err, 2);
    setenv("QUILLORA_HOME", home.path().c_str(), 1);
    execl(QUILLORA_BINARY, QUILLORA_BINARY, "analyze", "--trace", "-", "--dry-run", nullptr);
    _exit(127);
  }
  close(input[0]);
  // Some bytes arrive, the rest never does: the user gives up and presses Ctrl-C.
  ASSERT_EQ(write(input[1], "java.lang.Exception\n", 20), 20);
  // The handler is installed at start; poll until the process is blocked in its read.
  int status = 0;
  for (int i = 0; i < 200; ++i) {
    usleep(10000);
    std::string stat = readText("/proc/" + std::to_string(pid) + "/wchan");
    if (stat.find("pipe") != std::string::npos || stat.find("wait") != std::string::npos) break;
  }
  kill(pid, SIGINT);
  ASSERT_EQ(waitpid(pid, &status, 0), pid);
  close(input[1]);
  ASSERT_TRUE(WIFEXITED(status));
  EXPECT_EQ(WEXITSTATUS(status), 1);
  EXPECT_EQ(readText(errPath), "Cancelled.\n");
}

}  // namespace
}  // namespace quillora::testing
