#include "cli/history_output.h"

#include <ctime>

#include <fmt/format.h>

#include "base/strings.h"

namespace quillora::cli {

namespace {

using base::Json;

std::string shortID(const std::string& id) { return id.substr(0, 8); }

// Where the matched item lives, e.g. "history record 3F2A9C1B" or "top issue 1234".
std::string whereLabel(const history::DuplicateCandidate& item) {
  if (item.kind == "history") return item.recordID ? "history record " + shortID(*item.recordID) : "history";
  if (item.kind == "trackedFix") {
    std::string label = "tracked fix";
    if (item.fixState) label += " (" + *item.fixState + ")";
    return label;
  }
  if (item.kind == "topIssue") return item.issueID ? "top issue " + *item.issueID : "top issue";
  return item.kind;
}

}  // namespace

std::string formatLocalMinutes(base::Clock::time_point time) {
  std::time_t t = base::Clock::to_time_t(time);
  std::tm tm{};
  localtime_r(&t, &tm);
  return fmt::format("{:04}-{:02}-{:02} {:02}:{:02}", tm.tm_year + 1900, tm.tm_mon + 1, tm.tm_mday,
                     tm.tm_hour, tm.tm_min);
}

Json recordSummaryJson(const history::AnalysisSummary& s) {
  Json json = Json::object();
  json["id"] = s.id;
  json["date"] = base::formatISO8601(s.date);
  json["origin"] = s.origin;
  json["title"] = s.title;
  json["subject"] = s.subjectLine;
  json["kind"] = s.subjectKind;
  json["platform"] = std::string(crash::displayName(s.platform));
  json["exceptionType"] = s.exceptionType;
  json["signature"] = s.signature;
  json["severity"] = s.severity;
  json["confidence"] = s.confidence;
  json["engine"] = s.engineLabel;
  json["costUSD"] = base::orNullNumber(s.costUSD);
  json["appID"] = base::orNull(s.appID);
  json["appName"] = base::orNull(s.appName);
  json["issueID"] = base::orNull(s.issueID);
  json["issueTitle"] = base::orNull(s.issueTitle);
  json["issueURL"] = base::orNull(s.issueURL);
  json["ticketKeys"] = s.ticketKeys;
  json["branch"] = base::orNull(s.branch);
  json["pullRequestURL"] = base::orNull(s.pullRequestURL);
  json["verification"] = base::orNull(s.verification);
  // The state lives with the tracked fix; until that store answers, the summary can't tell.
  json["fixStatus"] = nullptr;
  return json;
}

Json duplicateJson(const history::DuplicateMatch& match) {
  const history::DuplicateCandidate& item = match.item;
  Json json = Json::object();
  json["kind"] = item.kind;
  json["score"] = base::jsonNumber(match.score);
  json["basis"] = match.basis;
  json["reason"] = match.reason;
  json["headline"] = item.headline;
  json["detail"] = item.detail;
  json["date"] = item.date ? Json(base::formatISO8601(*item.date)) : Json(nullptr);
  json["recordID"] = base::orNull(item.recordID);
  json["ticketKey"] = base::orNull(item.ticketKey);
  json["issueID"] = base::orNull(item.issueID);
  json["appID"] = base::orNull(item.appID);
  json["pullRequestURL"] = base::orNull(item.pullRequestURL);
  json["fixState"] = base::orNull(item.fixState);
  json["fixVersion"] = base::orNull(item.fixVersion);
  return json;
}

std::string duplicateLine(const history::DuplicateMatch& match) {
  const history::DuplicateCandidate& item = match.item;
  std::string where = whereLabel(item);
  if (item.date) where += ", " + formatLocalMinutes(*item.date);
  if (item.pullRequestURL) where += ", " + *item.pullRequestURL;
  return "Possible duplicate: " + item.headline + " — " + match.reason + " (" + where + ", score " +
         base::formatFixed(match.score, 2) + ")";
}

std::string duplicatesMarkdown(const std::vector<history::DuplicateMatch>& matches) {
  if (matches.empty()) return "";
  std::string text = "> **Possible duplicates**\n";
  for (const auto& match : matches) {
    std::string where = whereLabel(match.item);
    if (match.item.date) where += ", " + formatLocalMinutes(*match.item.date);
    text += "> - **" + match.item.headline + "**: " + match.reason + " (" + where + ", score " +
            base::formatFixed(match.score, 2) + ")";
    if (match.item.pullRequestURL) text += " [pull request](" + *match.item.pullRequestURL + ")";
    text += "\n";
  }
  return text;
}

}  // namespace quillora::cli
