#pragma once

#include <string>

#include "base/json.h"
#include "git/fix_branch.h"

// How a fix branch appears in the analyze result: the CLIBranch JSON object and its lines in the
// text and Markdown reports.
namespace quillora::cli {

// "name", "repo", "baseRef", "baseCommit", "commit", "method", "summary", "filesChanged",
// "diffStat".
base::Json branchJson(const git::FixBranchResult& branch);

// "Branch: <name> (from <base>, commit <short>) <n> file(s)", without a newline.
std::string branchTextLine(const git::FixBranchResult& branch);

// "## Fix branch", an empty line, and "`<name>` from <base>, commit <short>, <n> file(s) changed",
// ending with a newline.
std::string branchMarkdownSection(const git::FixBranchResult& branch);

}  // namespace quillora::cli
