#include "cli/analyze_branch.h"

#include "ai/analysis_prompt.h"
#include "ai/claude_code_provider.h"
#include "base/process_runner.h"
#include "cli/cli_output.h"

#include <utility>

namespace quillora::cli {

git::CommitCrash commitCrashOf(const crash::CrashReport& report) {
  git::CommitCrash crash;
  crash.exceptionType = report.exceptionType;
  crash.exceptionMessage = report.exceptionMessage;
  return crash;
}

git::ImplementStep claudeCodeImplementStep(const AnalyzeOptions& options,
                                           const ai::FixAnalysis& analysis,
                                           const crash::CrashReport& report,
                                           ai::UsageRecording recording,
                                           std::shared_ptr<cost::UsageMeter> meter) {
  if (options.backend != ai::AIBackend::claudeCode) return {};
  ai::ClaudeCodeProvider probe = ai::ClaudeCodeProvider::fromSettings(options.model, {}, nullptr);
  if (!base::ProcessRunner::resolve(probe.claudePath.empty() ? "claude" : probe.claudePath)) {
    return {};
  }
  std::string prompt = ai::buildImplementPrompt(analysis, &report, options.notes);
  std::string model = options.model;
  return [prompt, model, recording, meter](const std::filesystem::path& repository,
                                           const std::string&) {
    ai::ClaudeCodeProvider provider = ai::ClaudeCodeProvider::fromSettings(
        model, [](const std::string& line) { CLIOutput::shared().progress(line); }, meter);
    provider.recording = recording;
    provider.warning = [](const std::string& line) { CLIOutput::shared().warning(line); };
    // The implement prompt carries its own rules; the analysis's output contract doesn't apply.
    return provider.implement(prompt, repository, "");
  };
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

void recordBranchInHistory(const std::string& recordID, const git::FixBranchResult& branch,
                           history::HistoryStore& store) {
  store.update(recordID, [&](history::AnalysisRecord& record) {
    record.branch = branch.name;
    record.baseBranch = branch.baseRef;
  });
}

}  // namespace quillora::cli
