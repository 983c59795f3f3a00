#include "base/cancellation.h"
#include "base/process_runner.h"
#include "support/test_support.h"

#include <gtest/gtest.h>

#include <signal.h>
#include <sys/stat.h>

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

std::string_view trim(std::string_view s) {
  while (!s.empty() && (s.back() == '\n' || s.back() == ' '))
    s.remove_suffix(1);
  return s;
}

// A process that is gone, or a zombie waiting for init, is no longer running.
bool isGone(const std::string& pidText) {
  auto stat = readText("/proc/" + std::string(trim(pidText)) + "/stat");
  if (stat.empty()) return true;
  auto close = stat.rfind(')');
  return close != std::string::npos && stat.substr(close + 2, 1) == "Z";
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

TEST(ProcessRunner, GivesTheChildTheFixedEnvironment) {
  ProcessRequest request = shell(R"(printf '%s|%s|%s|%s|%s|%s' "$GIT_TERMINAL_PROMPT" "$NO_COLOR" )"
                                 R"("$LC_ALL" "$LANGUAGE" "$QUILLORA_EXTRA" "$PATH")");
  request.environment = {{"QUILLORA_EXTRA", "extra"}};
  EXPECT_EQ(kRunner.run(request).stdout,
            "0|1|C.UTF-8|en|extra|" + ProcessRunner::loginSearchPath());
}

TEST(ProcessRunner, RunsInTheWorkingDirectoryAndReadsNothingWithoutInput) {
  TempDir dir;
  ProcessRequest request = shell("pwd; cat");
  request.workingDirectory = dir.path();
  EXPECT_EQ(kRunner.run(request).stdout, dir.path().string() + "\n");
}

TEST(ProcessRunner, PassesFiftyMegabytesThroughInputAndBothOutputsAtOnce) {
  const std::string line = "a line of a large prompt, 0123456789\n";
  std::string input;
  input.reserve(50'000'000 + line.size());
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
}

TEST(ProcessRunner, ChildThatStopsReadingItsInputStillEndsNormally) {
  ProcessRequest request = shell("head -c 5 >/dev/null; echo read enough");
  request.standardInput = std::string(10'000'000, 'x');
  ShellResult result = kRunner.run(request);
  EXPECT_EQ(result.status, 0);
  EXPECT_EQ(result.stdout, "read enough\n");
}

TEST(ProcessRunner, SilentChildIsStoppedByTheStallLimit) {
  ProcessRequest request = shell("echo started; exec sleep 30");
  request.label = "sleepy";
  request.stallLimit = 1s;
  request.timeLimit = 30s;
  try {
    (void)kRunner.run(request);
    FAIL() << "no time-out";
  } catch (const ShellTimeout& timeout) {
    EXPECT_TRUE(timeout.stalled());
    EXPECT_EQ(timeout.seconds(), 1);
    EXPECT_EQ(timeout.label(), "sleepy");
    EXPECT_EQ(timeout.lastOutput(), "started\n");
    EXPECT_STREQ(timeout.what(),
                 "`sleepy` stopped responding (no output for 1 seconds), so Quillora stopped it.\n"
                 "Last output:\nstarted");
    EXPECT_EQ(timeout.kind(), "shell");
  }
}

TEST(ProcessRunner, ChattyChildIsStoppedOnlyByTheOverallLimit) {
  ProcessRequest request = shell("while :; do echo tick; sleep 0.2; done");
  request.label = "chatty";
  request.stallLimit = 1s;
  request.timeLimit = 2.5s;
  try {
    (void)kRunner.run(request);
    FAIL() << "no time-out";
  } catch (const ShellTimeout& timeout) {
    EXPECT_FALSE(timeout.stalled());
    EXPECT_EQ(timeout.seconds(), 2);
    EXPECT_EQ(std::string(timeout.what())
                  .rfind("`chatty` didn't finish within 2 seconds, so Quillora stopped it.\n"
                         "Last output:\ntick\ntick\n",
                         0),
              0u)
        << timeout.what();
  }
}

TEST(ProcessRunner, OverallLimitIsReportedWhenBothLimitsAreExceeded) {
  ProcessRequest request;
  request.executable = "sleep";
  request.arguments = {"30"};
  request.stallLimit = 1s;
  request.timeLimit = 1s;
  try {
    (void)kRunner.run(request);
    FAIL() << "no time-out";
  } catch (const ShellTimeout& timeout) {
    EXPECT_FALSE(timeout.stalled());
    EXPECT_STREQ(timeout.what(), "`sleep` didn't finish within 1 seconds, so Quillora stopped it.");
  }
}

TEST(ProcessRunner, LastOutputIsTheTailOfStandardErrorWhenThereIsAny) {
  struct Case {
    std::string script;
    std::string lastOutput;
  } cases[] = {
      {"printf 'out'; printf 'err' >&2; exec sleep 30", "err"},
      {"printf '%05000d' 0; printf 'end'; exec sleep 30", std::string(1997, '0') + "end"},
  };
  for (const auto& c : cases) {
    ProcessRequest request = shell(c.script);
    request.stallLimit = 0.5s;
    try {
      (void)kRunner.run(request);
      ADD_FAILURE() << "no time-out: " << c.script;
    } catch (const ShellTimeout& timeout) {
      EXPECT_EQ(timeout.lastOutput(), c.lastOutput);
    }
  }
}

TEST(ProcessRunner, ChildIgnoringSigtermIsKilledWithEverythingItStarted) {
  TempDir dir;
  ProcessRequest request = shell("trap '' TERM; sleep 30 & echo $! > helper; echo $$ > self; "
                                 "while :; do sleep 1; done");
  request.workingDirectory = dir.path();
  request.timeLimit = 1s;
  EXPECT_THROW((void)kRunner.run(request), ShellTimeout);
  EXPECT_TRUE(isGone(readText(dir.path() / "self")));
  EXPECT_TRUE(becomesGone(readText(dir.path() / "helper")));
}

TEST(ProcessRunner, StoppingAToolStopsWhatItStarted) {
  TempDir dir;
  ProcessRequest request = shell("sleep 30 & echo $! > helper; exec sleep 30");
  request.workingDirectory = dir.path();
  request.stallLimit = 0.5s;
  EXPECT_THROW((void)kRunner.run(request), ShellTimeout);
  EXPECT_TRUE(becomesGone(readText(dir.path() / "helper")));
}

TEST(ProcessRunner, DoesNotWaitForWhatAFinishedToolLeftHoldingItsOutput) {
  ShellResult result = kRunner.run(shell("sleep 600 & echo $!"));
  EXPECT_EQ(result.status, 0);
  ::kill(std::stoi(result.stdout), SIGKILL);
}

TEST(ProcessRunner, CtrlCStopsTheChildAndCancelsTheCall) {
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
}

TEST(ProcessRunner, ExceptionFromALineCallbackStopsTheChild) {
  ProcessRequest request = shell("echo first; exec sleep 30");
  request.onStdoutLine = [](const std::string& line) {
    throw std::runtime_error("stop at " + line);
  };
  try {
    (void)kRunner.run(request);
    FAIL() << "nothing thrown";
  } catch (const std::runtime_error& error) {
    EXPECT_STREQ(error.what(), "stop at first");
  }
}

TEST(ProcessRunner, MissingToolIsNotFoundAndNothingStarts) {
  try {
    (void)kRunner.run("quillora-no-such-tool", {});
    FAIL() << "nothing thrown";
  } catch (const ShellError& error) {
    EXPECT_EQ(error.errorCase(), ShellError::Case::notFound);
    EXPECT_STREQ(error.what(), "Couldn't find `quillora-no-such-tool` on your PATH. Install it, or "
                               "set its full path in Settings.");
  }
}

TEST(ProcessRunner, LaunchRefusedByTheSystemKeepsItsReason) {
  ProcessRequest request = shell("true");
  request.workingDirectory = "/quillora/no/such/folder";
  try {
    (void)kRunner.run(request);
    FAIL() << "nothing thrown";
  } catch (const ShellLaunchError& error) {
    EXPECT_STREQ(error.what(), "Couldn't start `sh`: No such file or directory.");
  }
}

TEST(ProcessRunner, ResolvesNamesPathsAndTildes) {
  TempDir dir;
  auto tool = dir.write("bin/tool", "#!/bin/sh\n");
  std::filesystem::permissions(tool, std::filesystem::perms(0755));
  auto plain = dir.write("bin/plain", "not a program\n");
  (void)ProcessRunner::loginSearchPath(); // computed with the real home, before HOME changes
  std::string home = std::getenv("HOME") ? std::getenv("HOME") : "";
  ::setenv("HOME", dir.path().c_str(), 1);

  EXPECT_EQ(ProcessRunner::resolve("~/bin/tool"), tool);
  EXPECT_EQ(ProcessRunner::resolve(tool.string()), tool);
  EXPECT_EQ(ProcessRunner::resolve(plain.string()), std::nullopt);
  EXPECT_EQ(ProcessRunner::resolve("~/bin/plain"), std::nullopt);
  EXPECT_EQ(ProcessRunner::resolve((dir.path() / "bin").string()), std::nullopt);
  EXPECT_EQ(ProcessRunner::resolve("/quillora/no/such/tool"), std::nullopt);
  EXPECT_EQ(ProcessRunner::resolve("quillora-no-such-tool"), std::nullopt);
  EXPECT_EQ(ProcessRunner::resolve(""), std::nullopt);
  auto sh = ProcessRunner::resolve("sh");
  ASSERT_TRUE(sh.has_value());
  EXPECT_EQ(sh->filename(), "sh");
  EXPECT_TRUE(sh->is_absolute());

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
  const std::string extras = ":/h/.local/bin:/h/.claude/local:/opt/homebrew/bin:/usr/local/bin:"
                             "/h/google-cloud-sdk/bin:/opt/homebrew/share/google-cloud-sdk/bin:"
                             "/usr/local/share/google-cloud-sdk/bin";
  const std::string fallback = "/opt/homebrew/bin:/usr/local/bin:/usr/bin:/bin:/usr/sbin:/sbin";
  struct Case {
    std::string shell;
    std::string expected;
  } cases[] = {
      {fakeShell("login", "/x/bin:/usr/local/bin"), "/x/bin:/usr/local/bin" + extras},
      {fakeShell("silent", ""), fallback + extras},
      {fakeShell("garbled", "/x/\377"), fallback + extras},
      {(dir.path() / "missing").string(), fallback},
  };
  for (const auto& c : cases) {
    EXPECT_EQ(ProcessRunner::computeLoginSearchPath(c.shell, "/h"), c.expected) << c.shell;
  }
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
