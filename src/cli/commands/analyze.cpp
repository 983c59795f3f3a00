#include <fmt/format.h>

#include "base/json.h"
#include "base/strings.h"
#include "cli/analyze_history.h"
#include "cli/analyze_options.h"
#include "cli/cli_output.h"
#include "cli/commands/commands.h"
#include "cli/crash_json.h"
#include "cli/dry_run_report.h"
#include "cli/history_output.h"
#include "crash/apple_crash_log_reader.h"
#include "crash/crash_signature.h"
#include "cli/version_info.h"

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

}  // namespace

int runAnalyze(CommandContext& context) {
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
  throw UnavailableError(
      "This build can't ask an engine yet. Add --dry-run to see what would be sent.");
}

}  // namespace quillora::cli
