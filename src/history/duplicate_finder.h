#pragma once

#include <memory>
#include <string>
#include <vector>

#include "crash/crash_report.h"
#include "history/history_store.h"
#include "history/match_index.h"

namespace quillora::history {

// A place to look for earlier occurrences of a crash. Earlier analyses come from the history
// store; tracked fixes and top issues of the crash services plug in the same way.
class DuplicateSource {
 public:
  virtual ~DuplicateSource() = default;
  // The source's current candidates. Called once per lookup; should be cheap when nothing changed.
  virtual std::shared_ptr<const MatchIndex> matchIndex() = 0;
};

// The earlier analyses of a history store.
class HistoryDuplicateSource : public DuplicateSource {
 public:
  explicit HistoryDuplicateSource(HistoryStore& store) : m_store(store) {}
  std::shared_ptr<const MatchIndex> matchIndex() override { return m_store.matchIndex(); }

 private:
  HistoryStore& m_store;
};

// What a crash is compared by: the same values a summary keeps for a record.
struct CrashFeatures {
  std::string signature;
  std::string exceptionType;
  std::vector<std::string> frameTokens;
  std::vector<std::string> textTokens;
};
// The features of a crash about to be analysed, made by the same rules as a record's summary.
CrashFeatures crashFeatures(const crash::CrashReport& report, std::string signature);

// One earlier item the crash may be a repeat of.
struct DuplicateMatch {
  DuplicateCandidate item;
  double score = 0;   // 0…1; 1 only for an equal signature
  std::string basis;  // "signature", "frames" or "text"
  std::string reason; // what matched, e.g. "same crash signature"
};

// Finds earlier analyses (and tracked fixes and top issues, once their sources are added) that
// match a crash: an equal signature first (score 1), then the weighted overlap of the top in-app
// frames together with the exception type (at most 0.95), then, when one side has no usable
// frames, the shared words of exception, message and blamed symbol (at most 0.7). Only matches
// scoring 0.5 or more are kept. Any thread; each source guards its own data.
class DuplicateFinder {
 public:
  static constexpr size_t kDefaultLimit = 5;
  static constexpr double kMinimumScore = 0.5;

  explicit DuplicateFinder(std::vector<std::shared_ptr<DuplicateSource>> sources);

  // The best matches, highest score first (newest first among equal scores), at most `limit`.
  [[nodiscard]] std::vector<DuplicateMatch> find(const crash::CrashReport& report,
                                                 const std::string& signature,
                                                 size_t limit = kDefaultLimit) const;
  [[nodiscard]] std::vector<DuplicateMatch> find(const CrashFeatures& crash,
                                                 size_t limit = kDefaultLimit) const;

 private:
  std::vector<std::shared_ptr<DuplicateSource>> m_sources;
};

// Matches of `crash` among one index's candidates, unsorted and unlimited.
std::vector<DuplicateMatch> matchCandidates(const MatchIndex& index, const CrashFeatures& crash);

}  // namespace quillora::history
