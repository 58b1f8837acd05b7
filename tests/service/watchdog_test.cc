#include "service/watchdog.h"

#include <gtest/gtest.h>
#include <stdlib.h>

#include <string>
#include <vector>

#include "platform/names.h"
#include "support/table.h"
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

}  // namespace
}  // namespace quellor
