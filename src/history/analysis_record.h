#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "ai/fix_analysis.h"
#include "base/json.h"
#include "base/time.h"
#include "cost/analysis_usage.h"
#include "crash/crash_platform.h"
#include "crash/crash_report.h"

namespace quillora::history {

// What was analysed: a pasted trace, an issue of a crash service or a ticket. Only `kind` is
// always present.
struct AnalysisSubject {
  std::string kind = "pasted";  // "pasted", "crashReport" or "ticket"
  std::optional<std::string> source;  // crash service raw value ("crashlytics", "sentry", …)
  std::optional<std::string> appID;
  std::optional<std::string> appName;
  std::optional<std::string> issueID;
  std::optional<std::string> issueTitle;
  std::optional<std::string> issueURL;
  std::optional<long long> events;
  std::optional<long long> users;
  std::optional<std::string> errorType;
  std::optional<std::string> ticketService;
  std::optional<std::string> ticketKey;
  std::optional<std::string> ticketURL;
  std::optional<std::string> ticketTitle;
  bool operator==(const AnalysisSubject&) const = default;
};

// One saved analysis. Plain value; HistoryStore owns the files.
struct AnalysisRecord {
  // What the lists, the search and the duplicate finder read from the index without opening the
  // record file. Made by makeSummary(); never edited on its own.
  struct Summary {
    std::string id;
    base::Clock::time_point date{};
    std::string origin;
    std::string title;
    std::string subjectLine;
    std::string subjectKind;
    crash::CrashPlatform platform = crash::CrashPlatform::unknown;
    std::string exceptionType;
    std::string signature;
    std::optional<double> costUSD;
    std::optional<std::string> verification;
    std::optional<std::string> branch;
    std::optional<std::string> pullRequestURL;
    std::vector<std::string> ticketKeys;
    std::optional<std::string> issueID;
    std::optional<std::string> appID;
    std::string severity;
    std::string confidence;
    std::optional<std::string> source;
    std::optional<std::string> appName;
    std::optional<std::string> issueTitle;
    std::optional<std::string> issueURL;
    std::optional<long long> events;
    std::optional<long long> users;
    std::optional<std::string> ticketKey;
    std::optional<std::string> ticketService;
    std::optional<std::string> ticketURL;
    std::string engineLabel;
    std::optional<std::string> blameSymbol;
    std::vector<std::string> topFrames;
    std::string rootCauseExcerpt;
    std::optional<std::string> repoPath;
    std::optional<std::string> trackedFixID;
    std::optional<std::string> triageRunID;
    std::optional<std::string> pairedRecordID;
    std::vector<std::string> tokens;      // frame keys of the top frames, innermost first
    std::vector<std::string> textTokens;  // words of the exception and blamed symbol, sorted
    bool operator==(const Summary&) const = default;
  };

  std::string id;  // empty until first saved
  base::Clock::time_point date{};
  std::string origin = "pasted";  // "pasted", "crashReport", "ticket", "triage", "secondOpinion"
  AnalysisSubject subject;
  crash::CrashPlatform platform = crash::CrashPlatform::unknown;
  std::string exceptionType;
  std::optional<std::string> exceptionMessage;
  std::optional<std::string> blameSymbol;
  std::optional<std::string> blameLocation;
  std::vector<std::string> topFrames;
  std::string signature;
  std::string rawTrace;
  std::optional<std::string> context;
  ai::FixAnalysis analysis;
  std::string engineLabel;
  std::string backend;  // AIBackend raw value
  std::optional<cost::AnalysisUsage> usage;
  std::optional<double> costUSD;
  std::optional<std::string> repoPath;
  std::optional<std::string> branch;
  std::optional<std::string> baseBranch;
  std::optional<std::string> pullRequestURL;
  std::optional<std::string> verification;  // "verified", "testsPass", "buildOnly", "failed", "skipped"
  std::optional<std::string> trackedFixID;
  std::vector<std::string> ticketKeys;
  std::optional<std::string> triageRunID;
  std::optional<std::string> pairedRecordID;
  bool operator==(const AnalysisRecord&) const = default;
};
using AnalysisSummary = AnalysisRecord::Summary;

// How many frames of the crashed thread a record keeps in "topFrames", and a summary of those.
inline constexpr size_t kRecordTopFrames = 15;
inline constexpr size_t kSummaryTopFrames = 5;

// A record with the crash fields filled from `report`: platform, exception, blamed frame,
// "topFrames" (the summary-text frame lines of the crashed thread), signature and raw trace. The
// caller adds the analysis, engine, cost and subject. The date is now.
AnalysisRecord recordForCrash(const crash::CrashReport& report, std::string signature);

// The record as stored: every key of the record, optional values left out, dates ISO 8601.
base::Json toJson(const AnalysisRecord& record);
// Lenient: unknown keys are ignored and bad list elements skipped. nullopt when the value is not
// an object, or "id", "date" or "analysis" (with its title) is missing or unusable.
std::optional<AnalysisRecord> analysisRecordFromJson(const base::Json& json);

// The index entry of a record. Tokens come from the record's top frames, exception and blamed
// symbol, so that an index rebuilt from the files compares crashes the same way.
AnalysisSummary makeSummary(const AnalysisRecord& record);
base::Json toJson(const AnalysisSummary& summary);
// nullopt when the value is not an object or has no usable "id" or "date"; anything else is lenient.
std::optional<AnalysisSummary> analysisSummaryFromJson(const base::Json& json);

// True for text that can name a record file: 1 to 64 letters, digits and hyphens.
bool isUsableRecordID(std::string_view id);

// "Crashlytics", "Sentry", "BugSnag", "Backtrace", "Google Play", "App Store"; nullopt otherwise.
std::optional<std::string_view> sourceDisplayName(std::string_view source);

}  // namespace quillora::history
