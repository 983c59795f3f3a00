#pragma once

#include "ai/fix_analysis.h"
#include "cli/analyze_options.h"
#include "crash/crash_report.h"
#include "git/fix_branch.h"

// The --branch step of an analyze run, after the engine answered and before the result is
// rendered.
namespace quillora::cli {

// The crash as the commit message tells it: the report's exception type and message. A caller
// with a crash-service issue adds its service name and link or ID.
git::CommitCrash commitCrashOf(const crash::CrashReport& report);

// Makes the fix branch in the current checkout of --repo, from --base, named --branch-name or by
// the configured prefix: progress on standard error, warnings as "quillora: warning: …".
// `implement` is the Claude Code implement step when that engine can run, else empty. Throws what
// git::makeFixBranch throws (the checkout is back where it was).
git::FixBranchResult makeAnalyzeBranch(const AnalyzeOptions& options,
                                       const ai::FixAnalysis& analysis,
                                       const git::CommitCrash& crash,
                                       git::ImplementStep implement);

}  // namespace quillora::cli
