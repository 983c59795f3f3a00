#pragma once

#include <optional>
#include <string>
#include <vector>

#include "ai/ai_backend.h"
#include "ai/fix_analysis.h"
#include "crash/crash_report.h"
#include "history/analysis_record.h"
#include "history/duplicate_finder.h"
#include "history/history_store.h"

// The history steps of an analyze run: the duplicate lookup before the engine is asked and
// --save-history after it answered.
namespace quillora::cli {

// Earlier analyses that match the crash, best first, each also noted on standard error as
// "Possible duplicate: …". A history that can't be read gives a warning and no matches: the
// analysis goes on without hints.
std::vector<history::DuplicateMatch> lookForDuplicates(const crash::CrashReport& report,
                                                       const std::string& signature,
                                                       history::HistoryStore& store = history::HistoryStore::shared());

// The record of a pasted or loaded trace analysed by `backend` with `model` (origin and subject
// "pasted", engine label "<engine display name> (<model>)"). The caller adds usage, cost,
// repository and notes.
history::AnalysisRecord analyzeRecord(const crash::CrashReport& report, const std::string& signature,
                                      ai::FixAnalysis analysis, ai::AIBackend backend,
                                      const std::string& model);

// Saves the record (--save-history), notes "Saved to the history: <id>" on standard error and
// returns the id for "historyRecordID". Throws history::HistoryError when it can't be written.
std::string saveToHistory(history::AnalysisRecord record,
                          history::HistoryStore& store = history::HistoryStore::shared());

}  // namespace quillora::cli
