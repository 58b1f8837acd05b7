// The service around the pass: its command line and unit files, start-up, the watchdog, the host
// that runs the timers and serves signals, and the periodic timer.
#include <gtest/gtest.h>
#include <stdlib.h>

#include <algorithm>
#include <boost/asio/io_context.hpp>
#include <csignal>
#include <optional>
#include <sstream>
#include <string>
#include <thread>
#include <tuple>
#include <vector>

#include "bridge/units.h"
#include "platform/errors.h"
#include "platform/names.h"
#include "service/command_line.h"
#include "service/periodic_timer.h"
#include "service/service_events.h"
#include "service/service_host.h"
#include "service/startup.h"
#include "service/unit_files.h"
#include "service/watchdog.h"
#include "support/process.h"
#include "support/table.h"
#include "support/temp_tree.h"

namespace quellor {
namespace {

TEST(CommandLineTest, OnlyTheExactSwitchesAreKnownAndUnusualPathsAreQuotedOrRefused) {
  testing::CheckTable("command_line", [](const auto& f) {
    static const char* const kModes[] = {"service", "debug", "install", "uninstall", "invalid"};
    std::vector<std::string> args(f.begin(), f.end());
    if (args.size() == 1 && args[0].empty()) args.clear();
    return kModes[static_cast<int>(ParseCommandLine(args))];
  });
  testing::CheckTable("unit_text", [](const auto& f) {
    const std::optional<std::string> text = UnitText(f[0], f[1]);
    if (!text) return std::string("refused");
    std::istringstream lines(*text);
    std::string out;
    for (std::string line; std::getline(lines, line);) {
      for (const char* key : {"Environment=", "ExecStart=", "ReadWritePaths=", "User="})
        if (line.starts_with(key)) out += line + "\n";
    }
    return out;
  });
}

// The units the package ships are what "-install" and "quellorctl postfix install" write for
// the package's paths.
TEST(UnitFilesTest, PackagedUnitsCarryTheWrittenConfinement) {
  const std::string dir = QUELLOR_SOURCE_DIR "/packaging/systemd/";
  const std::string root = "/var/spool/quellor/";
  EXPECT_EQ(testing::ReadFile(dir + "Quellor_Quellor.service"),
            UnitText(root, "/usr/sbin/quellor", kServiceUser));
  EXPECT_EQ(testing::ReadFile(dir + "Quellor_Dregger.service"),
            bridge::DreggerUnitText({root, "/usr/bin/quellor-dregger", "", "", ""}));
}

using testing::TempTree;

// Missing pieces are logged and start-up goes on; it creates no folder.
TEST(StartupTest, MissingPiecesAreLoggedAndStartUpGoesOn) {
  testing::CheckTable("startup", [](const auto& f) {
    TempTree tree;
    tree.Write("IN/a.EML", "x");
    tree.Write("IN/b.eml", "x");
    tree.Write("IN/b.WAI", "x");
    if (f[1] != "-") tree.Write("quellor.ini", f[1]);
    if (!f[0].empty()) tree.Remove(f[0]);
    ForgetNameIndexes();
    const std::vector<std::string> before = tree.List("");
    LoadStartup(tree.ctx);
    const WindowModel& w = tree.ctx.window;
    EXPECT_EQ(tree.List(""), before);
    return "total " + w.total.text() + ", visible " + std::to_string(w.visible) + ", " +
           std::to_string(w.List1.size()) + " postmasters, LOG " + tree.ctx.settings.log + "\n" +
           tree.Read("LOG/system.log");
  });
}

class FakeServiceManager : public ServiceManager {
 public:
  std::string QueryStateText(const std::string& machine, const std::string& service) override {
    queries.push_back(machine + "/" + service);
    return state;
  }
  void StartService(const std::string& machine, const std::string& service) override {
    starts.push_back(machine + "/" + service);
  }
  std::string ComputerName() override { return "mailhost"; }

  std::string state;
  std::vector<std::string> queries, starts;
};

TEST(WatchdogTest, RestartsOnlyAStoppedCompanionWithoutMarker) {
  testing::CheckTable("watchdog", [](const auto& f) {
    TempTree tree;
    if (!f[1].empty()) tree.Write(f[1], "");
    ForgetNameIndexes();
    FakeServiceManager manager;
    manager.state = f[0];
    Watchdog watchdog(tree.ctx, manager);
    watchdog.KeepAlive_Timer();
    tree.clock.Advance(std::chrono::seconds(60));
    watchdog.KeepAlive_Timer();
    std::string out;
    for (const std::string& q : manager.queries) out += "query " + q + "\n";
    for (const std::string& s : manager.starts) out += "start " + s + "\n";
    return out + tree.Read("LOG/START.LOG");
  });
}

TEST(ServiceManagerTest, SystemdStatesGiveTheStateTexts) {
  testing::CheckTable("systemd_state",
                      [](const auto& f) { return ServiceStateText(StateFromActiveState(f[0])); });
  EXPECT_EQ(ServiceStateText(5), "Coninue Pending");
}

TEST(ServiceManagerTest, NoBusGivesAnEmptyStateAndAQuietStart) {
  const char* saved = getenv("DBUS_SYSTEM_BUS_ADDRESS");
  const std::string previous = saved ? saved : "";
  setenv("DBUS_SYSTEM_BUS_ADDRESS", "unix:path=/nonexistent/quellor-test-bus", 1);
  SystemdServiceManager manager;
  EXPECT_EQ(manager.QueryStateText(manager.ComputerName(), "Quellor_Dregger"), "");
  manager.StartService(manager.ComputerName(), "Quellor_Dregger");
  EXPECT_EQ(manager.QueryStateText("some-other-host", "Quellor_Dregger"), "");
  saved ? setenv("DBUS_SYSTEM_BUS_ADDRESS", previous.c_str(), 1)
        : unsetenv("DBUS_SYSTEM_BUS_ADDRESS");
}

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

// Start, Stop and Pause are covered with the event loop below.
TEST(ServiceEventsTest, ContinueAndControlEntriesAndAnErrorEndsTheHandler) {
  RecordingEventLog log;
  ServiceEvents events(log, nullptr);
  bool paused = false, continued = false;
  events.Continue(continued);
  events.Control(SIGHUP);
  EXPECT_TRUE(continued);
  EXPECT_EQ(log.entries, (Entries{{4, 110, "Service continued"}, kClosing, kClosing}));
  // The error ends the handler in its closing entry.
  log.entries.clear();
  log.fail_on = "Service paused";
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
  FakeServiceManager manager;
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
