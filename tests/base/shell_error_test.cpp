#include "base/shell_error.h"

#include <gtest/gtest.h>

namespace quillora::base {
namespace {

TEST(ShellError, FailedShowsTheTrimmedOutputOnlyWhenThereIsSome) {
  struct Case {
    std::string output;
    std::string message;
  } cases[] = {
      {"\n  fatal: not a git repository\n\n",
       "`git status` failed (exit 128):\nfatal: not a git repository"},
      {"", "`git status` failed (exit 128)"},
      {" \n\t\n", "`git status` failed (exit 128)"},
  };
  for (const auto& c : cases) {
    ShellError error = ShellError::failed("git status", 128, c.output);
    EXPECT_EQ(error.what(), c.message);
    EXPECT_EQ(error.errorCase(), ShellError::Case::failed);
    EXPECT_EQ(error.output(), c.output);
    EXPECT_EQ(error.kind(), "shell");
  }
}

TEST(ShellTimeout, NamesTheLimitInSecondsUpTo119AndInWholeMinutesAbove) {
  struct Case {
    int64_t seconds;
    bool stalled;
    std::string message;
  } cases[] = {
      {1, false, "`gradle` didn't finish within 1 seconds, so Quillora stopped it."},
      {119, false, "`gradle` didn't finish within 119 seconds, so Quillora stopped it."},
      {120, false, "`gradle` didn't finish within 2 minutes, so Quillora stopped it."},
      {150, true, "`gradle` stopped responding (no output for 2 minutes), so Quillora stopped it."},
      {1799, true,
       "`gradle` stopped responding (no output for 29 minutes), so Quillora stopped it."},
  };
  for (const auto& c : cases) {
    EXPECT_EQ(ShellTimeout("gradle", c.seconds, "", c.stalled).what(), c.message);
  }
}

TEST(ShellTimeout, ShowsTheLast600CharactersOfTheTrimmedLastOutput) {
  const std::string head = "`claude` didn't finish within 10 minutes, so Quillora stopped it.";
  std::string accents;
  for (int i = 0; i < 700; ++i)
    accents += "é";
  std::string last600;
  for (int i = 0; i < 600; ++i)
    last600 += "é";
  struct Case {
    std::string lastOutput;
    std::string message;
  } cases[] = {
      {"", head},
      {"  \n\n", head},
      {"\nBuilding…\nerror: boom\n", head + "\nLast output:\nBuilding…\nerror: boom"},
      {"x" + accents + "\n", head + "\nLast output:\n" + last600},
  };
  for (const auto& c : cases) {
    ShellTimeout timeout("claude", 600, c.lastOutput, false);
    EXPECT_EQ(timeout.what(), c.message);
    EXPECT_EQ(timeout.lastOutput(), c.lastOutput);
  }
}

} // namespace
} // namespace quillora::base
