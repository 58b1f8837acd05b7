#include "mail/email_date.h"

#include <fmt/format.h>

#include <cstdlib>

#include "platform/guard.h"
#include "platform/text.h"

namespace quellor {

namespace {
// Fixed English names: the Date header must not follow the machine's language.
constexpr const char* kDayNames[] = {"Sun", "Mon", "Tue", "Wed", "Thu", "Fri", "Sat"};
constexpr const char* kMonthNames[] = {"Jan", "Feb", "Mar", "Apr", "May", "Jun",
                                       "Jul", "Aug", "Sep", "Oct", "Nov", "Dec"};
}  // namespace

std::string EmailDate(Context& ctx, std::time_t fecha) {
  Guard guard(ctx.error_sink(), "Quellor - EmailDate");
  std::string result;
  guard([&] {
    const LocalTime t = ctx.clock.ToLocal(fecha);
    if (t.weekday < 0 || t.weekday > 6 || t.month < 1 || t.month > 12) Raise(kErrSubscript);
    result = fmt::format("{}, {:02} {} {:04} {:02}:{:02}:{:02} ", kDayNames[t.weekday], t.day,
                         kMonthNames[t.month - 1], t.year, t.hour, t.minute, t.second);
  });
  // The offset is that of the present moment, not of `fecha`.
  guard([&] { result += TimeZone(ctx); });
  return result;
}

std::string TimeZone(Context& ctx) {
  Guard guard(ctx.error_sink(), "Quellor - TimeZone");
  std::string result;
  guard([&] {
    const std::time_t now = ctx.clock.Now();
    const double local = static_cast<double>(now) + static_cast<double>(ctx.clock.UtcOffset(now));
    const double greenwich = static_cast<double>(GMTTime(ctx));
    // Whole hours only, halves to the even neighbour: +5:30 and +5:45 give "+0600", +4:30 "+0400".
    const int16_t hours = CInt16((local - greenwich) / 3600.0);
    result = fmt::format("{}{:02}00", hours < 0 ? "-" : "+", std::abs(hours));
  });
  return result;
}

std::time_t GMTTime(Context& ctx, std::string* tz_name, bool* is_dst) {
  Guard guard(ctx.error_sink(), "Quellor - GMTTime");
  std::time_t result = 0;
  guard([&] {
    const std::time_t now = ctx.clock.Now();
    if (tz_name || is_dst) {
      // The zone's name and daylight flag come from the process's time zone (TZ).
      std::tm tm{};
      localtime_r(&now, &tm);
      if (tm.tm_isdst > 0 && is_dst) *is_dst = true;
      if (tz_name) *tz_name = tm.tm_zone ? std::string(tm.tm_zone) : std::string();
    }
    // Seconds since the epoch already read as Greenwich time (local time minus its offset).
    result = now;
  });
  return result;
}

}  // namespace quellor
