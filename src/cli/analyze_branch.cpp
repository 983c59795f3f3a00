#include "cli/analyze_branch.h"

#include "cli/cli_output.h"

#include <utility>

namespace quillora::cli {

git::CommitCrash commitCrashOf(const crash::CrashReport& report) {
  git::CommitCrash crash;
  crash.exceptionType = report.exceptionType;
  crash.exceptionMessage = report.exceptionMessage;
  return crash;
}

git::FixBranchResult makeAnalyzeBranch(const AnalyzeOptions& options,
                                       const ai::FixAnalysis& analysis,
                                       const git::CommitCrash& crash,
                                       git::ImplementStep implement) {
  git::FixBranchRequest request;
  request.repository = *options.repo;
  request.analysis = analysis;
  request.crash = crash;
  request.base = options.base;
  request.branchName = options.branchName;
  request.author = git::CommitAuthor::commandLine;
  request.implement = std::move(implement);
  git::FixBranchProgress progress;
  progress.progress = [](const std::string& line) { CLIOutput::shared().progress(line); };
  progress.warning = [](const std::string& line) { CLIOutput::shared().warning(line); };
  return git::makeFixBranch(request, progress);
}

}  // namespace quillora::cli
