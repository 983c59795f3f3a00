#pragma once

#include <filesystem>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "base/error.h"
#include "base/time.h"
#include "cost/cost_entry.h"
#include "cost/month_summary.h"
#include "cost/price_table.h"

namespace quillora::cost {

// The ledger file can't be read or is damaged. Nothing was written to it. Exit 1.
class LedgerError : public Error {
 public:
  using Error::Error;
  [[nodiscard]] std::string kind() const override { return "ledger"; }
};

// The cost ledger: "cost-ledger.json" (a JSON array of CostEntry) guarded by "cost-ledger.lock",
// shared by every Quillora process of the user. Each write is a read-modify-write under the lock
// with an atomic replacement of the file, followed by the change notification "costLedger". A
// missing file is an empty ledger. A damaged file is never overwritten: writing refuses with a
// LedgerError naming the file, and so does reading. Entries the reader can't use (and keys it
// doesn't know) are kept as they are when an entry is appended. Readers take no lock: the file
// is only ever replaced whole. One object may be used from one thread at a time.
class CostLedger {
 public:
  // The ledger of the application-support folder.
  CostLedger();
  // The ledger and its lock in `folder` (tests, benchmarks).
  explicit CostLedger(std::filesystem::path folder);

  [[nodiscard]] const std::filesystem::path& path() const { return m_path; }

  // Prices one AI call with `prices` and appends it, dated `date`. Returns the entry written
  // (its costUSD is absent for an unpriced call). Throws LedgerError when the ledger is damaged
  // or can't be written.
  CostEntry record(const AnalysisUsage& usage, std::string_view kind,
                   const std::optional<std::string>& recordID, bool failed,
                   const PriceTable& prices, base::Clock::time_point date = base::Clock::now());
  // The same with the configured prices (PriceTable::configured, which may throw ConfigError;
  // engines build the table before the call so that this can't happen after it).
  CostEntry record(const AnalysisUsage& usage, std::string_view kind,
                   const std::optional<std::string>& recordID, bool failed);
  // Appends entries as they are, in one locked read-modify-write.
  void append(const std::vector<CostEntry>& entries);

  // Every usable entry in file order (elements that aren't objects with a date are skipped).
  [[nodiscard]] std::vector<CostEntry> entries() const;
  // The calls of `month` (UTC).
  [[nodiscard]] MonthSummary summary(YearMonth month) const;
  // The calls of the current calendar month (UTC) up to `now`.
  [[nodiscard]] MonthSummary monthToDate(base::Clock::time_point now = base::Clock::now()) const;

 private:
  std::filesystem::path m_folder;
  std::filesystem::path m_path;
};

}  // namespace quillora::cost
