#include "base/cancellation.h"
#include "base/process_runner.h"
#include "support/test_support.h"

#include <gtest/gtest.h>

#include <signal.h>

#include <chrono>
#include <cstdlib>
#include <stdexcept>
#include <thread>

namespace quillora::base {
namespace {

using namespace std::chrono_literals;
using quillora::testing::readText;
using quillora::testing::TempDir;

// The product's one-second watchdog tick is kept where the texts depend on it; the escalation to
// SIGKILL and the drain after exit are shortened so the suite stays quick.
const ProcessRunner kRunner(ProcessTiming{100ms, 300ms, 300ms});

ProcessRequest shell(const std::string& script) {
  ProcessRequest request;
  request.executable = "sh";
  request.arguments = {"-c", script};
  return request;
}

// A process that is gone, or a zombie waiting for init, is no longer running.
bool isGone(const std::string& pidText) {
  auto stat = readText("/proc/" + std::to_string(std::stoi(pidText)) + "/stat");
  auto close = stat.rfind(')');
  return stat.empty() || (close != std::string::npos && stat.substr(close + 2, 1) == "Z");
}

bool becomesGone(const std::string& pidText) {
  for (int i = 0; i < 50; ++i) {
    if (isGone(pidText)) return true;
    std::this_thread::sleep_for(20ms);
  }
  return false;
}

TEST(ProcessRunner, CapturesBothStreamsAndTheExitStatus) {
  struct Case {
    std::string script;
    int32_t status;
    std::string out;
    std::string err;
  } cases[] = {
      {"echo out; echo err >&2; exit 3", 3, "out\n", "err\n"},
      {"printf 'no newline'", 0, "no newline", ""},
      {"kill -9 $$", 137, "", ""},
      {"printf 'caf\\351\\n'", 0, "caf\xEF\xBF\xBD\n", ""},
  };
  for (const auto& c : cases) {
    ShellResult result = kRunner.run(shell(c.script));
    EXPECT_EQ(result.status, c.status) << c.script;
    EXPECT_EQ(result.stdout, c.out) << c.script;
    EXPECT_EQ(result.stderr, c.err) << c.script;
  }
}

TEST(ProcessRunner, HandsOutLinesPerStreamWithTheUnfinishedLastLine) {
  std::vector<std::string> out;
  std::vector<std::string> err;
  ProcessRequest request = shell("printf 'one\\ntwo\\n\\nthr'; sleep 0.1; printf 'ee'; "
                                 "printf 'e1\\ne\\3772' >&2");
  request.onStdoutLine = [&](const std::string& line) { out.push_back(line); };
  request.onStderrLine = [&](const std::string& line) { err.push_back(line); };
  (void)kRunner.run(request);
  EXPECT_EQ(out, (std::vector<std::string>{"one", "two", "", "three"}));
  EXPECT_EQ(err, (std::vector<std::string>{"e1", "e\xEF\xBF\xBD"
                                                 "2"}));
}

TEST(ProcessRunner, GivesTheChildTheFixedEnvironmentTheFolderAndNoInput) {
  TempDir dir;
  ProcessRequest request = shell(R"(printf '%s|%s|%s|%s|%s|%s|' "$GIT_TERMINAL_PROMPT" "$NO_COLOR" )"
                                 R"("$LC_ALL" "$LANGUAGE" "$QUILLORA_EXTRA" "$PATH"; pwd; cat)");
  request.environment = {{"QUILLORA_EXTRA", "extra"}};
  request.workingDirectory = dir.path();
  EXPECT_EQ(kRunner.run(request).stdout, "0|1|C.UTF-8|en|extra|" + ProcessRunner::loginSearchPath() +
                                             "|" + dir.path().string() + "\n");
}

TEST(ProcessRunner, LargeInputNeitherDeadlocksNorKillsAChildThatStopsReading) {
  // Fifty megabytes through input and both outputs at once.
  const std::string line = "a line of a large prompt, 0123456789\n";
  std::string input;
  while (input.size() < 50'000'000)
    input += line;
  size_t lines = 0;
  ProcessRequest request = shell("tee /dev/stderr");
  request.standardInput = input;
  request.onStdoutLine = [&](const std::string&) { ++lines; };
  ShellResult result = kRunner.run(request);
  EXPECT_EQ(result.status, 0);
  EXPECT_TRUE(result.stdout == input);
  EXPECT_TRUE(result.stderr == input);
  EXPECT_EQ(lines, input.size() / line.size());

  request = shell("head -c 5 >/dev/null; echo read enough");
  request.standardInput = std::string(10'000'000, 'x');
  result = kRunner.run(request);
  EXPECT_EQ(result.status, 0);
  EXPECT_EQ(result.stdout, "read enough\n");
}

TEST(ProcessRunner, LimitsStopTheChildAndSayWhichWithTheLastOutput) {
  struct Case {
    std::string script;
    std::string label;
    Seconds stall;
    Seconds overall;
    bool stalled;
    std::string message;  // a chatty child's message is only checked up to here
    bool wholeMessage;
    std::optional<std::string> lastOutput;
  } cases[] = {
      {"echo started; exec sleep 30", "sleepy", 1s, 30s, true,
       "`sleepy` stopped responding (no output for 1 seconds), so Quillora stopped it.\n"
       "Last output:\nstarted",
       true, "started\n"},
      {"while :; do echo tick; sleep 0.2; done", "chatty", 1s, 2.5s, false,
       "`chatty` didn't finish within 2 seconds, so Quillora stopped it.\nLast output:\ntick\ntick\n",
       false, std::nullopt},
      // Both limits exceeded: the overall one is named; no output, no "Last output".
      {"exec sleep 30", "", 1s, 1s, false,
       "`sh` didn't finish within 1 seconds, so Quillora stopped it.", true, ""},
      // The last output is standard error's when there is any, and its tail only.
      {"printf 'out'; printf 'err' >&2; exec sleep 30", "", 0.5s, 30s, true, "", false, "err"},
      {"printf '%05000d' 0; printf 'end'; exec sleep 30", "", 0.5s, 30s, true, "", false,
       std::string(1997, '0') + "end"},
  };
  for (const auto& c : cases) {
    ProcessRequest request = shell(c.script);
    request.label = c.label;
    request.stallLimit = c.stall;
    request.timeLimit = c.overall;
    try {
      (void)kRunner.run(request);
      ADD_FAILURE() << "no time-out: " << c.script;
    } catch (const ShellTimeout& timeout) {
      EXPECT_EQ(timeout.stalled(), c.stalled) << c.script;
      EXPECT_EQ(timeout.kind(), "shell");
      if (c.wholeMessage)
        EXPECT_EQ(timeout.what(), c.message);
      else
        EXPECT_EQ(std::string(timeout.what()).rfind(c.message, 0), 0u) << timeout.what();
      if (c.lastOutput) EXPECT_EQ(timeout.lastOutput(), *c.lastOutput) << c.script;
    }
  }
}

TEST(ProcessRunner, StoppingAToolKillsItAndWhatItStartedEvenWhenItIgnoresSigterm) {
  struct Case {
    std::string script;
    std::optional<Seconds> stall;
    std::optional<Seconds> overall;
  } cases[] = {
      {"trap '' TERM; sleep 30 & echo $! > helper; echo $$ > self; while :; do sleep 1; done",
       std::nullopt, 1s},
      {"sleep 30 & echo $! > helper; echo $$ > self; exec sleep 30", 0.5s, std::nullopt},
  };
  for (const auto& c : cases) {
    TempDir dir;
    ProcessRequest request = shell(c.script);
    request.workingDirectory = dir.path();
    request.stallLimit = c.stall;
    request.timeLimit = c.overall;
    EXPECT_THROW((void)kRunner.run(request), ShellTimeout);
    EXPECT_TRUE(isGone(readText(dir.path() / "self"))) << c.script;
    EXPECT_TRUE(becomesGone(readText(dir.path() / "helper"))) << c.script;
  }
}

TEST(ProcessRunner, DoesNotWaitForWhatAFinishedToolLeftHoldingItsOutput) {
  ShellResult result = kRunner.run(shell("sleep 600 & echo $!"));
  EXPECT_EQ(result.status, 0);
  ::kill(std::stoi(result.stdout), SIGKILL);
}

TEST(ProcessRunner, CtrlCOrAThrowingLineCallbackStopsTheChildAndLeavesTheCall) {
  TempDir dir;
  std::thread user([&] {
    while (!std::filesystem::exists(dir.path() / "self"))
      std::this_thread::sleep_for(20ms);
    std::this_thread::sleep_for(100ms);
    setCancelled(true);
  });
  ProcessRequest request = shell("echo $$ > self; exec sleep 30");
  request.workingDirectory = dir.path();
  EXPECT_THROW((void)kRunner.run(request), CancelledError);
  user.join();
  setCancelled(false);
  EXPECT_TRUE(isGone(readText(dir.path() / "self")));

  request = shell("echo first; exec sleep 30");
  request.onStdoutLine = [](const std::string& line) { throw std::runtime_error("stop at " + line); };
  try {
    (void)kRunner.run(request);
    ADD_FAILURE() << "nothing thrown";
  } catch (const std::runtime_error& error) {
    EXPECT_STREQ(error.what(), "stop at first");
  }
}

TEST(ProcessRunner, MissingToolOrRefusedLaunchSayWhy) {
  try {
    (void)kRunner.run("quillora-no-such-tool", {});
    ADD_FAILURE() << "nothing thrown";
  } catch (const ShellError& error) {
    EXPECT_EQ(error.errorCase(), ShellError::Case::notFound);
    EXPECT_STREQ(error.what(), "Couldn't find `quillora-no-such-tool` on your PATH. Install it, or "
                               "set its full path in Settings.");
  }
  ProcessRequest request = shell("true");
  request.workingDirectory = "/quillora/no/such/folder";
  try {
    (void)kRunner.run(request);
    ADD_FAILURE() << "nothing thrown";
  } catch (const ShellLaunchError& error) {
    EXPECT_STREQ(error.what(), "Couldn't start `sh`: No such file or directory.");
  }
}

TEST(ProcessRunner, ResolvesOnlyExecutableFilesByNamePathOrTilde) {
  TempDir dir;
  auto tool = dir.write("bin/tool", "#!/bin/sh\n");
  std::filesystem::permissions(tool, std::filesystem::perms(0755));
  auto plain = dir.write("bin/plain", "not a program\n");
  (void)ProcessRunner::loginSearchPath(); // computed with the real home, before HOME changes
  std::string home = std::getenv("HOME") ? std::getenv("HOME") : "";
  ::setenv("HOME", dir.path().c_str(), 1);
  const std::pair<std::string, std::optional<std::filesystem::path>> cases[] = {
      {"~/bin/tool", tool},           {tool.string(), tool},
      {plain.string(), std::nullopt}, {(dir.path() / "bin").string(), std::nullopt},
      {"quillora-no-such-tool", std::nullopt}, {"", std::nullopt},
  };
  for (const auto& [name, resolved] : cases)
    EXPECT_EQ(ProcessRunner::resolve(name), resolved) << name;
  auto sh = ProcessRunner::resolve("sh");
  ASSERT_TRUE(sh.has_value());
  EXPECT_TRUE(sh->is_absolute() && sh->filename() == "sh");
  ::setenv("HOME", home.c_str(), 1);
}

TEST(ProcessRunner, LoginSearchPathIsTheShellsPathFollowedByTheToolFolders) {
  TempDir dir;
  auto fakeShell = [&](const std::string& name, const std::string& printing) {
    auto path = dir.write(name, "#!/bin/sh\n"
                                "[ \"$1\" = -l ] && [ \"$2\" = -c ] && "
                                "[ \"$3\" = 'printf %s \"$PATH\"' ] || exit 9\n"
                                "PATH='" +
                                    printing + "'; eval \"$3\"; echo\n");
    std::filesystem::permissions(path, std::filesystem::perms(0755));
    return path.string();
  };
  // Without a shell there is only the fixed fallback; the tool folders under the home come after
  // the shell's path, or after the fallback when the shell gives none that is usable.
  const std::string fallback = ProcessRunner::computeLoginSearchPath((dir.path() / "missing").string(), "/h");
  const std::string login = ProcessRunner::computeLoginSearchPath(fakeShell("login", "/x/bin:/usr/bin"), "/h");
  ASSERT_EQ(login.rfind("/x/bin:/usr/bin:/h/", 0), 0u) << login;
  const std::string extras = login.substr(std::string("/x/bin:/usr/bin").size());
  EXPECT_NE(extras.find(":/h/.claude/local:"), std::string::npos) << extras;
  EXPECT_NE(fallback.find(":/usr/bin:/bin:"), std::string::npos) << fallback;
  EXPECT_EQ(ProcessRunner::computeLoginSearchPath(fakeShell("silent", ""), "/h"), fallback + extras);
  EXPECT_EQ(ProcessRunner::computeLoginSearchPath(fakeShell("garbled", "/x/\377"), "/h"), fallback + extras);
  // A slow shell isn't waited for, but isn't killed halfway through the user's profile either (nor
  // by SIGPIPE when its profile prints something).
  auto slow = dir.write(
      "slow",
      "#!/bin/sh\nsleep 1.5; echo profile says hello; echo finished > \"$0.done\"; printf /x\n");
  std::filesystem::permissions(slow, std::filesystem::perms(0755));
  EXPECT_EQ(ProcessRunner::computeLoginSearchPath(slow.string(), "/h", 0.5s), fallback + extras);
  for (int i = 0; i < 100 && !std::filesystem::exists(dir.path() / "slow.done"); ++i) {
    std::this_thread::sleep_for(20ms);
  }
  EXPECT_TRUE(std::filesystem::exists(dir.path() / "slow.done"));

  if (!std::filesystem::exists("/bin/zsh")) {
    EXPECT_EQ(ProcessRunner::computeLoginSearchPath("", "/h"), fallback);
  }
}

} // namespace
} // namespace quillora::base
