#include "base/time.h"

#include <cmath>
#include <ctime>

#include <fmt/format.h>

#include "base/regex.h"
#include "base/strings.h"

namespace quillora::base {

std::string formatISO8601(Clock::time_point time) {
  std::time_t t = Clock::to_time_t(time);
  std::tm tm{};
  gmtime_r(&t, &tm);
  return fmt::format("{:04}-{:02}-{:02}T{:02}:{:02}:{:02}Z", tm.tm_year + 1900, tm.tm_mon + 1,
                     tm.tm_mday, tm.tm_hour, tm.tm_min, tm.tm_sec);
}

std::optional<Clock::time_point> parseISO8601(std::string_view text) {
  static const Regex pattern(
      R"(^(\d{4})-(\d{2})-(\d{2})[T ](\d{2}):(\d{2}):(\d{2})(?:\.(\d+))?(Z|[+-]\d{2}:?\d{2})?$)");
  auto m = pattern.search(trim(text));
  if (!m) return std::nullopt;
  auto num = [&](size_t i) { return static_cast<int>(*parseInteger(m->group(i))); };
  std::tm tm{};
  tm.tm_year = num(1) - 1900;
  tm.tm_mon = num(2) - 1;
  tm.tm_mday = num(3);
  tm.tm_hour = num(4);
  tm.tm_min = num(5);
  tm.tm_sec = num(6);
  if (tm.tm_mon < 0 || tm.tm_mon > 11 || tm.tm_mday < 1 || tm.tm_mday > 31 || tm.tm_hour > 23 ||
      tm.tm_min > 59 || tm.tm_sec > 60)
    return std::nullopt;
  std::time_t seconds = timegm(&tm);
  auto point = Clock::from_time_t(seconds);
  if (m->hasGroup(7)) {
    std::string fraction(m->group(7).substr(0, 6));
    while (fraction.size() < 6) fraction.push_back('0');
    point += std::chrono::microseconds(*parseInteger(fraction));
  }
  std::string_view zone = m->group(8);
  if (!zone.empty() && zone != "Z") {
    int sign = zone[0] == '-' ? -1 : 1;
    std::string digits;
    for (char c : zone.substr(1))
      if (c != ':') digits.push_back(c);
    int hours = static_cast<int>(*parseInteger(digits.substr(0, 2)));
    int minutes = static_cast<int>(*parseInteger(digits.substr(2, 2)));
    point -= std::chrono::minutes(sign * (hours * 60 + minutes));
  }
  return point;
}

std::string formatDuration(double seconds) {
  if (!std::isfinite(seconds) || seconds < 0) seconds = 0;
  if (seconds >= 60) {
    auto whole = static_cast<long long>(std::floor(seconds));
    return fmt::format("{} min {:02} s", whole / 60, whole % 60);
  }
  return fmt::format("{:.1f} s", seconds);
}

}  // namespace quillora::base
