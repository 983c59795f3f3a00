#include "history/duplicate_finder.h"

#include <algorithm>
#include <cmath>

#include <fmt/format.h>

#include "base/strings.h"
#include "history/crash_tokens.h"

namespace quillora::history {

namespace {

constexpr double kFrameWeight = 0.65;
constexpr double kExceptionWeight = 0.2;
constexpr double kTopFrameWeight = 0.1;
constexpr double kTextWeight = 0.7;

// The innermost frames say most about where a crash happens.
double positionWeight(size_t position) { return 1.0 / static_cast<double>(position + 1); }

struct Query {
  std::string signature;
  std::string exception;
  std::vector<int32_t> frames;  // -1 for tokens no candidate has
  std::vector<int32_t> text;    // sorted; unknown tokens left out but counted in textCount
  size_t textCount = 0;
};

Query prepare(const MatchIndex& index, const CrashFeatures& crash) {
  Query q;
  q.signature = crash.signature;
  q.exception = base::toLowerASCII(base::trim(crash.exceptionType));
  for (const std::string& token : crash.frameTokens) q.frames.push_back(index.frameTokenID(token));
  for (const std::string& token : crash.textTokens) {
    int32_t id = index.textTokenID(token);
    if (id >= 0) q.text.push_back(id);
  }
  std::sort(q.text.begin(), q.text.end());
  q.text.erase(std::unique(q.text.begin(), q.text.end()), q.text.end());
  q.textCount = crash.textTokens.size();
  return q;
}

// Weighted Jaccard of two ordered token lists: shared weight over the weight of the union.
double frameSimilarity(const std::vector<int32_t>& a, const std::vector<int32_t>& b, size_t* shared) {
  double sumA = 0, sumB = 0, common = 0;
  *shared = 0;
  for (size_t i = 0; i < a.size(); ++i) sumA += positionWeight(i);
  for (size_t j = 0; j < b.size(); ++j) sumB += positionWeight(j);
  for (size_t i = 0; i < a.size(); ++i) {
    if (a[i] < 0) continue;
    for (size_t j = 0; j < b.size(); ++j) {
      if (a[i] != b[j]) continue;
      common += std::min(positionWeight(i), positionWeight(j));
      ++*shared;
      break;
    }
  }
  double unionWeight = sumA + sumB - common;
  return unionWeight > 0 ? common / unionWeight : 0;
}

size_t sharedCount(const std::vector<int32_t>& a, const std::vector<int32_t>& b) {
  size_t count = 0;
  for (size_t i = 0, j = 0; i < a.size() && j < b.size();) {
    if (a[i] < b[j]) ++i;
    else if (b[j] < a[i]) ++j;
    else ++count, ++i, ++j;
  }
  return count;
}

std::string frameReason(size_t shared, size_t total, bool sameException) {
  std::string reason = shared == total ? "same top frames"
                                       : fmt::format("{} of {} top frames in common", shared, total);
  if (sameException) reason += " and exception type";
  return reason;
}

std::optional<DuplicateMatch> score(const MatchIndex& index, const Query& q, uint32_t c) {
  const DuplicateCandidate& candidate = index.candidates()[c];
  if (!q.signature.empty() && candidate.signature == q.signature) {
    return DuplicateMatch{candidate, 1.0, "signature", "same crash signature"};
  }
  const std::string& exception = index.exception(c);
  bool sameException = !q.exception.empty() && q.exception == exception;
  DuplicateMatch best{candidate, 0, "", ""};

  const auto& frames = index.frameIDs(c);
  if (!q.frames.empty() && !frames.empty()) {
    size_t shared = 0;
    double similarity = frameSimilarity(q.frames, frames, &shared);
    if (shared > 0) {
      bool sameTop = q.frames.front() >= 0 && q.frames.front() == frames.front();
      best.score = kFrameWeight * similarity + (sameException ? kExceptionWeight : 0) +
                   (sameTop ? kTopFrameWeight : 0);
      best.basis = "frames";
      best.reason = frameReason(shared, std::max(q.frames.size(), frames.size()), sameException);
    }
  }
  // Words only decide when one side has no usable frames (an unsymbolicated trace); otherwise
  // two crashes of one class with the same exception would look alike.
  const auto& text = index.textIDs(c);
  if ((q.frames.empty() || frames.empty()) && q.textCount > 0 && !text.empty()) {
    size_t shared = sharedCount(q.text, text);
    size_t unionCount = q.textCount + text.size() - shared;
    double jaccard = unionCount > 0 ? static_cast<double>(shared) / static_cast<double>(unionCount) : 0;
    double textScore = kTextWeight * jaccard;
    if (textScore > best.score) {
      best.score = textScore;
      best.basis = "text";
      best.reason = fmt::format("{} of {} words of the exception in common", shared, unionCount);
    }
  }
  if (best.score < DuplicateFinder::kMinimumScore) return std::nullopt;
  best.score = std::round(best.score * 1000) / 1000;
  return best;
}

}  // namespace

CrashFeatures crashFeatures(const crash::CrashReport& report, std::string signature) {
  CrashFeatures f;
  f.signature = std::move(signature);
  f.exceptionType = report.exceptionType;
  f.frameTokens = frameTokens(topFrameLines(report, kRecordTopFrames));
  std::string blamed;
  if (const crash::StackFrame* frame = report.blamedFrame()) blamed = frame->displaySymbol();
  f.textTokens = textTokens({report.exceptionType, report.exceptionMessage, blamed});
  return f;
}

std::vector<DuplicateMatch> matchCandidates(const MatchIndex& index, const CrashFeatures& crash) {
  Query q = prepare(index, crash);
  size_t count = index.candidates().size();
  std::vector<uint8_t> seen(count, 0);
  std::vector<DuplicateMatch> matches;
  auto consider = [&](uint32_t c) {
    if (seen[c]) return;
    seen[c] = 1;
    if (auto match = score(index, q, c)) matches.push_back(std::move(*match));
  };
  // Only candidates sharing the signature or a token can reach the minimum score.
  for (uint32_t c : index.withSignature(q.signature)) consider(c);
  for (int32_t id : q.frames) {
    if (id >= 0) for (uint32_t c : index.withFrameToken(id)) consider(c);
  }
  for (int32_t id : q.text) {
    for (uint32_t c : index.withTextToken(id)) consider(c);
  }
  return matches;
}

DuplicateFinder::DuplicateFinder(std::vector<std::shared_ptr<DuplicateSource>> sources)
    : m_sources(std::move(sources)) {}

std::vector<DuplicateMatch> DuplicateFinder::find(const crash::CrashReport& report,
                                                  const std::string& signature, size_t limit) const {
  return find(crashFeatures(report, signature), limit);
}

std::vector<DuplicateMatch> DuplicateFinder::find(const CrashFeatures& crash, size_t limit) const {
  std::vector<DuplicateMatch> all;
  for (const auto& source : m_sources) {
    auto index = source->matchIndex();
    if (!index) continue;
    auto matches = matchCandidates(*index, crash);
    all.insert(all.end(), std::make_move_iterator(matches.begin()), std::make_move_iterator(matches.end()));
  }
  std::sort(all.begin(), all.end(), [](const DuplicateMatch& a, const DuplicateMatch& b) {
    if (a.score != b.score) return a.score > b.score;
    return a.item.date.value_or(base::Clock::time_point{}) > b.item.date.value_or(base::Clock::time_point{});
  });
  if (all.size() > limit) all.resize(limit);
  return all;
}

}  // namespace quillora::history
