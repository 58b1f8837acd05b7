#include "platform/regional.h"

#include <fmt/format.h>

namespace quellor {

namespace {
constexpr const char* kMonths[] = {"Jan", "Feb", "Mar", "Apr", "May", "Jun",
                                   "Jul", "Aug", "Sep", "Oct", "Nov", "Dec"};
constexpr const char* kDays[] = {"Sun", "Mon", "Tue", "Wed", "Thu", "Fri", "Sat"};
}  // namespace

std::string ShortDate(const LocalTime& t) {
  return fmt::format("{:02}/{:02}/{:04}", t.day, t.month, t.year);
}

std::string LongTime(const LocalTime& t) {
  return fmt::format("{:02}:{:02}:{:02}", t.hour, t.minute, t.second);
}

std::string GeneralDateTime(const LocalTime& t) {
  return ShortDate(t) + " " + LongTime(t);
}

std::string DayFileName(const LocalTime& t) {
  return fmt::format("{:02}-{:02}-{:04}", t.day, t.month, t.year);
}

std::string CompactDate(const LocalTime& t) {
  return fmt::format("{:04}{:02}{:02}", t.year, t.month, t.day);
}

std::string CompactTime(const LocalTime& t) {
  return fmt::format("{:02}{:02}{:02}", t.hour, t.minute, t.second);
}

std::string MonthAbbrev(int month) {
  return (month >= 1 && month <= 12) ? kMonths[month - 1] : "";
}

std::string DayAbbrev(int weekday) {
  return (weekday >= 0 && weekday <= 6) ? kDays[weekday] : "";
}

std::string StartTimeText(const LocalTime& t) {
  return fmt::format("{:02} {} {:04} {}", t.day, MonthAbbrev(t.month), t.year, LongTime(t));
}

}  // namespace quellor
