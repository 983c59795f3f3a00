#include <fmt/format.h>

#include "base/json.h"
#include "base/strings.h"
#include "cli/analyze_options.h"
#include "cli/cli_output.h"
#include "cli/commands/commands.h"
#include "cli/crash_json.h"
#include "crash/apple_crash_log_reader.h"
#include "cli/version_info.h"

namespace quillora::cli {

namespace {

std::string sourceLabel(const AnalyzeOptions& o) {
  return *o.tracePath == "-" ? std::string("stdin") : *o.tracePath;
}

base::Json engineJson(const AnalyzeOptions& o) {
  const auto& info = ai::backendInfo(o.backend);
  return {{"name", std::string(info.rawValue)}, {"label", std::string(info.displayName)}, {"model", o.model}};
}

int reportDryRun(CommandContext& context, const AnalyzeOptions& o, const std::string& traceText,
                 const crash::CrashReport& report, const std::vector<std::string>& warnings) {
  const auto& info = ai::backendInfo(o.backend);
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
    doc["usage"] = nullptr;
    doc["costUSD"] = nullptr;
    doc["durationSeconds"] = 0.0;
    doc["duplicates"] = base::Json::array();
    doc["historyRecordID"] = nullptr;
    doc["branch"] = nullptr;
    doc["verification"] = nullptr;
    doc["warnings"] = warnings;
    doc["dryRun"] = {{"traceBytes", traceText.size()},
                     {"notes", o.notes.empty() ? base::Json(nullptr) : base::Json(o.notes)},
                     {"repo", o.repo ? base::Json(*o.repo) : base::Json(nullptr)},
                     {"sent", false}};
    writeJsonResult(context, doc);
    return 0;
  }
  std::string text;
  text += "Dry run: nothing was sent to " + std::string(info.displayName) + ".\n";
  text += "Engine: " + std::string(info.displayName) + " (" + o.model + ")\n";
  text += fmt::format("Crash: {} ({} bytes)\n", sourceLabel(o), traceText.size());
  text += crashFactsText(report);
  text += "Repository: " + o.repo.value_or("none") + "\n";
  text += "Notes: " + (o.notes.empty() ? std::string("none") : o.notes) + "\n";
  writeResult(context, text);
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
  if (options.dryRun) return reportDryRun(context, options, traceText, report, warnings);
  throw UnavailableError(
      "This build can't ask an engine yet. Add --dry-run to see what would be sent.");
}

}  // namespace quillora::cli
