#include "cli/branch_report.h"

#include <gtest/gtest.h>

namespace quillora::cli {
namespace {

git::FixBranchResult sampleBranch() {
  git::FixBranchResult branch;
  branch.name = "fix/crash-nullreferenceexception";
  branch.repository = "/work/game";
  branch.baseRef = "develop";
  branch.baseCommit = "0123456789abcdef0123456789abcdef01234567";
  branch.commit = "fedcba9876543210fedcba9876543210fedcba98";
  branch.method = "claude-code";
  branch.summary = "Guarded the target.";
  branch.filesChanged = {"Assets/Player.cs", "Assets/Guard.cs"};
  branch.diffStat = "2 files changed, 5 insertions(+)";
  return branch;
}

TEST(BranchReport, TextAndMarkdownLines) {
  EXPECT_EQ(branchTextLine(sampleBranch()),
            "Branch: fix/crash-nullreferenceexception (from develop, commit fedcba9) 2 file(s)");
  EXPECT_EQ(branchMarkdownSection(sampleBranch()),
            "## Fix branch\n\n`fix/crash-nullreferenceexception` from develop, commit fedcba9, 2 "
            "file(s) changed\n");
}

}  // namespace
}  // namespace quillora::cli
