#include "history/match_index.h"

#include <algorithm>

#include "base/strings.h"

namespace quillora::history {

namespace {

int32_t intern(std::unordered_map<std::string, int32_t>& table,
               std::vector<std::vector<uint32_t>>& postings, const std::string& token) {
  auto [it, added] = table.try_emplace(token, static_cast<int32_t>(postings.size()));
  if (added) postings.emplace_back();
  return it->second;
}

const std::vector<uint32_t> kNone;

}  // namespace

DuplicateCandidate historyCandidate(const AnalysisSummary& summary) {
  DuplicateCandidate c;
  c.kind = "history";
  c.signature = summary.signature;
  c.exceptionType = summary.exceptionType;
  c.frameTokens = summary.tokens;
  c.textTokens = summary.textTokens;
  c.headline = summary.title.empty() ? summary.subjectLine : summary.title;
  c.detail = summary.subjectLine;
  c.date = summary.date;
  c.recordID = summary.id;
  if (!summary.ticketKeys.empty()) c.ticketKey = summary.ticketKeys.front();
  else c.ticketKey = summary.ticketKey;
  c.issueID = summary.issueID;
  c.appID = summary.appID;
  c.pullRequestURL = summary.pullRequestURL;
  return c;
}

MatchIndex::MatchIndex(std::vector<DuplicateCandidate> candidates) : m_candidates(std::move(candidates)) {
  size_t count = m_candidates.size();
  m_frameIDs.resize(count);
  m_textIDs.resize(count);
  m_exceptions.resize(count);
  for (size_t i = 0; i < count; ++i) {
    const DuplicateCandidate& c = m_candidates[i];
    auto number = static_cast<uint32_t>(i);
    if (!c.signature.empty()) m_bySignature[c.signature].push_back(number);
    for (const std::string& token : c.frameTokens) {
      int32_t id = intern(m_frameTokens, m_frameTokenPostings, token);
      if (std::find(m_frameIDs[i].begin(), m_frameIDs[i].end(), id) != m_frameIDs[i].end()) continue;
      m_frameIDs[i].push_back(id);
      m_frameTokenPostings[static_cast<size_t>(id)].push_back(number);
    }
    for (const std::string& token : c.textTokens) {
      m_textIDs[i].push_back(intern(m_textTokens, m_textTokenPostings, token));
    }
    std::sort(m_textIDs[i].begin(), m_textIDs[i].end());
    m_textIDs[i].erase(std::unique(m_textIDs[i].begin(), m_textIDs[i].end()), m_textIDs[i].end());
    for (int32_t id : m_textIDs[i]) m_textTokenPostings[static_cast<size_t>(id)].push_back(number);
    m_exceptions[i] = base::toLowerASCII(base::trim(c.exceptionType));
  }
}

const std::vector<uint32_t>& MatchIndex::withSignature(const std::string& signature) const {
  if (signature.empty()) return kNone;
  auto it = m_bySignature.find(signature);
  return it == m_bySignature.end() ? kNone : it->second;
}

int32_t MatchIndex::frameTokenID(const std::string& token) const {
  auto it = m_frameTokens.find(token);
  return it == m_frameTokens.end() ? -1 : it->second;
}

int32_t MatchIndex::textTokenID(const std::string& token) const {
  auto it = m_textTokens.find(token);
  return it == m_textTokens.end() ? -1 : it->second;
}

}  // namespace quillora::history
