#include "platform/clock.h"

#include <thread>

namespace quellor {

namespace {
LocalTime FromTm(const std::tm& tm) {
  LocalTime t;
  t.year = tm.tm_year + 1900;
  t.month = tm.tm_mon + 1;
  t.day = tm.tm_mday;
  t.hour = tm.tm_hour;
  t.minute = tm.tm_min;
  t.second = tm.tm_sec;
  t.weekday = tm.tm_wday;
  return t;
}

// Days from 1970-01-01 to a civil date (proleptic Gregorian).
int64_t DaysFromCivil(int64_t y, unsigned m, unsigned d) {
  y -= m <= 2;
  const int64_t era = (y >= 0 ? y : y - 399) / 400;
  const unsigned yoe = static_cast<unsigned>(y - era * 400);
  const unsigned doy = (153 * (m + (m > 2 ? -3 : 9)) + 2) / 5 + d - 1;
  const unsigned doe = yoe * 365 + yoe / 4 - yoe / 100 + doy;
  return era * 146097 + static_cast<int64_t>(doe) - 719468;
}
}  // namespace

int64_t DayNumber(const LocalTime& t) {
  return DaysFromCivil(t.year, t.month, t.day);
}

std::time_t SystemClock::Now() const {
  return std::time(nullptr);
}

LocalTime SystemClock::ToLocal(std::time_t t) const {
  std::tm tm{};
  localtime_r(&t, &tm);
  return FromTm(tm);
}

long SystemClock::UtcOffset(std::time_t t) const {
  std::tm tm{};
  localtime_r(&t, &tm);
  return tm.tm_gmtoff;
}

LocalTime FakeClock::ToLocal(std::time_t t) const {
  std::time_t shifted = t + offset_;
  std::tm tm{};
  gmtime_r(&shifted, &tm);
  return FromTm(tm);
}

void FakeClock::SetLocal(int year, int month, int day, int hour, int minute, int second) {
  int64_t days = DaysFromCivil(year, static_cast<unsigned>(month), static_cast<unsigned>(day));
  now_ = static_cast<std::time_t>(days * 86400 + hour * 3600 + minute * 60 + second - offset_);
}

void RealSleeper::Sleep(std::chrono::milliseconds ms) {
  if (ms.count() > 0) std::this_thread::sleep_for(ms);
}

void RecordingSleeper::Sleep(std::chrono::milliseconds ms) {
  ++count_;
  total_ += ms;
  if (clock_) {
    // Whole seconds only: the fake clock counts seconds.
    carry_ms_ += static_cast<long>(ms.count());
    clock_->Advance(std::chrono::seconds(carry_ms_ / 1000));
    carry_ms_ %= 1000;
  }
}

}  // namespace quellor
