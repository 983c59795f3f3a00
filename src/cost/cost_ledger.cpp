#include "cost/cost_ledger.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cmath>
#include <cstring>
#include <limits>

#include <simdjson.h>

#include "base/file_lock.h"
#include "base/files.h"
#include "base/json.h"
#include "base/notifications.h"
#include "base/paths.h"
#include "base/strings.h"
#include "base/uuid.h"

// The ledger grows by one entry per AI call and is read whole before every call (the budget),
// so it is parsed with simdjson: a ledger of a hundred thousand entries (40 MB) parses in tens of
// milliseconds, where a DOM parser takes most of a second. Entries are written with the
// program's usual JSON (nlohmann, sorted and pretty) and spliced in before the closing bracket,
// which keeps every existing byte as it was.
namespace quillora::cost {

namespace {

using simdjson::dom::element;
using simdjson::dom::element_type;

constexpr const char* kLedgerFile = "cost-ledger.json";
constexpr const char* kLockFile = "cost-ledger.lock";

// The file's bytes with simdjson's padding, or nullopt when there is no file.
std::optional<simdjson::padded_string> readPadded(const std::filesystem::path& path) {
  int fd = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
  if (fd < 0) {
    if (errno == ENOENT) return std::nullopt;  // a missing ledger is an empty one
    throw LedgerError("Can't read the cost ledger " + path.string() + ": " + std::strerror(errno));
  }
  struct stat st {};
  if (::fstat(fd, &st) != 0 || S_ISDIR(st.st_mode)) {
    int saved = S_ISDIR(st.st_mode) ? EISDIR : errno;
    ::close(fd);
    throw LedgerError("Can't read the cost ledger " + path.string() + ": " + std::strerror(saved));
  }
  // Stores replace the file by renaming, never in place, so the size of the opened file holds.
  auto size = static_cast<size_t>(st.st_size);
  simdjson::padded_string text(size);
  size_t got = 0;
  while (got < size) {
    ssize_t n = ::read(fd, text.data() + got, size - got);
    if (n < 0 && errno == EINTR) continue;
    if (n < 0) {
      int saved = errno;
      ::close(fd);
      throw LedgerError("Can't read the cost ledger " + path.string() + ": " + std::strerror(saved));
    }
    if (n == 0) break;
    got += static_cast<size_t>(n);
  }
  ::close(fd);
  if (got < size) return simdjson::padded_string(text.data(), got);
  return text;
}

[[noreturn]] void damaged(const std::filesystem::path& path, const std::string& reason) {
  throw LedgerError("The cost ledger " + path.string() + " is damaged (" + reason +
                    "). Quillora won't write to it until it is repaired: fix the JSON (a list of "
                    "entries) in a text editor, or move the file aside to start an empty ledger.");
}

bool isBlank(std::string_view text) { return base::trim(text).empty(); }

// The parsed ledger: its bytes and the root array (valid while both live).
struct ParsedLedger {
  std::optional<simdjson::padded_string> text;
  simdjson::dom::parser parser;
  std::optional<simdjson::dom::array> array;  // nullopt: missing or blank file
};

void parseLedger(const std::filesystem::path& path, ParsedLedger& ledger) {
  ledger.text = readPadded(path);
  if (!ledger.text || isBlank(std::string_view(ledger.text->data(), ledger.text->size()))) return;
  element root;
  auto error = ledger.parser.parse(*ledger.text).get(root);
  if (error) {
    // simdjson says what is wrong but not where; the slower parser says where.
    std::string reason;
    if (!base::parseJson(std::string_view(ledger.text->data(), ledger.text->size()), &reason)) {
      damaged(path, reason);
    }
    damaged(path, simdjson::error_message(error));
  }
  simdjson::dom::array array;
  if (root.get_array().get(array)) damaged(path, "it isn't a JSON list");
  ledger.array = array;
}

// Lenient readers over simdjson elements, matching base/json.h: numbers where text is expected,
// numeric text where numbers are expected; anything else is "absent".
std::optional<double> numberOf(element value) {
  switch (value.type()) {
    case element_type::INT64: return static_cast<double>(int64_t(value));
    case element_type::UINT64: return static_cast<double>(uint64_t(value));
    case element_type::DOUBLE: return double(value);
    case element_type::STRING: return base::parseDouble(base::trim(std::string_view(value)));
    default: return std::nullopt;
  }
}

long long countOf(element value) {
  switch (value.type()) {
    case element_type::INT64: return int64_t(value);
    case element_type::UINT64: {
      uint64_t v = value;
      return v > static_cast<uint64_t>(std::numeric_limits<long long>::max())
                 ? std::numeric_limits<long long>::max()
                 : static_cast<long long>(v);
    }
    default: {
      auto d = numberOf(value);
      return d && std::isfinite(*d) ? static_cast<long long>(*d) : 0;
    }
  }
}

std::string_view textOf(element value, std::string& storage) {
  switch (value.type()) {
    case element_type::STRING: return std::string_view(value);
    case element_type::INT64: storage = std::to_string(int64_t(value)); return storage;
    case element_type::UINT64: storage = std::to_string(uint64_t(value)); return storage;
    case element_type::DOUBLE: storage = base::formatFixed(double(value), 6); return storage;
    default: return {};
  }
}

bool boolOf(element value) {
  if (value.type() == element_type::BOOL) return bool(value);
  if (value.type() == element_type::STRING) {
    std::string s = base::toLowerASCII(base::trim(std::string_view(value)));
    return s == "true" || s == "yes" || s == "1";
  }
  auto d = numberOf(value);
  return d && *d != 0;
}

// One ledger element read without copying; the views point into the parsed document.
struct EntryView {
  bool isObject = false;
  std::string_view id, date, kind, recordID, backend, model;
  bool hasRecordID = false;
  long long inputTokens = 0, outputTokens = 0, cacheReadTokens = 0, cacheWriteTokens = 0;
  std::optional<double> reportedCostUSD, costUSD;
  double duration = 0;
  bool failed = false;
  std::string storage[6];  // for the rare number given where text belongs

