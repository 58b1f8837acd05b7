#include "service/service_events.h"

#include <gtest/gtest.h>

#include <csignal>
#include <vector>

#include "service/recording_event_log.h"

namespace quellor {
namespace {

using testing::Entry;
using testing::kClosing;
using testing::RecordingEventLog;

// Start and Stop are covered with the event loop (service_host_test.cc).
TEST(ServiceEventsTest, PauseContinueAndControlEntriesInOrder) {
  RecordingEventLog log;
  ServiceEvents events(log, nullptr);
  bool paused = false, continued = false;
  events.Pause(paused);
  events.Continue(continued);
  events.Control(SIGHUP);
  EXPECT_TRUE(paused && continued);
  EXPECT_EQ(log.entries, (std::vector<Entry>{{1, 109, "Service paused"},
                                             kClosing,
                                             {4, 110, "Service continued"},
                                             kClosing,
                                             kClosing}));
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
