#include "platform/clock.h"

#include <gtest/gtest.h>

#include <stdexcept>
#include <string>
#include <vector>

#include "platform/guard.h"
#include "platform/regional.h"

namespace quellor {
namespace {

TEST(RegionalForms, DatesTimesAndDayChange) {
  FakeClock clock(0, -5 * 3600);
  clock.SetLocal(2026, 11, 16, 8, 5, 9);
  LocalTime t = clock.LocalNow();
  EXPECT_EQ(GeneralDateTime(t), "16/11/2026 08:05:09");
  EXPECT_EQ(DayFileName(t), "16-11-2026");
  EXPECT_EQ(CompactDate(t) + CompactTime(t), "20261116080509");
  EXPECT_EQ(StartTimeText(t), "16 Nov 2026 08:05:09");
  EXPECT_EQ(DayAbbrev(t.weekday), "Mon");
  // A second past local midnight is the next day, whatever the zone.
  clock.SetLocal(2026, 3, 1, 23, 59, 59);
  int64_t day = DayNumber(clock.LocalNow());
  clock.Advance(std::chrono::seconds(1));
  EXPECT_EQ(DayNumber(clock.LocalNow()), day + 1);
  EXPECT_EQ(ShortDate(clock.LocalNow()), "02/03/2026");
}

TEST(GuardTest, LogsAndCarriesOn) {
  std::vector<std::string> lines;
  int marker = 3;
  Guard guard(
      [&](const std::string& label, int n, const std::string& d) {
        lines.push_back(label + "|" + std::to_string(n) + "|" + d);
      },
      std::function<std::string()>([&] { return "Q - errseek =" + std::to_string(marker); }));
  EXPECT_FALSE(guard([] { Raise(kErrFileNotFound); }));
  marker = 14;
  EXPECT_FALSE(guard([] { throw std::out_of_range("x"); }));
  int reached = 0;
  EXPECT_TRUE(guard([&] { ++reached; }));
  EXPECT_EQ(reached, 1);
  EXPECT_EQ(lines, (std::vector<std::string>{"Q - errseek =3|53|File not found",
                                             "Q - errseek =14|9|Subscript out of range"}));
  EXPECT_EQ(guard.last_number(), 9);
}

}  // namespace
}  // namespace quellor
