#include "history/analysis_record.h"

#include <algorithm>

#include "base/strings.h"
#include "base/text.h"
#include "history/crash_tokens.h"

namespace quillora::history {

namespace {

using base::Json;

constexpr size_t kSubjectLineLimit = 120;
constexpr size_t kRootCauseExcerptLimit = 200;

void putOptional(Json& json, const char* key, const std::optional<std::string>& value) {
  if (value) json[key] = *value;
}
void putOptional(Json& json, const char* key, const std::optional<long long>& value) {
  if (value) json[key] = *value;
}
void putOptional(Json& json, const char* key, const std::optional<double>& value) {
  if (value) json[key] = base::jsonNumber(*value);
}

std::string readText(const Json& json, std::string_view key) {
  return base::readString(json, key).value_or("");
}

// A list of strings; elements that aren't text are skipped.
std::vector<std::string> readStrings(const Json& json, std::string_view key) {
  std::vector<std::string> out;
  auto it = json.find(key);
  if (it == json.end() || !it->is_array()) return out;
  for (const Json& element : *it) {
    if (element.is_string()) out.push_back(element.get<std::string>());
  }
  return out;
}

std::optional<base::Clock::time_point> readDate(const Json& json, std::string_view key) {
  auto text = base::readString(json, key);
  if (!text) return std::nullopt;
  return base::parseISO8601(*text);
}

crash::CrashPlatform readPlatform(const Json& json) {
  auto name = base::readString(json, "platform");
  if (!name) return crash::CrashPlatform::unknown;
  return crash::crashPlatformFromDisplayName(*name).value_or(crash::CrashPlatform::unknown);
}

// Line breaks and runs of white space become single blanks.
std::string oneLine(std::string_view text) {
  std::string out;
  out.reserve(text.size());
  bool space = false;
  for (char c : base::trim(text)) {
    if (c == ' ' || c == '\t' || c == '\n' || c == '\r') {
      space = true;
      continue;
    }
    if (space && !out.empty()) out.push_back(' ');
    space = false;
    out.push_back(c);
  }
  return out;
}

// At most `limit` characters; a longer text is cut at the last blank of the second half and ends
// in "…".
std::string cutAtWord(std::string text, size_t limit) {
  if (base::graphemeCount(text) <= limit) return text;
  std::string_view head = base::prefixGraphemes(text, limit - 1);
  size_t blank = head.rfind(' ');
  if (blank != std::string_view::npos && blank >= head.size() / 2) head = head.substr(0, blank);
  std::string out(base::trim(head));
  while (!out.empty() && (out.back() == ',' || out.back() == ';' || out.back() == ':')) out.pop_back();
  return out + "…";
}

std::string capitalized(std::string text) {
  if (!text.empty() && text[0] >= 'a' && text[0] <= 'z') text[0] = static_cast<char>(text[0] - 32);
  return text;
}

std::string crashHeadline(const AnalysisRecord& record) {
  std::string line = record.exceptionType.empty() ? std::string("Crash") : record.exceptionType;
  if (record.blameSymbol && !record.blameSymbol->empty()) {
    line += " in " + crash::shortSymbol(*record.blameSymbol, crash::kTitleSymbolLimit);
  }
  return line;
}

std::string subjectLine(const AnalysisRecord& record) {
  const AnalysisSubject& s = record.subject;
  std::string line;
  if (s.kind == "crashReport") {
    std::string source = s.source ? std::string(sourceDisplayName(*s.source).value_or(*s.source)) : "";
    std::string app = s.appName.value_or(s.appID.value_or(""));
    std::string issue = s.issueTitle.value_or(s.issueID.value_or(crashHeadline(record)));
    line = source;
    if (!app.empty()) line += (line.empty() ? "" : ": ") + app;
    line += (line.empty() ? "" : " · ") + issue;
  } else if (s.kind == "ticket") {
    if (s.ticketService) line = capitalized(*s.ticketService);
    if (s.ticketKey) line += (line.empty() ? "" : " ") + *s.ticketKey;
    if (s.ticketTitle) line += (line.empty() ? "" : ": ") + *s.ticketTitle;
    if (line.empty()) line = "Ticket";
  } else {
    line = "Pasted trace: " + crashHeadline(record);
  }
  return cutAtWord(oneLine(line), kSubjectLineLimit);
}

Json subjectToJson(const AnalysisSubject& s) {
  Json json = Json::object();
  json["kind"] = s.kind;
  putOptional(json, "source", s.source);
  putOptional(json, "appID", s.appID);
  putOptional(json, "appName", s.appName);
  putOptional(json, "issueID", s.issueID);
  putOptional(json, "issueTitle", s.issueTitle);
  putOptional(json, "issueURL", s.issueURL);
  putOptional(json, "events", s.events);
  putOptional(json, "users", s.users);
  putOptional(json, "errorType", s.errorType);
  putOptional(json, "ticketService", s.ticketService);
  putOptional(json, "ticketKey", s.ticketKey);
  putOptional(json, "ticketURL", s.ticketURL);
  putOptional(json, "ticketTitle", s.ticketTitle);
  return json;
}

AnalysisSubject subjectFromJson(const Json& json) {
  AnalysisSubject s;
  if (!json.is_object()) return s;
  s.kind = base::readString(json, "kind").value_or("pasted");
  s.source = base::readString(json, "source");
  s.appID = base::readString(json, "appID");
  s.appName = base::readString(json, "appName");
  s.issueID = base::readString(json, "issueID");
  s.issueTitle = base::readString(json, "issueTitle");
  s.issueURL = base::readString(json, "issueURL");
  s.events = base::readInteger(json, "events");
  s.users = base::readInteger(json, "users");
  s.errorType = base::readString(json, "errorType");
  s.ticketService = base::readString(json, "ticketService");
  s.ticketKey = base::readString(json, "ticketKey");
  s.ticketURL = base::readString(json, "ticketURL");
  s.ticketTitle = base::readString(json, "ticketTitle");
  return s;
}

}  // namespace

bool isUsableRecordID(std::string_view id) {
  if (id.empty() || id.size() > 64) return false;
  return std::all_of(id.begin(), id.end(), [](char c) {
    return (c >= '0' && c <= '9') || (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || c == '-';
  });
}

std::optional<std::string_view> sourceDisplayName(std::string_view source) {
  if (source == "crashlytics") return "Crashlytics";
  if (source == "sentry") return "Sentry";
  if (source == "bugsnag") return "BugSnag";
  if (source == "backtrace") return "Backtrace";
  if (source == "googleplay") return "Google Play";
  if (source == "appstore") return "App Store";
  return std::nullopt;
}

AnalysisRecord recordForCrash(const crash::CrashReport& report, std::string signature) {
  AnalysisRecord record;
  record.date = base::Clock::now();
  record.platform = report.platform;
  record.exceptionType = report.exceptionType;
  if (!report.exceptionMessage.empty()) record.exceptionMessage = report.exceptionMessage;
  if (const crash::StackFrame* frame = report.blamedFrame()) {
    record.blameSymbol = frame->displaySymbol();
    record.blameLocation = frame->location();
  }
  record.topFrames = topFrameLines(report, kRecordTopFrames);
  record.signature = std::move(signature);
  record.rawTrace = report.rawText;
  return record;
}

Json toJson(const AnalysisRecord& r) {
  Json json = Json::object();
  json["id"] = r.id;
  json["date"] = base::formatISO8601(r.date);
  json["origin"] = r.origin;
  json["subject"] = subjectToJson(r.subject);
  json["platform"] = std::string(crash::displayName(r.platform));
  json["exceptionType"] = r.exceptionType;
  putOptional(json, "exceptionMessage", r.exceptionMessage);
  putOptional(json, "blameSymbol", r.blameSymbol);
  putOptional(json, "blameLocation", r.blameLocation);
  json["topFrames"] = r.topFrames;
  json["signature"] = r.signature;
  json["rawTrace"] = r.rawTrace;
  putOptional(json, "context", r.context);
  json["analysis"] = ai::toJson(r.analysis);
  json["engineLabel"] = r.engineLabel;
  json["backend"] = r.backend;
  if (r.usage) json["usage"] = cost::toJson(*r.usage);
  putOptional(json, "costUSD", r.costUSD);
  putOptional(json, "repoPath", r.repoPath);
  putOptional(json, "branch", r.branch);
  putOptional(json, "baseBranch", r.baseBranch);
  putOptional(json, "pullRequestURL", r.pullRequestURL);
  putOptional(json, "verification", r.verification);
  putOptional(json, "trackedFixID", r.trackedFixID);
  json["ticketKeys"] = r.ticketKeys;
  putOptional(json, "triageRunID", r.triageRunID);
  putOptional(json, "pairedRecordID", r.pairedRecordID);
  return json;
}

std::optional<AnalysisRecord> analysisRecordFromJson(const Json& json) {
  if (!json.is_object()) return std::nullopt;
  auto id = base::readString(json, "id");
  auto date = readDate(json, "date");
  auto analysis = json.contains("analysis") ? ai::fixAnalysisFromJson(json["analysis"]) : std::nullopt;
  if (!id || !isUsableRecordID(*id) || !date || !analysis) return std::nullopt;
  AnalysisRecord r;
  r.id = *id;
  r.date = *date;
  r.origin = base::readString(json, "origin").value_or("pasted");
  if (auto it = json.find("subject"); it != json.end()) r.subject = subjectFromJson(*it);
  r.platform = readPlatform(json);
  r.exceptionType = readText(json, "exceptionType");
  r.exceptionMessage = base::readString(json, "exceptionMessage");
  r.blameSymbol = base::readString(json, "blameSymbol");
  r.blameLocation = base::readString(json, "blameLocation");
  r.topFrames = readStrings(json, "topFrames");
  r.signature = readText(json, "signature");
  r.rawTrace = readText(json, "rawTrace");
  r.context = base::readString(json, "context");
  r.analysis = std::move(*analysis);
  r.engineLabel = readText(json, "engineLabel");
  r.backend = readText(json, "backend");
  if (auto it = json.find("usage"); it != json.end() && it->is_object()) {
    r.usage = cost::analysisUsageFromJson(*it);
  }
  r.costUSD = base::readDouble(json, "costUSD");
  r.repoPath = base::readString(json, "repoPath");
  r.branch = base::readString(json, "branch");
  r.baseBranch = base::readString(json, "baseBranch");
  r.pullRequestURL = base::readString(json, "pullRequestURL");
  r.verification = base::readString(json, "verification");
  r.trackedFixID = base::readString(json, "trackedFixID");
  r.ticketKeys = readStrings(json, "ticketKeys");
  r.triageRunID = base::readString(json, "triageRunID");
  r.pairedRecordID = base::readString(json, "pairedRecordID");
  return r;
}

AnalysisSummary makeSummary(const AnalysisRecord& r) {
  AnalysisSummary s;
  s.id = r.id;
  s.date = r.date;
  s.origin = r.origin;
  s.title = r.analysis.title;
  s.subjectLine = subjectLine(r);
  s.subjectKind = r.subject.kind;
  s.platform = r.platform;
  s.exceptionType = r.exceptionType;
  s.signature = r.signature;
  s.costUSD = r.costUSD;
  s.verification = r.verification;
  s.branch = r.branch;
  s.pullRequestURL = r.pullRequestURL;
  s.ticketKeys = r.ticketKeys;
  s.issueID = r.subject.issueID;
  s.appID = r.subject.appID;
  s.severity = r.analysis.severity;
  s.confidence = r.analysis.confidence;
  s.source = r.subject.source;
  s.appName = r.subject.appName;
  s.issueTitle = r.subject.issueTitle;
  s.issueURL = r.subject.issueURL;
  s.events = r.subject.events;
  s.users = r.subject.users;
  s.ticketKey = r.subject.ticketKey;
  s.ticketService = r.subject.ticketService;
  s.ticketURL = r.subject.ticketURL;
  s.engineLabel = r.engineLabel;
  s.blameSymbol = r.blameSymbol;
  s.topFrames.assign(r.topFrames.begin(),
                     r.topFrames.begin() + static_cast<std::ptrdiff_t>(
                                               std::min(r.topFrames.size(), kSummaryTopFrames)));
  s.rootCauseExcerpt = cutAtWord(oneLine(r.analysis.rootCause), kRootCauseExcerptLimit);
  s.repoPath = r.repoPath;
  s.trackedFixID = r.trackedFixID;
  s.triageRunID = r.triageRunID;
  s.pairedRecordID = r.pairedRecordID;
  s.tokens = frameTokens(r.topFrames);
  s.textTokens = textTokens({r.exceptionType, r.exceptionMessage.value_or(""), r.blameSymbol.value_or("")});
  return s;
}

Json toJson(const AnalysisSummary& s) {
  Json json = Json::object();
  json["id"] = s.id;
  json["date"] = base::formatISO8601(s.date);
  json["origin"] = s.origin;
  json["title"] = s.title;
  json["subjectLine"] = s.subjectLine;
  json["subjectKind"] = s.subjectKind;
  json["platform"] = std::string(crash::displayName(s.platform));
  json["exceptionType"] = s.exceptionType;
  json["signature"] = s.signature;
  putOptional(json, "costUSD", s.costUSD);
  putOptional(json, "verification", s.verification);
  putOptional(json, "branch", s.branch);
  putOptional(json, "pullRequestURL", s.pullRequestURL);
  json["ticketKeys"] = s.ticketKeys;
  putOptional(json, "issueID", s.issueID);
  putOptional(json, "appID", s.appID);
  json["severity"] = s.severity;
  json["confidence"] = s.confidence;
  putOptional(json, "source", s.source);
  putOptional(json, "appName", s.appName);
  putOptional(json, "issueTitle", s.issueTitle);
  putOptional(json, "issueURL", s.issueURL);
  putOptional(json, "events", s.events);
  putOptional(json, "users", s.users);
  putOptional(json, "ticketKey", s.ticketKey);
  putOptional(json, "ticketService", s.ticketService);
  putOptional(json, "ticketURL", s.ticketURL);
  json["engineLabel"] = s.engineLabel;
  putOptional(json, "blameSymbol", s.blameSymbol);
  json["topFrames"] = s.topFrames;
  json["rootCauseExcerpt"] = s.rootCauseExcerpt;
  putOptional(json, "repoPath", s.repoPath);
  putOptional(json, "trackedFixID", s.trackedFixID);
  putOptional(json, "triageRunID", s.triageRunID);
  putOptional(json, "pairedRecordID", s.pairedRecordID);
  json["tokens"] = s.tokens;
  json["textTokens"] = s.textTokens;
  return json;
}

std::optional<AnalysisSummary> analysisSummaryFromJson(const Json& json) {
  if (!json.is_object()) return std::nullopt;
  auto id = base::readString(json, "id");
  auto date = readDate(json, "date");
  if (!id || !isUsableRecordID(*id) || !date) return std::nullopt;
  AnalysisSummary s;
  s.id = *id;
  s.date = *date;
  s.origin = readText(json, "origin");
  s.title = readText(json, "title");
  s.subjectLine = readText(json, "subjectLine");
  s.subjectKind = readText(json, "subjectKind");
  s.platform = readPlatform(json);
  s.exceptionType = readText(json, "exceptionType");
  s.signature = readText(json, "signature");
  s.costUSD = base::readDouble(json, "costUSD");
  s.verification = base::readString(json, "verification");
  s.branch = base::readString(json, "branch");
  s.pullRequestURL = base::readString(json, "pullRequestURL");
  s.ticketKeys = readStrings(json, "ticketKeys");
  s.issueID = base::readString(json, "issueID");
  s.appID = base::readString(json, "appID");
  s.severity = readText(json, "severity");
  s.confidence = readText(json, "confidence");
  s.source = base::readString(json, "source");
  s.appName = base::readString(json, "appName");
  s.issueTitle = base::readString(json, "issueTitle");
  s.issueURL = base::readString(json, "issueURL");
  s.events = base::readInteger(json, "events");
  s.users = base::readInteger(json, "users");
  s.ticketKey = base::readString(json, "ticketKey");
  s.ticketService = base::readString(json, "ticketService");
  s.ticketURL = base::readString(json, "ticketURL");
  s.engineLabel = readText(json, "engineLabel");
  s.blameSymbol = base::readString(json, "blameSymbol");
  s.topFrames = readStrings(json, "topFrames");
  s.rootCauseExcerpt = readText(json, "rootCauseExcerpt");
  s.repoPath = base::readString(json, "repoPath");
  s.trackedFixID = base::readString(json, "trackedFixID");
  s.triageRunID = base::readString(json, "triageRunID");
  s.pairedRecordID = base::readString(json, "pairedRecordID");
  s.tokens = readStrings(json, "tokens");
  s.textTokens = readStrings(json, "textTokens");
  return s;
}

}  // namespace quillora::history
