#include <chrono>
#include <filesystem>
#include <memory>

#include "ai/ai_error.h"
#include "ai/claude_code_provider.h"
#include "ai/engine_registry.h"
#include "base/json.h"
#include "base/strings.h"
#include "base/time.h"
#include "cli/analysis_report.h"
#include "cli/analyze_branch.h"
#include "cli/analyze_history.h"
#include "cli/analyze_options.h"
#include "cli/budget_json.h"
#include "cli/cli_output.h"
#include "cli/commands/commands.h"
#include "cli/crash_json.h"
#include "cli/dry_run_report.h"
#include "cli/history_output.h"
#include "cli/version_info.h"
#include "cost/budget.h"
#include "cost/cost_ledger.h"
#include "crash/apple_crash_log_reader.h"
#include "crash/crash_signature.h"

namespace quillora::cli {

namespace {

base::Json engineJson(const AnalyzeOptions& o) {
  const auto& info = ai::backendInfo(o.backend);
  return {{"name", std::string(info.rawValue)}, {"label", std::string(info.displayName)}, {"model", o.model}};
}

int reportDryRun(CommandContext& context, const AnalyzeOptions& o, const std::string& traceText,
                 const crash::CrashReport& report, const std::vector<std::string>& warnings,
                 const std::vector<history::DuplicateMatch>& duplicates) {
  DryRun dryRun = prepareDryRun(o, report);
  if (context.format == "json") {
    base::Json doc = jsonResultHead("analyze", true);
    doc["exitCode"] = 0;
    doc["quilloraVersion"] = kVersion;
    doc["engine"] = engineJson(o);
    CrashOrigin origin;
    if (*o.tracePath != "-") origin.file = *o.tracePath;
    doc["crash"] = crashJson(report, origin);
    doc["symbolication"] = nullptr;
    doc["analysis"] = nullptr;
    doc["contextFiles"] = base::Json::array();
    for (const auto& snippet : dryRun.snippets) doc["contextFiles"].push_back(snippet.path);
    doc["usage"] = nullptr;
    doc["costUSD"] = nullptr;
    doc["durationSeconds"] = 0.0;
    // Where the month stands, so a script sees before spending whether a real run would be blocked.
    doc["budget"] = budgetJson(cost::currentBudgetStatus(cost::CostLedger()));
    doc["duplicates"] = base::Json::array();
    for (const auto& match : duplicates) doc["duplicates"].push_back(duplicateJson(match));
    doc["historyRecordID"] = nullptr;
    doc["branch"] = nullptr;
    doc["verification"] = nullptr;
    doc["warnings"] = warnings;
    doc["dryRun"] = dryRunJson(dryRun, o, traceText);
    writeJsonResult(context, doc);
    return 0;
  }
  if (context.format == "markdown") {
    writeResult(context, renderDryRunMarkdown(dryRun, o, traceText));
  } else {
    writeResult(context, renderDryRunText(dryRun, o, traceText, crashFactsText(report)));
  }
  return 0;
}

// An engine failure as the command line tells it: the missing-key case gets the variable to set.
class EngineFailure : public Error {
 public:
  using Error::Error;
  [[nodiscard]] std::string kind() const override { return "ai"; }
};

std::string keyVariable(ai::AIBackend backend) {
  switch (backend) {
    case ai::AIBackend::openAI: return "OPENAI_API_KEY";
    case ai::AIBackend::gemini: return "GEMINI_API_KEY";
    default: return "ANTHROPIC_API_KEY";
  }
}

std::unique_ptr<ai::AnalysisEngine> buildEngine(const AnalyzeOptions& o,
                                                std::shared_ptr<cost::CostLedger> ledger) {
  ai::EngineOptions engineOptions;
  engineOptions.model = o.model;
  engineOptions.progress = [](const std::string& line) { CLIOutput::shared().progress(line); };
  engineOptions.warning = [](const std::string& line) { CLIOutput::shared().warning(line); };
  engineOptions.usageMeter = std::make_shared<cost::UsageMeter>();
  engineOptions.recording.ledger = std::move(ledger);
  try {
    return ai::makeEngine(o.backend, std::move(engineOptions));
  } catch (const ai::AIError& error) {
    if (error.errorCase() != ai::AIError::Case::missingAPIKey) throw;
    throw EngineFailure(std::string(error.what()) + "\nOn the command line, set " +
                        keyVariable(o.backend));
  }
}

// What the fix verifier would report; this build has none, so a branch is never verified.
base::Json unverifiedJson(const std::string& summary) {
  return {{"outcome", "skipped"},       {"summary", summary},
          {"project", ""},              {"command", ""},
          {"regressionTest", nullptr},  {"regressionTestPath", nullptr},
          {"failsWithoutFix", nullptr}, {"passesWithFix", nullptr},
          {"testCommitted", false},     {"durationSeconds", 0.0}};
}

int runAnalysis(CommandContext& context, const AnalyzeOptions& o, crash::CrashReport report,
                std::vector<std::string> warnings,
                const std::vector<history::DuplicateMatch>& duplicates,
                std::chrono::steady_clock::time_point started) {
  CLIOutput& out = CLIOutput::shared();
  if (o.symbolicate) {
    warnings.emplace_back("Symbolication isn't part of this build yet; the trace is analyzed as it is.");
    out.warning(warnings.back());
  }
  DryRun prepared = prepareDryRun(o, report);
  auto ledger = std::make_shared<cost::CostLedger>();
  auto engine = buildEngine(o, ledger);

  out.progress(ai::consentNote(o.backend, engine->modelName()));
  const auto& info = ai::backendInfo(o.backend);
  out.progress("Asking " + std::string(info.displayName) + "…");
  out.progress(prepared.prompt.summary);
  auto askStarted = std::chrono::steady_clock::now();
  ai::FixAnalysis analysis = engine->analyze(prepared.prompt, {});
  double answerSeconds =
      std::chrono::duration<double>(std::chrono::steady_clock::now() - askStarted).count();
  out.progress("Answered in " + base::formatDuration(answerSeconds));

  AnalyzeOutcome outcome;
  outcome.backend = o.backend;
  outcome.model = engine->modelName();
  outcome.report = std::move(report);
  if (*o.tracePath != "-") outcome.origin.file = *o.tracePath;
  outcome.analysis = analysis;
  for (const auto& snippet : prepared.snippets) outcome.contextFiles.push_back(snippet.path);
  if (const auto& call = engine->lastCall()) {
    outcome.usage = call->usage;
    if (call->entry) outcome.costUSD = call->entry->costUSD;
  }

  for (const auto& match : duplicates) {
    outcome.duplicates.push_back(duplicateJson(match));
    // The report lists them under its own heading; the per-line prefix is for standard error.
    std::string line = duplicateLine(match);
    constexpr std::string_view prefix = "Possible duplicate: ";
    if (line.rfind(prefix, 0) == 0) line.erase(0, prefix.size());
    outcome.duplicateLines.push_back(line);
  }
  if (o.branch) {
    // With Claude Code the agent itself makes the change when the patch doesn't apply.
    git::ImplementStep implement;
    if (auto* claude = dynamic_cast<ai::ClaudeCodeProvider*>(engine.get()))
      implement = claude->implementStep(analysis, outcome.report, o.notes, prepared.prompt.system);
    outcome.branch = makeAnalyzeBranch(o, analysis, commitCrashOf(outcome.report), implement);
  }
  // Saved after the branch step so the record knows the branch it led to.
  if (o.saveHistory) {
    history::AnalysisRecord record =
        analyzeRecord(outcome.report, crash::crashSignature(outcome.report), analysis, o.backend,
                      outcome.model);
    record.usage = outcome.usage;
    record.costUSD = outcome.costUSD;
    if (o.repo) record.repoPath = std::filesystem::absolute(*o.repo).string();
    if (outcome.branch) {
      record.branch = outcome.branch->name;
      record.baseBranch = outcome.branch->baseRef;
    }
    outcome.historyRecordID = saveToHistory(std::move(record));
  }
  bool unverified = false;
  if (o.verify) {
    out.progress("Verifying the fix:");
    std::string summary = "Not verified: building and testing fix branches isn't part of this build yet.";
    out.warning(summary);
    outcome.verification = unverifiedJson(summary);
    outcome.verificationSummary = summary;
    unverified = o.failOnUnverified;
  }
  outcome.budget = cost::currentBudgetStatus(*ledger);
  outcome.warnings = std::move(warnings);
  outcome.exitCode = unverified ? 5 : 0;
  outcome.durationSeconds =
      std::chrono::duration<double>(std::chrono::steady_clock::now() - started).count();

  if (context.format == "json") {
    writeJsonResult(context, analyzeResultJson(outcome));
  } else if (context.format == "markdown") {
    writeResult(context, analyzeResultMarkdown(outcome));
  } else {
    writeResult(context, analyzeResultText(outcome));
  }
  if (o.markdownOut) writeUserFile(*o.markdownOut, analyzeResultMarkdown(outcome));
  if (unverified) {
    out.error("The fix wasn't verified (none): this build can't build and test fix branches yet.");
    return 5;
  }
  return 0;
}

}  // namespace

int runAnalyze(CommandContext& context) {
  auto started = std::chrono::steady_clock::now();
  AnalyzeOptions options = validateAnalyzeOptions(context.args, context.format);
  if (options.appQuery) {
    throw UnavailableError(
        "Fetching issues from a crash service isn't available in this build yet; save the crash "
        "to a file and use --trace.");
  }
  std::string traceText = readTraceText(*options.tracePath);
  crash::CrashReport report = crash::readCrashText(traceText, crash::StackTraceParser::configured());
  std::vector<std::string> warnings;
  if (report.frameCount() == 0) {
    warnings.emplace_back("No stack frames were recognized in the crash; the engine works from the text alone.");
    CLIOutput::shared().warning(warnings.back());
  }
  if (!options.repo) CLIOutput::shared().progress("No repository: the engine works from the crash alone");
  std::vector<history::DuplicateMatch> duplicates;
  if (!options.noDuplicates) duplicates = lookForDuplicates(report, crash::crashSignature(report));
  if (options.dryRun) return reportDryRun(context, options, traceText, report, warnings, duplicates);
  return runAnalysis(context, options, std::move(report), std::move(warnings), duplicates, started);
}

}  // namespace quillora::cli
