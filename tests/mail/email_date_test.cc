#include "mail/email_date.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace quellor {
namespace {

constexpr long kHour = 3600;

TEST(EmailDate, FixedNamesAndWholeHourZonesHalvesToEven) {
  FakeClock clock(0, kHour);
  RecordingSleeper sleeper;
  Context ctx("/nonexistent/", clock, sleeper);
  clock.SetLocal(2026, 3, 1, 9, 5, 7);
  EXPECT_EQ(EmailDate(ctx, clock.Now()), "Sun, 01 Mar 2026 09:05:07 +0100");
  const std::vector<std::pair<long, std::string>> zones = {
      {0, "+0000"},
      {-5 * kHour, "-0500"},
      {10 * kHour, "+1000"},
      {5 * kHour + 1800, "+0600"},
      {-(3 * kHour + 1800), "-0400"},
      {4 * kHour + 1800, "+0400"},
      {-(4 * kHour + 1800), "-0400"},
      {-1800, "+0000"},
  };
  for (const auto& [offset, zone] : zones) {
    clock.SetOffset(offset);
    EXPECT_EQ(TimeZone(ctx), zone) << offset;
  }
  clock.SetLocal(2026, 12, 31, 23, 59, 59);
  EXPECT_EQ(EmailDate(ctx, clock.Now()), "Thu, 31 Dec 2026 23:59:59 +0000");
}

// A zone with daylight time: +02:00 from the moment `summer_` on, +01:00 before.
class SeasonalClock : public Clock {
 public:
  SeasonalClock(std::time_t now, std::time_t summer) : now_(now), summer_(summer) {}
  std::time_t Now() const override { return now_; }
  long UtcOffset(std::time_t t) const override { return t >= summer_ ? 2 * kHour : kHour; }
  LocalTime ToLocal(std::time_t t) const override { return FakeClock(0, UtcOffset(t)).ToLocal(t); }

 private:
  std::time_t now_;
  std::time_t summer_;
};

TEST(EmailDate, OffsetIsThatOfThePresentMoment) {
  FakeClock probe(0, 0);
  probe.SetLocal(2026, 3, 29, 1, 0, 0);
  const std::time_t summer = probe.Now();
  probe.SetLocal(2026, 7, 1, 12, 0, 0);
  SeasonalClock clock(probe.Now(), summer);
  RecordingSleeper sleeper;
  Context ctx("/nonexistent/", clock, sleeper);
  probe.SetLocal(2026, 1, 15, 7, 0, 0);  // winter, seen in Greenwich time
  EXPECT_EQ(EmailDate(ctx, probe.Now()), "Thu, 15 Jan 2026 08:00:00 +0200");
}

}  // namespace
}  // namespace quellor
