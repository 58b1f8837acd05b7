#include "service/scheduler.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "platform/names.h"
#include "service/startup.h"
#include "support/temp_tree.h"

namespace quellor {
namespace {

using testing::TempTree;

// A scheduler over a temporary tree whose pass stands in for the real one: it takes up to 40
// message files, oldest first, and counts `total` down as the real pass does.
class SchedulerTest : public ::testing::Test {
 protected:
  SchedulerTest()
      : scheduler(tree.ctx, {[this] { ++listens; }, [this] { ++watchdog_ticks; }}, [this] {
          Counter& total = tree.ctx.window.total;
          if (total.Value() > 40) total.Set("40");
          std::vector<std::string> names = ListFiles(tree.Path("IN"), "*.EML");
          size_t taken = 0;
          while (total.Value() > 0 && taken < names.size()) {
            tree.Remove("IN/" + names[taken++]);
            total.Decrement();
          }
          ForgetNameIndexes();
          passes.push_back(static_cast<int>(taken));
        }) {}

  void Queue(int n) {
    for (int i = 0; i < n; ++i) tree.Write("IN/" + std::to_string(1000 + i) + ".EML", "x");
    ForgetNameIndexes();
  }

  TempTree tree;
  int listens = 0;
  int watchdog_ticks = 0;
  std::vector<int> passes;  // messages taken by each pass
  Scheduler scheduler;
};

TEST_F(SchedulerTest, TicksRecountTheQueueOnlyWhenTotalIsZeroAndStartWasGiven) {
  LoadStartup(tree.ctx);
  Queue(45);
  scheduler.Timer1_Timer();  // Start not yet given: nothing
  EXPECT_TRUE(passes.empty());
  EXPECT_EQ(tree.ctx.window.total.text(), "0");

  scheduler.Command1_Click();  // `total` still reads the start-up count 0: no pass
  EXPECT_TRUE(passes.empty());
  EXPECT_EQ(tree.ctx.window.title, "Spam Quellor - Running since 16 Nov 2026 10:00:00");
  EXPECT_EQ(listens + watchdog_ticks, 2);
  scheduler.Timer1_Timer();
  scheduler.Timer1_Timer();
  scheduler.Timer1_Timer();  // empty queue: count 0, no pass
  EXPECT_EQ(passes, (std::vector<int>{40, 5}));
  EXPECT_EQ(tree.ctx.window.total.text(), "0");

  // A left-over count stalls the scheduler: no recount while `total` is not 0.
  tree.ctx.window.total.Set("2");
  Queue(1);
  scheduler.Timer1_Timer();
  EXPECT_EQ(passes.size(), 2u);

  // A vanished IN/ is logged at every tick and `total` keeps its text.
  tree.ctx.window.total.Set("0");
  tree.Remove("IN");
  scheduler.Timer1_Timer();
  EXPECT_EQ(tree.ctx.window.total.text(), "0");
  EXPECT_NE(tree.Read("LOG/system.log").find(" : Quellor - Timer1_timer - # 76 - Path not found"),
            std::string::npos);
}

TEST_F(SchedulerTest, TodayCountersResetOnlyWhenTheDateMovedOnByExactlyOneDay) {
  const struct {
    int day, hour, minute;  // November 2026
    bool reset;
  } steps[] = {
      {16, 23, 59, false}, {17, 0, 0, true},  {17, 23, 0, false},
      {19, 0, 0, false},   {20, 0, 0, false},  // a gap of two days ends the resets for good
  };
  LoadStartup(tree.ctx);
  scheduler.Command1_Click();
  WindowModel& w = tree.ctx.window;
  const std::vector<Counter*> today = {&w.todayforward,     &w.todaylearn,  &w.todayignore,
                                       &w.todayvalidations, &w.todaypurged, &w.todayinvalid};
  for (const auto& s : steps) {
    w.Forward.Set("7");
    for (Counter* c : today) c->Set("7");
    tree.clock.SetLocal(2026, 11, s.day, s.hour, s.minute, 0);
    scheduler.Timer1_Timer();
    SCOPED_TRACE(s.day);
    EXPECT_EQ(w.Forward.text(), "7");
    for (Counter* c : today) EXPECT_EQ(c->text(), s.reset ? "0" : "7");
  }
}

}  // namespace
}  // namespace quellor
