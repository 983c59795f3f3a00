#pragma once

#include <optional>
#include <string>
#include <vector>

#include "ai/ai_backend.h"
#include "ai/fix_analysis.h"
#include "base/json.h"
#include "cli/crash_json.h"
#include "cost/analysis_usage.h"
#include "cost/budget.h"
#include "crash/crash_report.h"
#include "git/fix_branch.h"

namespace quillora::cli {

// One finished analyze run, as every report format shows it.
struct AnalyzeOutcome {
  ai::AIBackend backend = ai::AIBackend::claudeAPI;
  std::string model;
  crash::CrashReport report;
  CrashOrigin origin;
  ai::FixAnalysis analysis;
  std::vector<std::string> contextFiles;
  std::optional<cost::AnalysisUsage> usage;  // nullopt: the engine reported none
  std::optional<double> costUSD;             // nullopt: no usage, or the model has no price
  double durationSeconds = 0;                // the whole run
  cost::BudgetStatus budget;
  base::Json duplicates = base::Json::array();  // CLIDuplicate objects
  std::vector<std::string> duplicateLines;      // one line per hit, for text and Markdown
  std::optional<std::string> historyRecordID;
  std::optional<git::FixBranchResult> branch;
  base::Json verification = nullptr;  // CLIVerification or null
  std::optional<std::string> verificationSummary;
  std::vector<std::string> warnings;
  int exitCode = 0;
};

// The CLIAnalyzeResult document: every key present, optional values as explicit nulls.
base::Json analyzeResultJson(const AnalyzeOutcome& outcome);
// The text report: title, severity and confidence, the crash headline, root cause and fix, steps
// to reproduce, duplicates, branch, verification, history record and the usage line.
std::string analyzeResultText(const AnalyzeOutcome& outcome);
// The Markdown report (also written by --markdown-out).
std::string analyzeResultMarkdown(const AnalyzeOutcome& outcome);
// "<engine label> · <duration> · <t> tokens (<i> in, <o> out) · <cost>", or the engine and the
// duration alone when the engine reported no usage.
std::string usageLine(const AnalyzeOutcome& outcome);

}  // namespace quillora::cli
