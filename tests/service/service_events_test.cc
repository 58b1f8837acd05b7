#include "service/service_events.h"

#include <gtest/gtest.h>

#include <csignal>
#include <string>
#include <vector>

#include "service/recording_event_log.h"

namespace quellor {
namespace {

using testing::Entry;
using testing::kClosing;
using testing::RecordingEventLog;

TEST(ServiceEventsTest, EntriesInTheirOrder) {
  const struct {
    const char* name;
    void (*run)(ServiceEvents&);
    std::vector<Entry> entries;
    int unloads;
  } cases[] = {
      {"start",
       [](ServiceEvents& e) {
         bool ok = false;
         e.Start(ok);
         EXPECT_TRUE(ok);
       },
       {kClosing},
       0},
      {"pause, continue",
       [](ServiceEvents& e) {
         bool paused = false, continued = false;
         e.Pause(paused);
         e.Continue(continued);
         EXPECT_TRUE(paused && continued);
       },
       {{1, 109, "Service paused"}, kClosing, {4, 110, "Service continued"}, kClosing},
       0},
      {"control", [](ServiceEvents& e) { e.Control(SIGHUP); }, {kClosing}, 0},
      {"stop", [](ServiceEvents& e) { e.Stop(); }, {kClosing}, 1},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    RecordingEventLog log;
    int unloads = 0;
    ServiceEvents events(log, [&] { ++unloads; });
    c.run(events);
    EXPECT_EQ(log.entries, c.entries);
    EXPECT_EQ(unloads, c.unloads);
  }
}

TEST(ServiceEventsTest, AnErrorEndsTheHandlerInItsClosingEntry) {
  RecordingEventLog log;
  log.fail_on = "Service paused";
  ServiceEvents events(log, nullptr);
  bool paused = false;
  events.Pause(paused);
  EXPECT_FALSE(paused);
  EXPECT_EQ(log.entries, (std::vector<Entry>{{109, 1, "[70] Permission denied"}}));
}

}  // namespace
}  // namespace quellor
