#include "mail/email_date.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace quellor {
namespace {

constexpr long kHour = 3600;

struct ZoneCase {
  const char* name;
  long offset;
  std::string zone;
};

class TimeZoneTest : public ::testing::TestWithParam<ZoneCase> {};

TEST_P(TimeZoneTest, WholeHoursHalvesToEven) {
  FakeClock clock(1790000000, GetParam().offset);
  RecordingSleeper sleeper;
  Context ctx("/nonexistent/", clock, sleeper);
  EXPECT_EQ(TimeZone(ctx), GetParam().zone);
}

INSTANTIATE_TEST_SUITE_P(
    Cases, TimeZoneTest,
    ::testing::Values(ZoneCase{"Greenwich", 0, "+0000"}, ZoneCase{"EastOne", kHour, "+0100"},
                      ZoneCase{"WestFive", -5 * kHour, "-0500"},
                      ZoneCase{"TenNoPadding", 10 * kHour, "+1000"},
                      ZoneCase{"WestTwelve", -12 * kHour, "-1200"},
                      ZoneCase{"PlusFiveThirty", 5 * kHour + 1800, "+0600"},
                      ZoneCase{"MinusThreeThirty", -(3 * kHour + 1800), "-0400"},
                      ZoneCase{"PlusFiveFortyFive", 5 * kHour + 2700, "+0600"},
                      ZoneCase{"PlusFourThirtyToEven", 4 * kHour + 1800, "+0400"},
                      ZoneCase{"MinusFourThirtyToEven", -(4 * kHour + 1800), "-0400"},
                      ZoneCase{"MinusHalfIsZero", -1800, "+0000"}),
    [](const auto& info) { return std::string(info.param.name); });

TEST(EmailDate, FormatsWithFixedNames) {
  FakeClock clock(0, kHour);
  RecordingSleeper sleeper;
  Context ctx("/nonexistent/", clock, sleeper);
  clock.SetLocal(2026, 3, 1, 9, 5, 7);
  EXPECT_EQ(EmailDate(ctx, clock.Now()), "Sun, 01 Mar 2026 09:05:07 +0100");
  clock.SetLocal(2026, 12, 31, 23, 59, 59);
  EXPECT_EQ(EmailDate(ctx, clock.Now()), "Thu, 31 Dec 2026 23:59:59 +0100");
}

TEST(EmailDate, IrregularZoneIsRounded) {
  FakeClock clock(0, 5 * kHour + 1800);
  RecordingSleeper sleeper;
  Context ctx("/nonexistent/", clock, sleeper);
  clock.SetLocal(2026, 11, 16, 10, 23, 45);
  EXPECT_EQ(EmailDate(ctx, clock.Now()), "Mon, 16 Nov 2026 10:23:45 +0600");
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
