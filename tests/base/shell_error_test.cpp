#include "base/shell_error.h"

#include <gtest/gtest.h>

namespace quillora::base {
namespace {

TEST(ShellTimeout, NamesTheLimitAndTheLast600CharactersOfTheTrimmedLastOutput) {
  auto repeat = [](const std::string& s, int n) {
    std::string out;
    while (n-- > 0)
      out += s;
    return out;
  };
  const std::string tenMinutes = "`gradle` didn't finish within 10 minutes, so Quillora stopped it.";
  struct Case {
    int64_t seconds;
    bool stalled;
    std::string lastOutput;
    std::string message;
  } cases[] = {
      {1, false, "", "`gradle` didn't finish within 1 seconds, so Quillora stopped it."},
      {119, false, "", "`gradle` didn't finish within 119 seconds, so Quillora stopped it."},
      {120, false, "", "`gradle` didn't finish within 2 minutes, so Quillora stopped it."},
      {150, true, "", "`gradle` stopped responding (no output for 2 minutes), so Quillora stopped it."},
      {1799, true, "", "`gradle` stopped responding (no output for 29 minutes), so Quillora stopped it."},
      {600, false, "  \n\n", tenMinutes},
      {600, false, "\nBuilding…\nerror: boom\n", tenMinutes + "\nLast output:\nBuilding…\nerror: boom"},
      {600, false, "x" + repeat("é", 700) + "\n", tenMinutes + "\nLast output:\n" + repeat("é", 600)},
  };
  for (const auto& c : cases) {
    ShellTimeout timeout("gradle", c.seconds, c.lastOutput, c.stalled);
    EXPECT_EQ(timeout.what(), c.message);
    EXPECT_EQ(timeout.lastOutput(), c.lastOutput);
  }
}

} // namespace
} // namespace quillora::base
