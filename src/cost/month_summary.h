#pragma once

#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "base/time.h"

namespace quillora::cost {

// A calendar month in UTC, the unit of the budget and of `quillora cost`.
struct YearMonth {
  int year = 1970;
  unsigned month = 1;  // 1…12

  // The month that contains `time` (UTC).
  static YearMonth containing(base::Clock::time_point time);
  // "YYYY-MM" with a month 01…12; nullopt for anything else.
  static std::optional<YearMonth> parse(std::string_view text);
  // "2026-11".
  [[nodiscard]] std::string text() const;
  // Whether the ISO 8601 date-time `date` lies in this month (UTC); false when it isn't a date.
  [[nodiscard]] bool containsDate(std::string_view date) const;
  bool operator==(const YearMonth&) const = default;
};

// The calls of one kind or one model within a month.
struct CostGroup {
  std::string name;
  int calls = 0;
  long long tokens = 0;
  double costUSD = 0;  // of the priced calls
  int unpriced = 0;
};

// What a month cost: every call counts, failed ones included; unpriced calls add tokens but no
// dollars. Groups are ordered by cost, most expensive first, then by name.
struct MonthSummary {
  YearMonth month;
  double costUSD = 0;
  long long tokens = 0;
  int calls = 0;
  int unpriced = 0;
  int failedCalls = 0;
  std::vector<CostGroup> byKind;
  std::vector<CostGroup> byModel;
};

// Adds up ledger entries into a MonthSummary.
class MonthSummaryBuilder {
 public:
  explicit MonthSummaryBuilder(YearMonth month) : m_month(month) {}
  void add(std::string_view kind, std::string_view model, long long tokens,
           std::optional<double> costUSD, bool failed);
  [[nodiscard]] MonthSummary build() const;

 private:
  YearMonth m_month;
  MonthSummary m_totals;
  std::map<std::string, CostGroup, std::less<>> m_kinds;
  std::map<std::string, CostGroup, std::less<>> m_models;
};

}  // namespace quillora::cost
