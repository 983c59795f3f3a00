#pragma once

#include <memory>

#include "ai/fix_analysis.h"
#include "ai/usage_recording.h"
#include "cost/usage_meter.h"
#include "history/history_store.h"
#include "cli/analyze_options.h"
#include "crash/crash_report.h"
#include "git/fix_branch.h"

// The --branch step of an analyze run, after the engine answered and before the result is
// rendered.
namespace quillora::cli {

// The crash as the commit message tells it: the report's exception type and message. A caller
// with a crash-service issue adds its service name and link or ID.
git::CommitCrash commitCrashOf(const crash::CrashReport& report);

// The Claude Code implement step for --branch, or empty when it can't be offered: only a run whose
// engine is Claude Code (the consent note named it, so no code goes to another provider unasked)
// and whose `claude` can be found. The step gets the implement prompt of the analysis, runs the
// agent in the repository with its editing tools and meters the call into `recording`/`meter`.
git::ImplementStep claudeCodeImplementStep(const AnalyzeOptions& options,
                                           const ai::FixAnalysis& analysis,
                                           const crash::CrashReport& report,
                                           ai::UsageRecording recording,
                                           std::shared_ptr<cost::UsageMeter> meter);

// Makes the fix branch in the current checkout of --repo, from --base, named --branch-name or by
// the configured prefix: progress on standard error, warnings as "quillora: warning: …".
// `implement` is the Claude Code implement step when that engine can run, else empty. Throws what
// git::makeFixBranch throws (the checkout is back where it was).
git::FixBranchResult makeAnalyzeBranch(const AnalyzeOptions& options,
                                       const ai::FixAnalysis& analysis,
                                       const git::CommitCrash& crash,
                                       git::ImplementStep implement);

// Puts the branch into a record saved earlier in the run (--save-history with --branch): "branch"
// is its name and "baseBranch" the base it came from. Throws history::HistoryError.
void recordBranchInHistory(const std::string& recordID, const git::FixBranchResult& branch,
                           history::HistoryStore& store = history::HistoryStore::shared());

}  // namespace quillora::cli
