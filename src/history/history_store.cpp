#include "history/history_store.h"

#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

#include "base/file_lock.h"
#include "base/files.h"
#include "base/json.h"
#include "base/notifications.h"
#include "base/paths.h"
#include "base/strings.h"
#include "base/text.h"
#include "base/uuid.h"
#include "history/crash_tokens.h"

namespace quillora::history {

namespace fs = std::filesystem;

struct HistoryStore::Snapshot {
  std::vector<AnalysisSummary> summaries;
  std::optional<Stamp> stamp;
  mutable std::once_flag matchIndexOnce;
  mutable std::shared_ptr<const MatchIndex> matchIndex;
};

namespace {

constexpr size_t kMinimumPrefix = 6;

// Case folding for the search: ASCII text (nearly all of it) takes the fast path.
std::string folded(std::string_view text) {
  bool ascii = std::all_of(text.begin(), text.end(), [](char c) { return static_cast<unsigned char>(c) < 0x80; });
  return ascii ? base::toLowerASCII(text) : base::foldCaseAndDiacritics(text);
}

bool newerFirst(const AnalysisSummary& a, const AnalysisSummary& b) {
  if (a.date != b.date) return a.date > b.date;
  return a.id < b.id;
}

enum class IndexState { ok, rebuild };

// Decodes index.json; anything but a current index of this version asks for a rebuild.
IndexState decodeIndex(const std::optional<std::string>& text, std::vector<AnalysisSummary>& out) {
  if (!text) return IndexState::rebuild;
  auto json = base::parseJson(*text);
  if (!json || !json->is_object()) return IndexState::rebuild;
  if (base::readInteger(*json, "version") != HistoryStore::kIndexVersion ||
      base::readInteger(*json, "signatureVersion") != kSignatureVersion) {
    return IndexState::rebuild;
  }
  auto list = json->find("summaries");
  if (list != json->end() && list->is_array()) {
    out.reserve(list->size());
    for (const base::Json& element : *list) {
      if (auto summary = analysisSummaryFromJson(element)) out.push_back(std::move(*summary));
    }
  }
  return IndexState::ok;
}

void appendLine(std::string& text, std::string_view line) {
  if (line.empty()) return;
  if (!text.empty()) text.push_back('\n');
  text.append(line);
}
void appendLine(std::string& text, const std::string& line) { appendLine(text, std::string_view(line)); }
void appendLine(std::string& text, const std::optional<std::string>& line) {
  if (line) appendLine(text, std::string_view(*line));
}

}  // namespace

std::string searchText(const AnalysisSummary& s) {
  std::string text;
  appendLine(text, s.title);
  appendLine(text, s.subjectLine);
  appendLine(text, crash::displayName(s.platform));
  appendLine(text, s.exceptionType);
  appendLine(text, s.blameSymbol);
  for (const std::string& frame : s.topFrames) appendLine(text, frame);
  appendLine(text, s.rootCauseExcerpt);
  appendLine(text, s.severity);
  appendLine(text, s.confidence);
  appendLine(text, s.engineLabel);
  appendLine(text, s.appID);
  appendLine(text, s.appName);
  appendLine(text, s.issueID);
  appendLine(text, s.issueTitle);
  appendLine(text, s.issueURL);
  appendLine(text, s.ticketKey);
  appendLine(text, s.ticketURL);
  for (const std::string& key : s.ticketKeys) appendLine(text, key);
  appendLine(text, s.branch);
  appendLine(text, s.pullRequestURL);
  appendLine(text, s.verification);
  appendLine(text, s.repoPath);
  appendLine(text, s.signature);
  if (s.source) appendLine(text, sourceDisplayName(*s.source).value_or(*s.source));
  return folded(text);
}

HistoryStore& HistoryStore::shared() {
  static HistoryStore store(base::appSupportDirectory());
  return store;
}

HistoryStore::HistoryStore(fs::path folder) : m_folder(std::move(folder)) {}

void HistoryStore::setSignatureFunction(SignatureFunction function) {
  std::lock_guard guard(m_mutex);
  m_signatureFunction = std::move(function);
}

fs::path HistoryStore::recordPath(std::string_view id) const {
  return historyFolder() / (std::string(id) + ".json");
}

std::optional<HistoryStore::Stamp> HistoryStore::indexStamp() const {
  struct stat st {};
  if (::stat(indexPath().c_str(), &st) != 0) return std::nullopt;
  Stamp stamp;
  stamp.device = st.st_dev;
  stamp.inode = st.st_ino;
  stamp.size = static_cast<unsigned long long>(st.st_size);
  stamp.modifiedNanoseconds = static_cast<long long>(st.st_mtim.tv_sec) * 1000000000LL + st.st_mtim.tv_nsec;
  return stamp;
}

void HistoryStore::remember(std::vector<AnalysisSummary> summaries) {
  auto snapshot = std::make_shared<Snapshot>();
  snapshot->summaries = std::move(summaries);
  snapshot->stamp = indexStamp();
  std::lock_guard guard(m_mutex);
  m_snapshot = std::move(snapshot);
}

std::shared_ptr<const HistoryStore::Snapshot> HistoryStore::current() {
  // A pending mark means a save is under way or died half-way: wait for the lock to find out.
  if (::access(pendingPath().c_str(), F_OK) == 0) return loadLocked();
  auto stamp = indexStamp();
  {
    std::lock_guard guard(m_mutex);
    if (m_snapshot && stamp && m_snapshot->stamp == stamp) return m_snapshot;
  }
  // index.json is only ever replaced by a rename, so reading it without the lock is safe.
  std::vector<AnalysisSummary> summaries;
  if (!stamp || decodeIndex(base::readFile(indexPath()), summaries) == IndexState::rebuild) {
    return loadLocked();
  }
  auto snapshot = std::make_shared<Snapshot>();
  snapshot->summaries = std::move(summaries);
  snapshot->stamp = stamp;
  std::lock_guard guard(m_mutex);
  m_snapshot = snapshot;
  return snapshot;
}

std::shared_ptr<const HistoryStore::Snapshot> HistoryStore::loadLocked() {
  base::FileLock lock(lockPath());
  base::FileLockGuard guard(lock);
  remember(indexUnderLock());
  std::lock_guard memberGuard(m_mutex);
  return m_snapshot;
}

std::vector<AnalysisSummary> HistoryStore::indexUnderLock() {
  std::vector<AnalysisSummary> summaries;
  // Nothing saved yet: reading makes no folder.
  if (::access(historyFolder().c_str(), F_OK) != 0) return summaries;
  bool pending = ::access(pendingPath().c_str(), F_OK) == 0;
  if (!pending && decodeIndex(base::readFile(indexPath()), summaries) == IndexState::ok) return summaries;
  summaries = rebuild();
  try {
    writeIndex(summaries);
    ::unlink(pendingPath().c_str());
  } catch (const HistoryError&) {
    // The rebuilt summaries still answer this read; the mark stays, so the next reader or writer
    // tries again, and a save reports the failure.
  }
  return summaries;
}

std::vector<AnalysisSummary> HistoryStore::rebuild() {
  SignatureFunction signature;
  {
    std::lock_guard guard(m_mutex);
    signature = m_signatureFunction;
  }
  std::vector<AnalysisSummary> summaries;
  std::error_code error;
  for (fs::directory_iterator it(historyFolder(), error), end; !error && it != end; it.increment(error)) {
    std::string name = it->path().filename().string();
    // Temporary files of interrupted writes start with "." and don't end in ".json".
    if (name == "index.json" || name.starts_with(".") || !name.ends_with(".json")) continue;
    auto text = base::readFile(it->path());
    if (!text) continue;
    auto json = base::parseJson(*text);
    if (!json) continue;
    auto record = analysisRecordFromJson(*json);
    // A record is found under its own name; a copy under another name would show twice.
    if (!record || record->id + ".json" != name) continue;
    if (signature) record->signature = signature(*record);
    summaries.push_back(makeSummary(*record));
  }
  std::sort(summaries.begin(), summaries.end(), newerFirst);
  return summaries;
}

void HistoryStore::writeIndex(const std::vector<AnalysisSummary>& summaries) {
  base::Json list = base::Json::array();
  for (const AnalysisSummary& summary : summaries) list.push_back(toJson(summary));
  base::Json index = {{"version", kIndexVersion},
                      {"signatureVersion", kSignatureVersion},
                      {"summaries", std::move(list)}};
  try {
    base::writeFileAtomically(indexPath(), base::dumpJson(index));
  } catch (const Error& error) {
    throw HistoryError(error.what());
  }
}

void HistoryStore::writeRecordMarked(const AnalysisRecord& record) {
  // Marks the window between the record and the index: a process that dies inside it leaves the
  // mark, and the next reader rebuilds the index from the record files.
  try {
    base::writeFileAtomically(pendingPath(), record.id + "\n");
    base::writeFileAtomically(recordPath(record.id), base::dumpJson(toJson(record)));
  } catch (const Error& failure) {
    ::unlink(pendingPath().c_str());
    throw HistoryError(failure.what());
  }
}

std::string HistoryStore::save(AnalysisRecord record) {
  if (record.id.empty()) record.id = base::makeUUID();
  if (!isUsableRecordID(record.id)) throw HistoryError("Can't save a history record with the id '" + record.id + "'.");
  {
    base::FileLock lock(lockPath());
    base::FileLockGuard guard(lock);
    std::error_code error;
    fs::create_directories(historyFolder(), error);
    if (error) {
      throw HistoryError("Couldn't create the history folder " + historyFolder().string() + ": " +
                         error.message());
    }
    std::vector<AnalysisSummary> summaries = indexUnderLock();
    writeRecordMarked(record);
    std::erase_if(summaries, [&](const AnalysisSummary& s) { return s.id == record.id; });
    summaries.insert(summaries.begin(), makeSummary(record));
    if (summaries.size() > kMaxRecords) {
      for (size_t i = kMaxRecords; i < summaries.size(); ++i) {
        // A missing file is no error: it may have been deleted by hand.
        if (isUsableRecordID(summaries[i].id)) ::unlink(recordPath(summaries[i].id).c_str());
      }
      summaries.resize(kMaxRecords);
    }
    writeIndex(summaries);
    ::unlink(pendingPath().c_str());
    remember(std::move(summaries));
  }
  base::postChange("history", m_folder);
  return record.id;
}

AnalysisRecord HistoryStore::update(std::string_view id,
                                    const std::function<void(AnalysisRecord&)>& change) {
  AnalysisRecord record;
  {
    base::FileLock lock(lockPath());
    base::FileLockGuard guard(lock);
    auto loaded = load(id);
    if (!loaded) throw HistoryError("No history record " + std::string(id) + ".");
    record = std::move(*loaded);
    std::string keptID = record.id;
    change(record);
    record.id = keptID;
    std::vector<AnalysisSummary> summaries = indexUnderLock();
    writeRecordMarked(record);
    auto it = std::find_if(summaries.begin(), summaries.end(),
                           [&](const AnalysisSummary& s) { return s.id == record.id; });
    if (it != summaries.end()) *it = makeSummary(record);
    else summaries.insert(summaries.begin(), makeSummary(record));
    writeIndex(summaries);
    ::unlink(pendingPath().c_str());
    remember(std::move(summaries));
  }
  base::postChange("history", m_folder);
  return record;
}

std::optional<AnalysisRecord> HistoryStore::load(std::string_view id) const {
  if (!isUsableRecordID(id)) return std::nullopt;
  auto text = base::readFile(recordPath(id));
  if (!text) return std::nullopt;
  auto json = base::parseJson(*text);
  if (!json) return std::nullopt;
  auto record = analysisRecordFromJson(*json);
  if (!record || record->id != id) return std::nullopt;
  return record;
}

std::shared_ptr<const std::vector<AnalysisSummary>> HistoryStore::summaries() {
  auto snapshot = current();
  return {snapshot, &snapshot->summaries};
}

std::vector<AnalysisSummary> HistoryStore::search(std::string_view query, size_t limit, size_t* total) {
  auto snapshot = current();
  std::string needle = folded(query);
  std::vector<AnalysisSummary> found;
  size_t count = 0;
  for (const AnalysisSummary& summary : snapshot->summaries) {
    if (searchText(summary).find(needle) == std::string::npos) continue;
    if (found.size() < limit) found.push_back(summary);
    ++count;
  }
  if (total) *total = count;
  return found;
}

std::optional<AnalysisSummary> HistoryStore::resolve(std::string_view reference) {
  auto snapshot = current();
  const auto& summaries = snapshot->summaries;
  for (const AnalysisSummary& summary : summaries) {
    if (summary.id == reference) return summary;
  }
  if (reference.size() < kMinimumPrefix) return std::nullopt;
  // Ids are shown upper-case but typed any way; summaries are newest first, so the first
  // prefix match is the newest one.
  std::string prefix = base::toUpperASCII(reference);
  for (const AnalysisSummary& summary : summaries) {
    if (base::toUpperASCII(summary.id).starts_with(prefix)) return summary;
  }
  return std::nullopt;
}

std::shared_ptr<const MatchIndex> HistoryStore::matchIndex() {
  auto snapshot = current();
  std::call_once(snapshot->matchIndexOnce, [&] {
    std::vector<DuplicateCandidate> candidates;
    candidates.reserve(snapshot->summaries.size());
    for (const AnalysisSummary& summary : snapshot->summaries) {
      candidates.push_back(historyCandidate(summary));
    }
    snapshot->matchIndex = std::make_shared<const MatchIndex>(std::move(candidates));
  });
  return snapshot->matchIndex;
}

}  // namespace quillora::history
