#include "platform/clock.h"

#include <gtest/gtest.h>

#include <stdexcept>
#include <string>
#include <vector>

#include "platform/guard.h"
#include "platform/regional.h"

namespace quellor {
namespace {

TEST(RegionalForms, FormatDatesAndTimes) {
  FakeClock clock(0, 3600);
  clock.SetLocal(2026, 11, 16, 8, 5, 9);
  LocalTime t = clock.LocalNow();
  EXPECT_EQ(ShortDate(t), "16/11/2026");
  EXPECT_EQ(LongTime(t), "08:05:09");
  EXPECT_EQ(GeneralDateTime(t), "16/11/2026 08:05:09");
  EXPECT_EQ(DayFileName(t), "16-11-2026");
  EXPECT_EQ(CompactDate(t), "20261116");
  EXPECT_EQ(CompactTime(t), "080509");
  EXPECT_EQ(StartTimeText(t), "16 Nov 2026 08:05:09");
  EXPECT_EQ(DayAbbrev(t.weekday), "Mon");
}

TEST(FakeClockTest, LocalTimeFollowsOffsetAndDayNumbers) {
  FakeClock clock(0, -5 * 3600);
  clock.SetLocal(2026, 3, 1, 23, 59, 59);
  EXPECT_EQ(clock.LocalNow().weekday, 0);  // a Sunday
  int64_t day = DayNumber(clock.LocalNow());
  clock.Advance(std::chrono::seconds(1));
  EXPECT_EQ(clock.LocalNow().day, 2);
  EXPECT_EQ(DayNumber(clock.LocalNow()), day + 1);
  EXPECT_EQ(clock.UtcOffset(clock.Now()), -5 * 3600);
}

TEST(RecordingSleeperTest, CountsAndAdvancesTheFakeClock) {
  FakeClock clock;
  RecordingSleeper sleeper(&clock);
  for (int i = 0; i < 25; ++i) sleeper.Sleep(std::chrono::milliseconds(100));
  EXPECT_EQ(sleeper.count(), 25);
  EXPECT_EQ(sleeper.total().count(), 2500);
  EXPECT_EQ(clock.Now(), 2);
}

TEST(GuardTest, LogsAndCarriesOn) {
  std::vector<std::string> lines;
  int marker = 3;
  Guard guard(
      [&](const std::string& label, int n, const std::string& d) {
        lines.push_back(label + "|" + std::to_string(n) + "|" + d);
      },
      std::function<std::string()>(
          [&] { return "Quellor - quellor - errseek =" + std::to_string(marker); }));
  int reached = 0;
  EXPECT_FALSE(guard([] { Raise(kErrFileNotFound); }));
  ++reached;
  marker = 14;
  EXPECT_FALSE(guard([] { throw std::out_of_range("x"); }));
  ++reached;
  EXPECT_TRUE(guard([&] { ++reached; }));
  EXPECT_EQ(reached, 3);
  ASSERT_EQ(lines.size(), 2u);
  EXPECT_EQ(lines[0], "Quellor - quellor - errseek =3|53|File not found");
  EXPECT_EQ(lines[1], "Quellor - quellor - errseek =14|9|Subscript out of range");
  EXPECT_EQ(guard.last_number(), 9);
}

}  // namespace
}  // namespace quellor
