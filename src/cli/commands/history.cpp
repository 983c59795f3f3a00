#include <fmt/format.h>

#include "base/strings.h"
#include "cli/commands/commands.h"
#include "cli/history_output.h"
#include "history/history_store.h"

namespace quillora::cli {

namespace {

constexpr long long kDefaultLimit = 50;

std::string listLine(const history::AnalysisSummary& s) {
  std::string title = s.title.empty() ? s.exceptionType : s.title;
  std::string line = fmt::format("{:<8}  {}  {:<8}  {}", s.id.substr(0, 8),
                                 formatLocalMinutes(s.date), s.severity, title);
  if (!s.subjectLine.empty()) line += " — " + s.subjectLine;
  return line + "\n";
}

void addField(std::string& text, std::string_view label, const std::optional<std::string>& value) {
  if (value && !value->empty()) text += std::string(label) + ": " + *value + "\n";
}

void addSection(std::string& text, std::string_view heading, std::string_view body) {
  if (base::trim(body).empty()) return;
  text += "\n" + std::string(heading) + "\n" + std::string(base::trim(body)) + "\n";
}

void addList(std::string& text, std::string_view heading, const std::vector<std::string>& items,
             bool numbered) {
  if (items.empty()) return;
  text += "\n" + std::string(heading) + "\n";
  for (size_t i = 0; i < items.size(); ++i) {
    text += (numbered ? std::to_string(i + 1) + ". " : std::string("- ")) + items[i] + "\n";
  }
}

std::string recordText(const history::AnalysisRecord& r, const history::AnalysisSummary& s) {
  const ai::FixAnalysis& a = r.analysis;
  std::string text = a.title + "\n";
  text += "Record: " + r.id + "\n";
  text += "Date: " + formatLocalMinutes(r.date) + "\n";
  text += "Origin: " + r.origin + "\n";
  addField(text, "Subject", s.subjectLine);
  addField(text, "Issue", r.subject.issueURL);
  text += "Platform: " + std::string(crash::displayName(r.platform)) + "\n";
  text += "Exception: " + (r.exceptionType.empty() ? std::string("(unknown)") : r.exceptionType) + "\n";
  addField(text, "Message", r.exceptionMessage);
  if (r.blameSymbol) {
    text += "Blamed frame: " + *r.blameSymbol;
    if (r.blameLocation) text += " (" + *r.blameLocation + ")";
    text += "\n";
  }
  text += "Severity: " + a.severity + " · Confidence: " + a.confidence + "\n";
  addField(text, "Engine", r.engineLabel);
  if (r.costUSD) text += "Cost: $" + base::formatFixed(*r.costUSD, 4) + "\n";
  addField(text, "Repository", r.repoPath);
  if (r.branch) {
    text += "Branch: " + *r.branch;
    if (r.baseBranch) text += " (from " + *r.baseBranch + ")";
    text += "\n";
  }
  addField(text, "Pull request", r.pullRequestURL);
  addField(text, "Verification", r.verification);
  if (!r.ticketKeys.empty()) text += "Tickets: " + base::join(r.ticketKeys, ", ") + "\n";
  addField(text, "Tracked fix", r.trackedFixID);
  addField(text, "Triage run", r.triageRunID);
  addField(text, "Paired record", r.pairedRecordID);
  addSection(text, "Root cause", a.rootCause);
  addSection(text, "Fix", a.fixSummary);
  addList(text, "Steps to reproduce", a.reproSteps, true);
  addList(text, "Affected files", a.affectedFiles, false);
  addList(text, "Test suggestions", a.testSuggestions, false);
  addSection(text, "Patch", a.patch);
  if (!r.topFrames.empty()) addSection(text, "Top frames", base::join(r.topFrames, "\n"));
  addSection(text, "Context", r.context.value_or(""));
  return text;
}

int show(CommandContext& context, history::HistoryStore& store, const std::string& reference) {
  auto summary = store.resolve(reference);
  // A record whose file is gone or unreadable is as missing as one never saved.
  auto record = summary ? store.load(summary->id) : std::nullopt;
  if (!record) throw history::HistoryError("No history record " + reference + ".");
  if (context.format == "json") {
    base::Json doc = jsonResultHead("history", true);
    doc["summary"] = recordSummaryJson(*summary);
    doc["record"] = history::toJson(*record);
    writeJsonResult(context, doc);
    return 0;
  }
  writeResult(context, recordText(*record, *summary));
  return 0;
}

}  // namespace

int runHistory(CommandContext& context) {
  const auto& positionals = context.args.positionals;
  std::string action = positionals.empty() ? "list" : positionals[0];
  if (action != "list" && action != "search" && action != "show") {
    throw CLIUsageError("Unknown history action '" + action +
                        "': use list, search <query> or show <id>.");
  }
  if (action == "show" && positionals.size() < 2) throw CLIUsageError("history show needs a record ID.");
  if (action == "list" && positionals.size() > 1) {
    throw CLIUsageError("history list takes no query (use history search).");
  }
  if (action == "search" && positionals.size() < 2) {
    throw CLIUsageError("history search needs a query, e.g. quillora history search NullReference");
  }
  auto limit = static_cast<size_t>(wholeNumberOption(context.args, "limit", 1, 5000).value_or(kDefaultLimit));

  history::HistoryStore& store = history::HistoryStore::shared();
  if (action == "show") return show(context, store, positionals[1]);

  std::optional<std::string> query;
  if (action == "search") query = positionals[1];
  size_t total = 0;
  auto shown = query ? store.search(*query, limit, &total) : store.list(limit, &total);

  if (context.format == "json") {
    base::Json doc = jsonResultHead("history", true);
    doc["query"] = base::orNull(query);
    doc["total"] = total;
    doc["records"] = base::Json::array();
    for (const auto& summary : shown) doc["records"].push_back(recordSummaryJson(summary));
    writeJsonResult(context, doc);
    return 0;
  }
  std::string text;
  size_t stored = total;
  if (query && shown.empty()) store.list(0, &stored);
  if (stored == 0) {
    text = "No analyses in the history.\n";
  } else if (shown.empty()) {
    text = "No analyses match '" + *query + "'.\n";
  } else {
    for (const auto& summary : shown) text += listLine(summary);
    if (total > shown.size()) text += std::to_string(total - shown.size()) + " more (use --limit)\n";
  }
  writeResult(context, text);
  return 0;
}

}  // namespace quillora::cli
