#include "service/service_host.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <boost/asio/io_context.hpp>
#include <csignal>
#include <string>
#include <thread>
#include <tuple>
#include <vector>

#include "platform/errors.h"
#include "service/periodic_timer.h"
#include "service/service_events.h"
#include "support/temp_tree.h"

namespace quellor {
namespace {

using testing::TempTree;

// An event log entry: type, id, text.
using Entry = std::tuple<int, int, std::string>;
using Entries = std::vector<Entry>;
const Entry kClosing{109, 1, "[0] "};

// An event log that records its entries, and fails on the entry `fail_on`.
class RecordingEventLog : public EventLog {
 public:
  void LogEvent(int16_t type, int32_t id, const std::string& text) override {
    if (!fail_on.empty() && text == fail_on) Raise(kErrPermission);
    entries.emplace_back(type, id, text);
  }
  Entries entries;
  std::string fail_on;
};

class SilentServiceManager : public ServiceManager {
 public:
  std::string QueryStateText(const std::string&, const std::string&) override { return ""; }
  void StartService(const std::string&, const std::string&) override {}
  std::string ComputerName() override { return "mailhost"; }
};

// Start and Stop are covered with the event loop below.
TEST(ServiceEventsTest, PauseContinueAndControlEntriesAndAnErrorEndsTheHandler) {
  RecordingEventLog log;
  ServiceEvents events(log, nullptr);
  bool paused = false, continued = false;
  events.Pause(paused);
  events.Continue(continued);
  events.Control(SIGHUP);
  EXPECT_TRUE(paused && continued);
  EXPECT_EQ(log.entries, (Entries{{1, 109, "Service paused"},
                                  kClosing,
                                  {4, 110, "Service continued"},
                                  kClosing,
                                  kClosing}));
  // The error ends the handler in its closing entry.
  log.entries.clear();
  log.fail_on = "Service paused";
  paused = false;
  events.Pause(paused);
  EXPECT_FALSE(paused);
  EXPECT_EQ(log.entries, (Entries{{109, 1, "[70] Permission denied"}}));
}

// Signals that arrive during a pass are served after it; a paused service still passes. On a busy
// machine further ticks may fall due before a signal is served: the passes they run are counted
// as one.
TEST(ServiceHostTest, SignalsWaitForThePassAndPausingKeepsPassing) {
  TempTree tree;
  tree.Write("IN/1.EML", "x");
  tree.Write("IN/1.WAI", "x");
  RecordingEventLog log;
  SilentServiceManager manager;
  boost::asio::io_context io;
  HostOptions options;
  options.pass_interval = std::chrono::milliseconds(20);
  options.keepalive_interval = std::chrono::hours(1);
  options.status_port = 0;  // any free port
  options.window_port = 0;
  const Entry pass{0, 0, "pass"}, paused{1, 109, "Service paused"};
  int passes = 0;
  bool stopping = false;
  options.pass = [&] {
    // The pass's entry comes after the signal it raises: a signal served at once would come first.
    if (++passes == 2) std::raise(SIGUSR1);
    if (!stopping && std::ranges::count(log.entries, paused) == 1) {
      stopping = true;
      std::raise(SIGTERM);
    }
    log.entries.push_back(pass);
    tree.ctx.window.total.Set("0");
  };
  ServiceHost host(io, tree.ctx, log, manager, options);
  EXPECT_EQ(host.Run(), 0);
  log.entries.erase(
      std::unique(log.entries.begin(), log.entries.end(),
                  [&](const Entry& a, const Entry& b) { return a == pass && b == pass; }),
      log.entries.end());
  EXPECT_EQ(log.entries, (Entries{pass, kClosing, pass, paused, kClosing, pass, kClosing}));
  EXPECT_EQ(tree.ctx.window.starttime, "16 Nov 2026 10:00:00");
}

// Ticks that fall due during a long handler are not queued up: one follows at once, and the
// next keeps the interval again. Timers never fire early, so however slow the machine, the third
// tick comes at least one interval after the long handler ended; queued ticks would come sooner.
TEST(PeriodicTimerTest, AnOverrunningTickIsFollowedByOneTickOnly) {
  using namespace std::chrono;
  boost::asio::io_context io;
  std::vector<steady_clock::time_point> ticks;
  steady_clock::time_point overrun_end;
  PeriodicTimer timer(io, milliseconds(20), [&] {
    ticks.push_back(steady_clock::now());
    if (ticks.size() == 1) {
      std::this_thread::sleep_for(milliseconds(100));  // five ticks' worth
      overrun_end = steady_clock::now();
    }
    if (ticks.size() == 3) io.stop();
  });
  timer.Start();
  io.run();
  ASSERT_EQ(ticks.size(), 3u);
  EXPECT_GE(ticks[2] - overrun_end, milliseconds(20));
}

}  // namespace
}  // namespace quellor
