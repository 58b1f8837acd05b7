#include "service/watchdog.h"

#include <gtest/gtest.h>
#include <stdlib.h>

#include <string>
#include <utility>
#include <vector>

#include "platform/names.h"
#include "support/temp_tree.h"

namespace quellor {
namespace {

using testing::TempTree;

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
  const struct {
    std::string state;
    const char* marker;  // file put into the root, or nullptr
    bool queried, started;
  } cases[] = {
      {"Stopped", nullptr, true, true},
      {"Running", nullptr, true, false},
      {"Stop Pending", nullptr, true, false},
      {"", nullptr, true, false},  // not installed, or no service manager
      {"Stopped", "nostart.txt", false, false},
      {"Stopped", "NOSTART.TXT", false, false},
      {"Stopped", ".nostart.txt", true, true},  // a hidden marker does not count
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.state + (c.marker ? std::string(" ") + c.marker : ""));
    TempTree tree;
    if (c.marker) tree.Write(c.marker, "");
    ForgetNameIndexes();
    FakeServiceManager manager;
    manager.state = c.state;
    Watchdog watchdog(tree.ctx, manager);
    watchdog.KeepAlive_Timer();
    tree.clock.Advance(std::chrono::seconds(60));
    watchdog.KeepAlive_Timer();

    EXPECT_EQ(manager.queries.size(), c.queried ? 2u : 0u);
    if (c.queried) {
      EXPECT_EQ(manager.queries[0], "mailhost/Quellor_Dregger");
    }
    const std::vector<std::string> expected_log =
        c.started ? std::vector<std::string>{"16/11/2026 10:00:00 - Quellor_Dregger",
                                             "16/11/2026 10:01:00 - Quellor_Dregger"}
                  : std::vector<std::string>{};
    EXPECT_EQ(manager.starts.size(), c.started ? 2u : 0u);
    EXPECT_EQ(tree.ReadLines("LOG/START.LOG"), expected_log);
  }
}

TEST(ServiceManagerTest, SystemdStatesGiveTheStateTexts) {
  const std::pair<const char*, const char*> states[] = {{"inactive", "Stopped"},
                                                        {"failed", "Stopped"},
                                                        {"activating", "Start Pending"},
                                                        {"active", "Running"},
                                                        {"reloading", "Running"},
                                                        {"deactivating", "Stop Pending"},
                                                        {"maintenance", ""},
                                                        {"", ""}};
  for (const auto& [active, text] : states) {
    EXPECT_EQ(ServiceStateText(StateFromActiveState(active)), text) << active;
  }
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
  if (saved) {
    setenv("DBUS_SYSTEM_BUS_ADDRESS", previous.c_str(), 1);
  } else {
    unsetenv("DBUS_SYSTEM_BUS_ADDRESS");
  }
}

}  // namespace
}  // namespace quellor
