#pragma once

#include <string>
#include <vector>

#include "base/json.h"
#include "base/time.h"
#include "history/analysis_record.h"
#include "history/duplicate_finder.h"

// How history records and duplicate hints appear in command-line results.
namespace quillora::cli {

// "yyyy-MM-dd HH:mm" in local time, digits only (the same in every locale).
std::string formatLocalMinutes(base::Clock::time_point time);

// The record summary of the history documents: "id", "date", "origin", "title", "subject",
// "kind", …, "fixStatus"; absent values as null.
base::Json recordSummaryJson(const history::AnalysisSummary& summary);

// A `CLIDuplicate` object: "kind", "score", "basis", "reason", "headline", "detail", "date",
// "recordID", "ticketKey", "issueID", "appID", "pullRequestURL", "fixState", "fixVersion".
base::Json duplicateJson(const history::DuplicateMatch& match);
// "Possible duplicate: <headline> — <reason> (<where>, <when>, score 0.95)", no newline.
std::string duplicateLine(const history::DuplicateMatch& match);
// The Markdown quotation block "> **Possible duplicates**" with one item a match; empty without
// matches.
std::string duplicatesMarkdown(const std::vector<history::DuplicateMatch>& matches);

}  // namespace quillora::cli
