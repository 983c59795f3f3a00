#pragma once

#include <chrono>
#include <optional>
#include <string>
#include <string_view>

namespace quillora::base {

using Clock = std::chrono::system_clock;

// "2026-11-22T09:30:00Z" (whole seconds, UTC).
std::string formatISO8601(Clock::time_point time);
// Accepts "…Z", "…±hh:mm" and fractional seconds; nullopt for anything else.
std::optional<Clock::time_point> parseISO8601(std::string_view text);
// "<m> min <ss> s" from one minute up, "<s.s> s" below (POSIX number format).
std::string formatDuration(double seconds);

}  // namespace quillora::base
