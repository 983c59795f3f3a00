#pragma once

#include <filesystem>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "base/error.h"
#include "history/analysis_record.h"
#include "history/index_file.h"
#include "history/match_index.h"

namespace quillora::history {

// A history operation that can't be done: an unknown or unreadable record, a file that can't be
// written. Exit 1.
class HistoryError : public Error {
 public:
  using Error::Error;
  [[nodiscard]] std::string kind() const override { return "history"; }
};

// The saved analyses: one "<id>.json" a record and "index.json" of summaries in the "history"
// folder, every read-modify-write under "history.lock" beside it. The desktop app, the command
// line and the bot share one store across processes; in one process the object may be used from
// several threads. Changes are announced as "history" (base/notifications) after the lock is
// released.
class HistoryStore {
 public:
  static constexpr size_t kMaxRecords = 5000;
  static constexpr int kIndexVersion = 1;

  // The store in the application-support folder, one per process.
  static HistoryStore& shared();
  // A store whose "history" folder and "history.lock" live in `folder`.
  explicit HistoryStore(std::filesystem::path folder);

  // How a record's signature is recomputed when the index is rebuilt. By default its raw trace
  // is read again (stack-trace parser or Apple reader) and signed with the current rules; a
  // record without a trace keeps its signature.
  using SignatureFunction = std::function<std::string(const AnalysisRecord&)>;
  void setSignatureFunction(SignatureFunction function);

  // Writes the record (a new upper-case UUID when it has no id), puts its summary first in the
  // index, prunes beyond 5000 records and returns the id. Throws HistoryError when the record
  // can't be written; the index is then left as it was.
  std::string save(AnalysisRecord record);
  // Reads the record, lets `change` edit it (its id stays), writes it back and refreshes its
  // summary in place. Throws HistoryError "No history record <id>." when there is none.
  AnalysisRecord update(std::string_view id, const std::function<void(AnalysisRecord&)>& change);
  // The record, or nullopt when its file is missing or can't be decoded.
  [[nodiscard]] std::optional<AnalysisRecord> load(std::string_view id) const;

  // Every summary, newest first (all of them decoded). The snapshot is shared and stays valid
  // while held.
  std::shared_ptr<const std::vector<AnalysisSummary>> summaries();
  // The newest `limit` summaries; *total (when given) gets the number of all of them. Only the
  // summaries shown are decoded, so an undecodable one further down still counts in the total.
  std::vector<AnalysisSummary> list(size_t limit, size_t* total = nullptr);
  // The summaries whose search text contains `query` regardless of case, newest first, at most
  // `limit`; *total (when given) gets the number of all matches.
  std::vector<AnalysisSummary> search(std::string_view query, size_t limit, size_t* total = nullptr);
  // A full id, else (for 6 characters or more) the newest summary whose id starts with it,
  // regardless of case.
  std::optional<AnalysisSummary> resolve(std::string_view reference);
  // The summaries prepared for the duplicate finder; rebuilt only when the index changes.
  std::shared_ptr<const MatchIndex> matchIndex();

  [[nodiscard]] const std::filesystem::path& folder() const { return m_folder; }
  [[nodiscard]] std::filesystem::path historyFolder() const { return m_folder / "history"; }
  [[nodiscard]] std::filesystem::path indexPath() const { return historyFolder() / "index.json"; }
  [[nodiscard]] std::filesystem::path lockPath() const { return m_folder / "history.lock"; }

 private:
  struct Stamp {
    unsigned long long device = 0, inode = 0, size = 0;
    long long modifiedNanoseconds = 0;
    bool operator==(const Stamp&) const = default;
  };
  struct Snapshot;

  std::shared_ptr<const Snapshot> current();
  std::shared_ptr<const Snapshot> loadLocked();
  IndexFile indexUnderLock();
  std::vector<AnalysisSummary> rebuild();
  void writeIndex(const std::string& text);
  void writeRecordMarked(const AnalysisRecord& record);
  void remember(IndexFile file);
  [[nodiscard]] std::optional<Stamp> indexStamp() const;
  [[nodiscard]] std::filesystem::path pendingPath() const { return historyFolder() / "index.pending"; }
  [[nodiscard]] std::filesystem::path recordPath(std::string_view id) const;

  std::filesystem::path m_folder;
  std::mutex m_mutex;  // guards the two members below
  std::shared_ptr<const Snapshot> m_snapshot;
  SignatureFunction m_signatureFunction;
};

// The text a search looks in: the summary's text fields and its crash source's display name,
// one a line, folded to lower case.
std::string searchText(const AnalysisSummary& summary);

}  // namespace quillora::history
