#include "cli/branch_report.h"

namespace quillora::cli {

namespace {
std::string shortCommit(const std::string& hash) { return hash.substr(0, 7); }
}  // namespace

base::Json branchJson(const git::FixBranchResult& branch) {
  return {{"name", branch.name},
          {"repo", branch.repository.string()},
          {"baseRef", branch.baseRef},
          {"baseCommit", branch.baseCommit},
          {"commit", branch.commit},
          {"method", branch.method},
          {"summary", branch.summary},
          {"filesChanged", branch.filesChanged},
          {"diffStat", branch.diffStat}};
}

std::string branchTextLine(const git::FixBranchResult& branch) {
  return "Branch: " + branch.name + " (from " + branch.baseRef + ", commit " +
         shortCommit(branch.commit) + ") " + std::to_string(branch.filesChanged.size()) +
         " file(s)";
}

std::string branchMarkdownSection(const git::FixBranchResult& branch) {
  return "## Fix branch\n\n`" + branch.name + "` from " + branch.baseRef + ", commit " +
         shortCommit(branch.commit) + ", " + std::to_string(branch.filesChanged.size()) +
         " file(s) changed\n";
}

}  // namespace quillora::cli
