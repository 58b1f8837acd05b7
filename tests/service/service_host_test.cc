#include "service/service_host.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <boost/asio/io_context.hpp>
#include <csignal>
#include <string>
#include <thread>
#include <vector>

#include "service/periodic_timer.h"
#include "service/recording_event_log.h"
#include "support/temp_tree.h"

namespace quellor {
namespace {

using testing::Entry;
using testing::kClosing;
using testing::RecordingEventLog;
using testing::TempTree;

class SilentServiceManager : public ServiceManager {
 public:
  std::string QueryStateText(const std::string&, const std::string&) override { return ""; }
  void StartService(const std::string&, const std::string&) override {}
  std::string ComputerName() override { return "mailhost"; }
};

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
  const Entry pass{0, 0, "pass"};
  const Entry paused{1, 109, "Service paused"};
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
  EXPECT_EQ(log.entries,
            (std::vector<Entry>{pass, kClosing, pass, paused, kClosing, pass, kClosing}));
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
