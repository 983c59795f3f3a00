#include "cost/month_summary.h"

#include <algorithm>
#include <chrono>

#include <fmt/format.h>

#include "base/regex.h"
#include "base/strings.h"

namespace quillora::cost {

using namespace std::chrono;

YearMonth YearMonth::containing(base::Clock::time_point time) {
  year_month_day day{floor<days>(time)};
  return YearMonth{static_cast<int>(day.year()), static_cast<unsigned>(day.month())};
}

std::optional<YearMonth> YearMonth::parse(std::string_view text) {
  static const base::Regex pattern(R"(^(\d{4})-(0[1-9]|1[0-2])$)");
  auto match = pattern.search(text);
  if (!match) return std::nullopt;
  return YearMonth{static_cast<int>(*base::parseInteger(match->group(1))),
                   static_cast<unsigned>(*base::parseInteger(match->group(2)))};
}

std::string YearMonth::text() const { return fmt::format("{:04}-{:02}", year, month); }

bool YearMonth::containsDate(std::string_view date) const {
  // The ledger's own dates are "YYYY-MM-DDThh:mm:ssZ", already in UTC: compare the prefix and
  // skip the full parse, which matters for a ledger of a hundred thousand entries.
  if (date.size() == 20 && date[4] == '-' && date[7] == '-' && date[10] == 'T' &&
      date.back() == 'Z') {
    auto digits = [&](size_t from, size_t count) {
      int value = 0;
      for (char c : date.substr(from, count)) {
        if (c < '0' || c > '9') return -1;
        value = value * 10 + (c - '0');
      }
      return value;
    };
    int y = digits(0, 4);
    int m = digits(5, 2);
    if (y >= 0 && m >= 0) return y == year && m == static_cast<int>(month);
  }
  auto time = base::parseISO8601(date);
  return time && containing(*time) == *this;
}

namespace {

void addTo(CostGroup& group, long long tokens, std::optional<double> costUSD) {
  ++group.calls;
  group.tokens += tokens;
  if (costUSD) {
    group.costUSD += *costUSD;
  } else {
    ++group.unpriced;
  }
}

std::vector<CostGroup> ordered(const std::map<std::string, CostGroup, std::less<>>& groups) {
  std::vector<CostGroup> out;
  out.reserve(groups.size());
  for (const auto& [name, group] : groups) out.push_back(group);
  std::stable_sort(out.begin(), out.end(),
                   [](const CostGroup& a, const CostGroup& b) { return a.costUSD > b.costUSD; });
  return out;
}

CostGroup& groupNamed(std::map<std::string, CostGroup, std::less<>>& groups, std::string_view name) {
  if (name.empty()) name = "(unknown)";
  auto it = groups.find(name);
  if (it == groups.end()) it = groups.emplace(std::string(name), CostGroup{std::string(name)}).first;
  return it->second;
}

}  // namespace

void MonthSummaryBuilder::add(std::string_view kind, std::string_view model, long long tokens,
                              std::optional<double> costUSD, bool failed) {
  ++m_totals.calls;
  m_totals.tokens += tokens;
  if (costUSD) {
    m_totals.costUSD += *costUSD;
  } else {
    ++m_totals.unpriced;
  }
  if (failed) ++m_totals.failedCalls;
  addTo(groupNamed(m_kinds, kind), tokens, costUSD);
  addTo(groupNamed(m_models, model), tokens, costUSD);
}

MonthSummary MonthSummaryBuilder::build() const {
  MonthSummary summary = m_totals;
  summary.month = m_month;
  summary.byKind = ordered(m_kinds);
  summary.byModel = ordered(m_models);
  return summary;
}

}  // namespace quillora::cost