  [[nodiscard]] long long tokens() const {
    return inputTokens + outputTokens + cacheReadTokens + cacheWriteTokens;
  }
};

std::optional<double> finiteNumber(element value) {
  auto d = numberOf(value);
  if (d && !std::isfinite(*d)) return std::nullopt;
  return d;
}

void readUsage(element usage, EntryView& view) {
  simdjson::dom::object object;
  if (usage.get_object().get(object)) return;
  for (auto field : object) {
    std::string_view key = field.key;
    if (key == "backend") view.backend = textOf(field.value, view.storage[4]);
    else if (key == "model") view.model = textOf(field.value, view.storage[5]);
    else if (key == "inputTokens") view.inputTokens = countOf(field.value);
    else if (key == "outputTokens") view.outputTokens = countOf(field.value);
    else if (key == "cacheReadTokens") view.cacheReadTokens = countOf(field.value);
    else if (key == "cacheWriteTokens") view.cacheWriteTokens = countOf(field.value);
    else if (key == "reportedCostUSD") view.reportedCostUSD = finiteNumber(field.value);
    else if (key == "duration") view.duration = finiteNumber(field.value).value_or(0);
  }
}

void readEntry(element value, EntryView& view) {
  view = EntryView{};
  simdjson::dom::object object;
  if (value.get_object().get(object)) return;
  view.isObject = true;
  for (auto field : object) {
    std::string_view key = field.key;
    if (key == "id") view.id = textOf(field.value, view.storage[0]);
    else if (key == "date") view.date = textOf(field.value, view.storage[1]);
    else if (key == "kind") view.kind = textOf(field.value, view.storage[2]);
    else if (key == "usage") readUsage(field.value, view);
    else if (key == "costUSD") view.costUSD = finiteNumber(field.value);
    else if (key == "failed") view.failed = boolOf(field.value);
    else if (key == "recordID") {
      view.recordID = textOf(field.value, view.storage[3]);
      view.hasRecordID = !view.recordID.empty();
    }
  }
}

// The entry as the ledger stores it: the program's JSON, indented one level for the array.
std::string entryText(const CostEntry& entry) {
  return base::replaceAll(base::dumpJson(toJson(entry)), "\n", "\n  ");
}

// `entries` appended to the ledger text `old` (a valid JSON array, or nullopt for none).
std::string appendedText(const std::optional<std::string_view>& old,
                         const std::vector<CostEntry>& entries) {
  std::string added;
  for (const auto& entry : entries) {
    if (!added.empty()) added += ",\n  ";
    added += entryText(entry);
  }
  if (!old) return "[\n  " + added + "\n]\n";
  size_t close = old->find_last_not_of(" \t\r\n");  // the array's "]"
  size_t last = close == 0 ? std::string_view::npos : old->find_last_not_of(" \t\r\n", close - 1);
  bool empty = last == std::string_view::npos || (*old)[last] == '[';
  std::string text;
  text.reserve(old->size() + added.size() + 8);
  text.append(old->substr(0, last + 1));
  text += empty ? "\n  " : ",\n  ";
  text += added;
  text += "\n]\n";
  return text;
}

}  // namespace

CostLedger::CostLedger() : CostLedger(base::appSupportDirectory()) {}

CostLedger::CostLedger(std::filesystem::path folder)
    : m_folder(std::move(folder)), m_path(m_folder / kLedgerFile) {}

CostEntry CostLedger::record(const AnalysisUsage& usage, std::string_view kind,
                             const std::optional<std::string>& recordID, bool failed,
                             const PriceTable& prices, base::Clock::time_point date) {
  CostEntry entry;
  entry.id = base::makeUUID();
  entry.date = date;
  entry.kind = std::string(kind);
  entry.usage = usage;
  entry.costUSD = prices.cost(usage, date);
  entry.recordID = recordID;
  entry.failed = failed;
  append({entry});
  return entry;
}

CostEntry CostLedger::record(const AnalysisUsage& usage, std::string_view kind,
                             const std::optional<std::string>& recordID, bool failed) {
  return record(usage, kind, recordID, failed, PriceTable::configured());
}

void CostLedger::append(const std::vector<CostEntry>& entries) {
  if (entries.empty()) return;
  {
    base::FileLock lock(m_folder / kLockFile);
    base::FileLockGuard guard(lock);
    ParsedLedger ledger;
    parseLedger(m_path, ledger);
    std::optional<std::string_view> old;
    if (ledger.array) old = std::string_view(ledger.text->data(), ledger.text->size());
    try {
      base::writeFileAtomically(m_path, appendedText(old, entries));
    } catch (const Error& error) {
      throw LedgerError(error.what());
    }
  }
  base::postChange("costLedger", m_folder);
}

std::vector<CostEntry> CostLedger::entries() const {
  ParsedLedger ledger;
  parseLedger(m_path, ledger);
  std::vector<CostEntry> out;
  if (!ledger.array) return out;
  EntryView view;
  for (element value : *ledger.array) {
    readEntry(value, view);
    if (!view.isObject) continue;
    auto date = base::parseISO8601(view.date);
    if (!date) continue;
    CostEntry entry;
    entry.id = std::string(view.id);
    entry.date = *date;
    entry.kind = std::string(view.kind);
    entry.usage = AnalysisUsage{std::string(view.backend), std::string(view.model),
                                view.inputTokens,          view.outputTokens,
                                view.cacheReadTokens,      view.cacheWriteTokens,
                                view.reportedCostUSD,      view.duration};
    entry.costUSD = view.costUSD;
    if (view.hasRecordID) entry.recordID = std::string(view.recordID);
    entry.failed = view.failed;
    out.push_back(std::move(entry));
  }
  return out;
}

MonthSummary CostLedger::summary(YearMonth month) const {
  ParsedLedger ledger;
  parseLedger(m_path, ledger);
  MonthSummaryBuilder builder(month);
  if (!ledger.array) return builder.build();
  EntryView view;
  for (element value : *ledger.array) {
    readEntry(value, view);
    if (!view.isObject || !month.containsDate(view.date)) continue;
    builder.add(view.kind, view.model, view.tokens(), view.costUSD, view.failed);
  }
  return builder.build();
}

MonthSummary CostLedger::monthToDate(base::Clock::time_point now) const {
  return summary(YearMonth::containing(now));
}

}  // namespace quillora::cost
