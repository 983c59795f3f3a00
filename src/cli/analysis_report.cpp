#include "cli/analysis_report.h"

#include <fmt/format.h>

#include "base/strings.h"
#include "base/time.h"
#include "cli/branch_report.h"
#include "cli/budget_json.h"
#include "cli/command_context.h"
#include "cli/version_info.h"
#include "cost/money.h"

namespace quillora::cli {

namespace {

std::string engineLabel(const AnalyzeOutcome& o) {
  return std::string(ai::backendInfo(o.backend).displayName);
}

base::Json usageJson(const AnalyzeOutcome& o) {
  if (!o.usage) return nullptr;
  const auto& u = *o.usage;
  return {{"engine", u.backend},
          {"model", u.model},
          {"inputTokens", u.inputTokens},
          {"outputTokens", u.outputTokens},
          {"cacheReadTokens", u.cacheReadTokens},
          {"cacheWriteTokens", u.cacheWriteTokens},
          {"totalTokens", u.totalTokens()},
          {"reportedCostUSD", base::orNullNumber(u.reportedCostUSD)},
          {"durationSeconds", base::jsonNumber(u.duration)}};
}

// "1 of 3 frames in your code".
std::string frameShare(const crash::CrashReport& report) {
  return fmt::format("{} of {} frames in your code", report.inAppFrameCount(), report.frameCount());
}

std::string numbered(const std::vector<std::string>& steps) {
  std::string out;
  for (size_t i = 0; i < steps.size(); ++i) out += fmt::format("{}. {}\n", i + 1, steps[i]);
  return out;
}

std::string bulleted(const std::vector<std::string>& items, std::string_view prefix = "- ") {
  std::string out;
  for (const auto& item : items) out += std::string(prefix) + item + "\n";
  return out;
}

std::string ensureNewline(std::string text) {
  if (!text.empty() && text.back() != '\n') text.push_back('\n');
  return text;
}

// A fence longer than any run of backticks inside, so code can't close it early.
std::string fence(const std::string& code) {
  size_t longest = 0, run = 0;
  for (char c : code) {
    run = c == '`' ? run + 1 : 0;
    longest = std::max(longest, run);
  }
  return std::string(std::max<size_t>(3, longest + 1), '`');
}

std::string codeBlock(const std::string& language, const std::string& code) {
  std::string f = fence(code);
  return f + language + "\n" + ensureNewline(code) + f + "\n";
}

std::string excerptLocation(const std::string& file, long long line) {
  return line > 0 ? fmt::format("{}:{}", file, line) : file;
}

}  // namespace

std::string usageLine(const AnalyzeOutcome& o) {
  std::string line = engineLabel(o) + " (" + o.model + ") · " + base::formatDuration(o.durationSeconds);
  if (o.usage) {
    line += fmt::format(" · {} tokens ({} in, {} out)", o.usage->totalTokens(), o.usage->inputTokens,
                        o.usage->outputTokens);
  }
  line += " · " + (o.costUSD ? cost::formatUSD(*o.costUSD) : std::string("cost unknown"));
  return line;
}

base::Json analyzeResultJson(const AnalyzeOutcome& o) {
  const auto& info = ai::backendInfo(o.backend);
  base::Json doc = jsonResultHead("analyze", o.exitCode == 0);
  doc["exitCode"] = o.exitCode;
  doc["quilloraVersion"] = kVersion;
  doc["engine"] = {{"name", std::string(info.rawValue)},
                   {"label", std::string(info.displayName)},
                   {"model", o.model}};
  doc["crash"] = crashJson(o.report, o.origin);
  doc["symbolication"] = nullptr;
  doc["analysis"] = ai::toJson(o.analysis);
  doc["contextFiles"] = o.contextFiles;
  doc["usage"] = usageJson(o);
  doc["costUSD"] = base::orNullNumber(o.costUSD);
  doc["durationSeconds"] = base::jsonNumber(o.durationSeconds);
  doc["budget"] = budgetJson(o.budget);
  doc["duplicates"] = o.duplicates;
  doc["historyRecordID"] = base::orNull(o.historyRecordID);
  doc["branch"] = o.branch ? branchJson(*o.branch) : base::Json(nullptr);
  doc["verification"] = o.verification;
  doc["warnings"] = o.warnings;
  return doc;
}

std::string analyzeResultText(const AnalyzeOutcome& o) {
  const ai::FixAnalysis& a = o.analysis;
  std::string t;
  t += a.title + "\n";
  t += "Severity: " + a.severity + " · Confidence: " + a.confidence + "\n";
  t += o.report.title() + " — " + frameShare(o.report) + "\n";
  if (!a.rootCause.empty()) t += "\nRoot cause\n" + ensureNewline(a.rootCause);
  for (const auto& excerpt : a.rootCauseCode) {
    t += "\n" + excerptLocation(excerpt.file, excerpt.line) + "\n" + ensureNewline(excerpt.code);
    if (!excerpt.explanation.empty()) t += ensureNewline(excerpt.explanation);
  }
  if (!a.fixSummary.empty()) t += "\nFix\n" + ensureNewline(a.fixSummary);
  if (!a.patch.empty()) t += "\n" + ensureNewline(a.patch);
  if (!a.reproSteps.empty()) t += "\nSteps to reproduce\n" + numbered(a.reproSteps);
  if (!a.testSuggestions.empty()) t += "\nTests to add\n" + bulleted(a.testSuggestions);
  if (!o.duplicateLines.empty()) t += "\nPossible duplicates:\n" + bulleted(o.duplicateLines, "  ");
  std::string footer;
  if (o.branch) footer += branchTextLine(*o.branch) + "\n";
  if (o.verificationSummary) footer += "Verification: " + *o.verificationSummary + "\n";
  if (o.historyRecordID) footer += "History record: " + *o.historyRecordID + "\n";
  footer += usageLine(o) + "\n";
  return t + "\n" + footer;
}

std::string analyzeResultMarkdown(const AnalyzeOutcome& o) {
  const ai::FixAnalysis& a = o.analysis;
  std::string m;
  m += "# Quillora: " + a.title + "\n\n";
  m += std::string(crash::displayName(o.report.platform)) + " · analyzed with " + engineLabel(o) + "\n\n";
  if (o.origin.kind == "issue" && o.origin.issue.is_object()) {
    const auto& issue = o.origin.issue;
    std::string title = base::readString(issue, "title").value_or("");
    std::string link = base::readString(issue, "url").value_or("");
    m += fmt::format("Issue: [{}]({}) {} events, {} users\n\n", title, link,
                     base::readInteger(issue, "events").value_or(0),
                     base::readInteger(issue, "users").value_or(0));
  }
  if (!o.duplicateLines.empty()) {
    m += "> **Possible duplicates**\n";
    for (const auto& line : o.duplicateLines) m += "> - " + line + "\n";
    m += "\n";
  }
  m += "**Severity:** " + a.severity + " · **Confidence:** " + a.confidence + "  \n";
  m += "**Crash:** " + o.report.title() + " (" + frameShare(o.report) + ")\n\n";
  m += "## Root cause\n\n" + ensureNewline(a.rootCause);
  for (const auto& excerpt : a.rootCauseCode) {
    m += "\n`" + excerptLocation(excerpt.file, excerpt.line) + "`";
    if (excerpt.crashLine > 0) m += fmt::format(" (crashes at line {})", excerpt.crashLine);
    m += "\n\n" + codeBlock(excerpt.language, excerpt.code);
    if (!excerpt.explanation.empty()) m += "\n" + ensureNewline(excerpt.explanation);
  }
  m += "\n## Fix\n\n" + ensureNewline(a.fixSummary);
  if (!a.patch.empty()) m += "\n" + codeBlock("diff", a.patch);
  if (!a.reproSteps.empty()) m += "\n## Steps to reproduce\n\n" + numbered(a.reproSteps);
  if (!a.affectedFiles.empty()) {
    m += "\n## Affected files\n\n";
    for (const auto& file : a.affectedFiles) m += "- `" + file + "`\n";
  }
  if (!a.testSuggestions.empty()) m += "\n## Tests to add\n\n" + bulleted(a.testSuggestions);
  if (o.branch) m += "\n" + branchMarkdownSection(*o.branch);
  if (o.verificationSummary) m += "\n## Verification\n\n" + ensureNewline(*o.verificationSummary);
  if (o.historyRecordID) m += "\nHistory record: `" + *o.historyRecordID + "`\n";
  m += "\n---\n" + usageLine(o) + "\n";
  return m;
}

}  // namespace quillora::cli
