#pragma once

#include "ai/analysis_engine.h"
#include "crash/crash_report.h"
#include "base/process_runner.h"
#include "cost/usage_meter.h"

#include <chrono>
#include <filesystem>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

// The engine of AIBackend claudeCode ("Claude Code CLI"): the `claude` command-line agent run as a
// child process in the repository folder, so that the model opens, greps and (in the implement
// step) edits the files itself, with the user's own Claude Code login. See docs/claude-code.md.
namespace quillora::ai {

class ClaudeCodeProvider : public AnalysisEngine {
public:
  using Progress = std::function<void(const std::string& line)>;

  // The `claude` executable as set; empty means "find it on the login search path".
  std::string claudePath;
  // Handed to --model; an alias ("opus") or a full model name.
  std::string model;
  // A per-call spend cap handed to the tool (--max-budget-usd).
  std::optional<double> maxBudgetUSD;
  // Receives each progress line, on the calling thread, in the order the events arrive.
  Progress progress;
  // Shared with the rest of the run; may be null.
  std::shared_ptr<cost::UsageMeter> usageMeter;

  // Where finished calls are written (the ledger, the call's kind and history record).
  UsageRecording recording;
  // Receives the monthly budget's notice ("… of this month's … AI budget is used.").
  Progress warning;

  // How long one call may run in all, and how long the agent may stay silent. An analysis reads
  // a handful of files; an implementation also edits them and may take longer.
  base::Seconds analysisTimeLimit = std::chrono::minutes(20);
  base::Seconds implementTimeLimit = std::chrono::minutes(30);
  base::Seconds stallLimit = std::chrono::minutes(5);
  // The watchdog's clock (tests shrink it).
  base::ProcessTiming timing;

  ClaudeCodeProvider(std::string claudePath, std::string model, std::optional<double> maxBudgetUSD,
                     Progress progress, std::shared_ptr<cost::UsageMeter> usageMeter);

  // The engine as the registry builds it: the `claudePath` setting, `model` (empty: the `cliModel`
  // setting, default "opus") and the "claudeCode.maxBudgetUSD" setting.
  static ClaudeCodeProvider fromSettings(std::string model, Progress progress,
                                         std::shared_ptr<cost::UsageMeter> usageMeter);

  [[nodiscard]] AIBackend backend() const override { return AIBackend::claudeCode; }
  [[nodiscard]] std::string modelName() const override { return model; }

  // The analysis step: read-only tools, the analysis schema, working directory `prompt.repo`.
  // Pictures outside the repository are made readable with --add-dir. Throws AIError (missingRepo
  // without a repository; cli, failed or badResponse as the run ends), BudgetError, LedgerError,
  // CancelledError.
  FixAnalysis analyze(const StructuredPrompt& prompt,
                      const std::vector<PromptImage>& images) override;

  // The implement step on a fresh branch of `repo`: `userText` is the implement prompt, the tools
  // may edit files inside the repository. `systemText` is appended to the agent's own system
  // prompt. Throws as analyze() does.
  FixImplementation implement(const std::string& userText, const std::filesystem::path& repo,
                              const std::string& systemText);

  // The implement step as the fix-branch flow takes it (git::ImplementStep): the implement prompt
  // of `analysis` (with the crash summary of `report` when it has a trace, and the notes), run
  // in the repository the flow hands over. The provider must outlive the step.
  std::function<FixImplementation(const std::filesystem::path& repository,
                                  const std::string& branch)>
  implementStep(FixAnalysis analysis, std::optional<crash::CrashReport> report, std::string notes,
                std::string systemText);

  [[nodiscard]] const std::optional<RecordedCall>& lastCall() const override { return m_lastCall; }

  // The permission mode of each step (see docs/claude-code.md).
  static constexpr const char* kAnalysisPermissionMode = "dontAsk";
  static constexpr const char* kImplementPermissionMode = "acceptEdits";

private:
  struct Call;
  // Runs the agent once and hands the result's structured output to the call's decoder.
  void run(const Call& call);
  [[nodiscard]] std::filesystem::path findClaude() const;

  std::optional<RecordedCall> m_lastCall;
};

} // namespace quillora::ai
