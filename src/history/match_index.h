#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "base/time.h"
#include "history/analysis_record.h"

namespace quillora::history {

// One thing a new crash may duplicate: an earlier analysis ("history"), a tracked fix
// ("trackedFix") or a top issue of a crash service ("topIssue"). The first five fields are
// compared; the rest is what a match shows.
struct DuplicateCandidate {
  std::string kind;
  std::string signature;
  std::string exceptionType;
  std::vector<std::string> frameTokens;  // frame keys, innermost first
  std::vector<std::string> textTokens;
  std::string headline;
  std::string detail;
  std::optional<base::Clock::time_point> date;
  std::optional<std::string> recordID;
  std::optional<std::string> ticketKey;
  std::optional<std::string> issueID;
  std::optional<std::string> appID;
  std::optional<std::string> pullRequestURL;
  std::optional<std::string> fixState;
  std::optional<std::string> fixVersion;
};

// The candidate an earlier analysis makes.
DuplicateCandidate historyCandidate(const AnalysisSummary& summary);

// Candidates prepared for comparison: tokens interned as numbers, and posting lists from
// signature and token to the candidates that hold them, so a lookup only scores candidates that
// share something with the crash. Immutable once built; safe to share between threads.
class MatchIndex {
 public:
  explicit MatchIndex(std::vector<DuplicateCandidate> candidates);

  [[nodiscard]] const std::vector<DuplicateCandidate>& candidates() const { return m_candidates; }
  // Candidates whose signature is `signature` (never for an empty one).
  [[nodiscard]] const std::vector<uint32_t>& withSignature(const std::string& signature) const;
  // The number of a frame or text token, or -1 when no candidate holds it.
  [[nodiscard]] int32_t frameTokenID(const std::string& token) const;
  [[nodiscard]] int32_t textTokenID(const std::string& token) const;
  [[nodiscard]] const std::vector<uint32_t>& withFrameToken(int32_t id) const { return m_frameTokenPostings[static_cast<size_t>(id)]; }
  [[nodiscard]] const std::vector<uint32_t>& withTextToken(int32_t id) const { return m_textTokenPostings[static_cast<size_t>(id)]; }
  // Per candidate: frame token numbers in order, text token numbers sorted, lower-case exception.
  [[nodiscard]] const std::vector<int32_t>& frameIDs(uint32_t candidate) const { return m_frameIDs[candidate]; }
  [[nodiscard]] const std::vector<int32_t>& textIDs(uint32_t candidate) const { return m_textIDs[candidate]; }
  [[nodiscard]] const std::string& exception(uint32_t candidate) const { return m_exceptions[candidate]; }

 private:
  std::vector<DuplicateCandidate> m_candidates;
  std::unordered_map<std::string, std::vector<uint32_t>> m_bySignature;
  std::unordered_map<std::string, int32_t> m_frameTokens;
  std::unordered_map<std::string, int32_t> m_textTokens;
  std::vector<std::vector<uint32_t>> m_frameTokenPostings;
  std::vector<std::vector<uint32_t>> m_textTokenPostings;
  std::vector<std::vector<int32_t>> m_frameIDs;
  std::vector<std::vector<int32_t>> m_textIDs;
  std::vector<std::string> m_exceptions;
};

}  // namespace quillora::history
