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
#include "crash/apple_crash_log_reader.h"
#include "crash/crash_signature.h"
#include "history/crash_tokens.h"

namespace quillora::history {

namespace fs = std::filesystem;

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

std::optional<AnalysisSummary> decodeElement(std::string_view element) {
  auto json = base::parseJson(element);
  if (!json) return std::nullopt;
  return analysisSummaryFromJson(*json);
}

std::string encodeElement(const AnalysisSummary& summary) {
  return base::dumpJsonCompact(toJson(summary));
}

// index.json as this version writes it, or nullopt when it must be rebuilt.
std::optional<IndexFile> usableIndex(std::optional<std::string> text) {
  if (!text) return std::nullopt;
  auto file = IndexFile::split(std::move(*text));
  if (!file || file->version() != HistoryStore::kIndexVersion ||
      file->signatureVersion() != kSignatureVersion) {
    return std::nullopt;
  }
  return file;
}

std::string currentSignature(const AnalysisRecord& record) {
  if (base::trim(record.rawTrace).empty()) return record.signature;
  static const crash::StackTraceParser parser = crash::StackTraceParser::configured();
  return crash::crashSignature(crash::readCrashText(record.rawTrace, parser));
}

IndexFile emptyIndex() {
  return *IndexFile::split(IndexFile::compose(HistoryStore::kIndexVersion, kSignatureVersion, {}));
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

namespace {

// The summary keys whose values make up the search text (see searchText()).
bool isSearchKey(std::string_view key) {
  static constexpr std::string_view kKeys[] = {
      "title",      "subjectLine", "platform",  "exceptionType",  "blameSymbol", "topFrames",
      "rootCauseExcerpt", "severity", "confidence", "engineLabel", "appID",      "appName",
      "issueID",    "issueTitle",  "issueURL",  "ticketKey",      "ticketURL",   "ticketKeys",
      "branch",     "pullRequestURL", "verification", "repoPath", "signature",  "source"};
  return std::find(std::begin(kKeys), std::end(kKeys), key) != std::end(kKeys);
}

bool isQuoted(std::string_view value) {
  return value.size() >= 2 && value.front() == '"' && value.back() == '"';
}

// Whether an element's summary would match a search, told from its text alone: what decoding
// the element and searchText() would say, for the elements whose text is plain (no escapes, one
// key each, strings where strings belong). nullopt for any other element: decode it.
std::optional<bool> quickMatch(std::string_view element, std::string_view needle, RawFolder& folder) {
  if (element.find('\\') != std::string_view::npos) return std::nullopt;
  auto fields = IndexFile::fields(element);
  if (!fields) return std::nullopt;
  bool usableID = false, usableDate = false, hit = false;
  std::string folded;
  auto contains = [&](std::string_view text) {
    folder.fold(text, folded);
    return folded.find(needle) != std::string::npos;
  };
  for (size_t i = 0; i < fields->size(); ++i) {
    auto [key, value] = (*fields)[i];
    for (size_t j = 0; j < i; ++j) {
      if ((*fields)[j].first == key) return std::nullopt;  // the last one would win
    }
    std::string_view inner = isQuoted(value) ? value.substr(1, value.size() - 2) : std::string_view();
    if (key == "id" || key == "date") {
      if (!isQuoted(value)) return std::nullopt;
      if (key == "id") usableID = isUsableRecordID(inner);
      else usableDate = base::parseISO8601(inner).has_value();
      continue;
    }
    if (hit || !isSearchKey(key) || value == "null") continue;
    if (isQuoted(value)) {
      if (key == "platform") {
        auto platform = crash::crashPlatformFromDisplayName(inner).value_or(crash::CrashPlatform::unknown);
        hit = contains(crash::displayName(platform));
      } else if (key == "source") {
        hit = contains(sourceDisplayName(inner).value_or(inner));
      } else {
        hit = contains(inner);
      }
    } else if (value.front() == '[') {
      // Strings only: then a needle without quotes can't reach from one into the next.
      for (size_t at = 1; at + 1 < value.size();) {
        char c = value[at];
        if (c == '"') {
          size_t close = value.find('"', at + 1);
          if (close == std::string_view::npos) return std::nullopt;
          hit = hit || contains(value.substr(at + 1, close - at - 1));
          at = close + 1;
        } else if (c == ',' || c == ' ' || c == '\n' || c == '\t' || c == '\r') {
          ++at;
        } else {
          return std::nullopt;
        }
      }
    } else {
      return std::nullopt;  // a number read as text: decoding knows how it reads
    }
  }
  return usableID && usableDate && hit;
}

}  // namespace

// One reading of index.json. Summaries are decoded when first asked for, then kept.
struct HistoryStore::Snapshot {
  Snapshot(IndexFile indexFile, std::optional<Stamp> fileStamp)
      : file(std::move(indexFile)), stamp(fileStamp), decoded(file.size()), state(file.size(), 0) {}

  [[nodiscard]] size_t size() const { return file.size(); }

  // The summary at `index`, or nullptr when that element doesn't decode.
  const AnalysisSummary* at(size_t index) const {
    std::lock_guard guard(mutex);
    return atLocked(index);
  }

  std::shared_ptr<const std::vector<AnalysisSummary>> everything() const {
    std::lock_guard guard(mutex);
    if (!all) {
      auto list = std::make_shared<std::vector<AnalysisSummary>>();
      list->reserve(size());
      for (size_t i = 0; i < size(); ++i) {
        if (const AnalysisSummary* summary = atLocked(i)) list->push_back(*summary);
      }
      all = std::move(list);
    }
    return all;
  }

  [[nodiscard]] size_t knownBad() const {
    std::lock_guard guard(mutex);
    return static_cast<size_t>(std::count(state.begin(), state.end(), 2));
  }

  IndexFile file;
  std::optional<Stamp> stamp;
  mutable std::once_flag matchIndexOnce;
  mutable std::shared_ptr<const MatchIndex> matchIndex;

 private:
  const AnalysisSummary* atLocked(size_t index) const {
    if (state[index] == 0) {
      auto summary = decodeElement(file.element(index));
      state[index] = summary ? 1 : 2;
      if (summary) decoded[index] = std::make_unique<AnalysisSummary>(std::move(*summary));
    }
    return decoded[index].get();
  }

  mutable std::mutex mutex;
  mutable std::vector<std::unique_ptr<AnalysisSummary>> decoded;
  mutable std::vector<uint8_t> state;  // 0 not yet decoded, 1 decoded, 2 undecodable
  mutable std::shared_ptr<const std::vector<AnalysisSummary>> all;
};

HistoryStore& HistoryStore::shared() {
  static HistoryStore store(base::appSupportDirectory());
  return store;
}

HistoryStore::HistoryStore(fs::path folder)
    : m_folder(std::move(folder)), m_signatureFunction(currentSignature) {}

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

void HistoryStore::remember(IndexFile file) {
  auto snapshot = std::make_shared<const Snapshot>(std::move(file), indexStamp());
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
  auto file = stamp ? usableIndex(base::readFile(indexPath())) : std::nullopt;
  if (!file) return loadLocked();
  auto snapshot = std::make_shared<const Snapshot>(std::move(*file), stamp);
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

IndexFile HistoryStore::indexUnderLock() {
  // Nothing saved yet: reading makes no folder.
  if (::access(historyFolder().c_str(), F_OK) != 0) return emptyIndex();
  bool pending = ::access(pendingPath().c_str(), F_OK) == 0;
  if (!pending) {
    if (auto file = usableIndex(base::readFile(indexPath()))) return std::move(*file);
  }
  std::vector<AnalysisSummary> summaries = rebuild();
  std::vector<std::string> encoded;
  encoded.reserve(summaries.size());
  for (const AnalysisSummary& summary : summaries) encoded.push_back(encodeElement(summary));
  std::string text = IndexFile::compose(kIndexVersion, kSignatureVersion, {encoded.begin(), encoded.end()});
  try {
    writeIndex(text);
    ::unlink(pendingPath().c_str());
  } catch (const HistoryError&) {
    // The rebuilt summaries still answer this read; the mark stays, so the next reader or writer
    // tries again, and a save reports the failure.
  }
  return *IndexFile::split(std::move(text));
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

void HistoryStore::writeIndex(const std::string& text) {
  try {
    base::writeFileAtomically(indexPath(), text);
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

namespace {

// The elements of `file` whose summary has the id `id` (found by their text, confirmed by
// decoding).
std::vector<size_t> elementsWithID(const IndexFile& file, const std::string& id) {
  std::vector<size_t> found;
  for (size_t index : file.elementsMayContain(base::toLowerASCII(id))) {
    auto summary = decodeElement(file.element(index));
    if (summary && summary->id == id) found.push_back(index);
  }
  return found;
}

}  // namespace

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
    IndexFile file = indexUnderLock();
    writeRecordMarked(record);
    // The other summaries are copied as they are: decoding and encoding 5,000 of them for one
    // new entry would cost more than the whole save may take.
    std::string first = encodeElement(makeSummary(record));
    std::vector<size_t> replaced = elementsWithID(file, record.id);
    std::vector<std::string_view> elements = {first};
    elements.reserve(std::min(file.size() + 1, kMaxRecords + 1));
    for (size_t i = 0; i < file.size(); ++i) {
      if (std::find(replaced.begin(), replaced.end(), i) != replaced.end()) continue;
      if (elements.size() < kMaxRecords) {
        elements.push_back(file.element(i));
        continue;
      }
      // Pruned. A missing file is no error: it may have been deleted by hand.
      auto pruned = decodeElement(file.element(i));
      if (pruned && pruned->id != record.id) ::unlink(recordPath(pruned->id).c_str());
    }
    std::string text = IndexFile::compose(kIndexVersion, kSignatureVersion, elements);
    writeIndex(text);
    ::unlink(pendingPath().c_str());
    remember(*IndexFile::split(std::move(text)));
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
    IndexFile file = indexUnderLock();
    writeRecordMarked(record);
    std::string refreshed = encodeElement(makeSummary(record));
    std::vector<size_t> replaced = elementsWithID(file, record.id);
    std::vector<std::string_view> elements;
    elements.reserve(file.size() + 1);
    if (replaced.empty()) elements.push_back(refreshed);
    for (size_t i = 0; i < file.size(); ++i) {
      if (replaced.empty() || std::find(replaced.begin(), replaced.end(), i) == replaced.end()) {
        elements.push_back(file.element(i));
      } else if (i == replaced.front()) {
        elements.push_back(refreshed);
      }
    }
    std::string text = IndexFile::compose(kIndexVersion, kSignatureVersion, elements);
    writeIndex(text);
    ::unlink(pendingPath().c_str());
    remember(*IndexFile::split(std::move(text)));
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
  return current()->everything();
}

std::vector<AnalysisSummary> HistoryStore::list(size_t limit, size_t* total) {
  auto snapshot = current();
  std::vector<AnalysisSummary> shown;
  for (size_t i = 0; i < snapshot->size() && shown.size() < limit; ++i) {
    if (const AnalysisSummary* summary = snapshot->at(i)) shown.push_back(*summary);
  }
  if (total) *total = snapshot->size() - snapshot->knownBad();
  return shown;
}

std::vector<AnalysisSummary> HistoryStore::search(std::string_view query, size_t limit, size_t* total) {
  auto snapshot = current();
  std::string needle = folded(query);
  std::vector<size_t> candidates;
  if (IndexFile::isPlainNeedle(needle)) {
    candidates = snapshot->file.elementsMayContain(needle);
  } else {
    candidates.resize(snapshot->size());
    for (size_t i = 0; i < candidates.size(); ++i) candidates[i] = i;
  }
  std::vector<AnalysisSummary> found;
  size_t count = 0;
  RawFolder folder;
  auto decodedMatch = [&](size_t index) -> const AnalysisSummary* {
    const AnalysisSummary* summary = snapshot->at(index);
    return summary && searchText(*summary).find(needle) != std::string::npos ? summary : nullptr;
  };
  for (size_t index : candidates) {
    if (found.size() < limit) {
      if (const AnalysisSummary* summary = decodedMatch(index)) {
        found.push_back(*summary);
        ++count;
      }
      continue;
    }
    // Past the limit only the count matters, and most elements can be judged from their text.
    auto quick = quickMatch(snapshot->file.element(index), needle, folder);
    if (quick ? *quick : decodedMatch(index) != nullptr) ++count;
  }
  if (total) *total = count;
  return found;
}

std::optional<AnalysisSummary> HistoryStore::resolve(std::string_view reference) {
  if (!isUsableRecordID(reference)) return std::nullopt;
  auto snapshot = current();
  // Summaries are newest first, so the first prefix match is the newest one. Ids are shown
  // upper-case but may be typed any way.
  std::vector<size_t> candidates = snapshot->file.elementsMayContain(base::toLowerASCII(reference));
  for (size_t index : candidates) {
    const AnalysisSummary* summary = snapshot->at(index);
    if (summary && summary->id == reference) return *summary;
  }
  if (reference.size() < kMinimumPrefix) return std::nullopt;
  std::string prefix = base::toUpperASCII(reference);
  for (size_t index : candidates) {
    const AnalysisSummary* summary = snapshot->at(index);
    if (summary && base::toUpperASCII(summary->id).starts_with(prefix)) return *summary;
  }
  return std::nullopt;
}

std::shared_ptr<const MatchIndex> HistoryStore::matchIndex() {
  auto snapshot = current();
  std::call_once(snapshot->matchIndexOnce, [&] {
    auto summaries = snapshot->everything();
    std::vector<DuplicateCandidate> candidates;
    candidates.reserve(summaries->size());
    for (const AnalysisSummary& summary : *summaries) candidates.push_back(historyCandidate(summary));
    snapshot->matchIndex = std::make_shared<const MatchIndex>(std::move(candidates));
  });
  return snapshot->matchIndex;
}

}  // namespace quillora::history
