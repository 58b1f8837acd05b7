#pragma once
// The mail Date header: "Mon, 16 Nov 2026 10:23:45 +0100", offsets in whole hours.

#include <ctime>
#include <string>

#include "core/context.h"

namespace quellor {

// Formats a moment (`fecha`, seconds since the epoch) in local time with the present offset.
std::string EmailDate(Context& ctx, std::time_t fecha);
// "+hh00" / "-hh00" of the present moment, rounded to whole hours (halves to even).
std::string TimeZone(Context& ctx);
// The present moment in Greenwich time; `is_dst` set when daylight time is in force.
std::time_t GMTTime(Context& ctx, std::string* tz_name = nullptr, bool* is_dst = nullptr);

}  // namespace quellor
