#include "spool/stats.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "logs/logs.h"
#include "platform/names.h"
#include "spool/activity_log.h"
#include "support/table.h"
#include "support/temp_tree.h"

namespace quellor {
namespace {

using testing::CheckTable;
using testing::TempTree;

class StatsTest : public ::testing::Test {
 protected:
  StatsTest() {
    t.MakeFolder("WAIT/u@y");
    ForgetNameIndexes();
  }
  void Write(std::string_view relative, std::string_view bytes) {
    t.Write(relative, bytes);
    ForgetNameIndexes();
  }
  std::vector<std::string> Errors() const { return t.ReadLines("LOG/system.log"); }

  TempTree t;
};

TEST(Stats, Table) {
  CheckTable("stats_log", [](const auto& f) {
    TempTree t;
    t.MakeFolder("WAIT/u@y");
    t.Write("Users/alias@y.ALS", "  u@y  \r\nignored\r\n");
    if (f[0] != "-") t.Write("WAIT/u@y/stats.log", f[0]);
    ForgetNameIndexes();
    Statuslog(t.ctx, f[1], 2, ".log");
    EXPECT_EQ(t.List("WAIT"), std::vector<std::string>{"u@y"});
    return (t.Exists("WAIT/u@y/stats.log") ? t.Read("WAIT/u@y/stats.log") : "-") + " | " +
           t.Read("LOG/system.log");
  });
}

TEST_F(StatsTest, TextsThatNameNoCountableUserWriteNothing) {
  for (const char* text : {"Sent     - <a@x> - learn mode",  // no "to <"
                           "Sent - to <> - learn mode",      // empty user
                           "Sent - to <nobody@y> - x",       // no holding folder
                           "Sent - to <../Users> - x",       // not a plain name
                           "Sent - to <..> - x"}) {
    SCOPED_TRACE(text);
    Statuslog(t.ctx, text, 2, ".log");
  }
  EXPECT_FALSE(t.Exists("WAIT/nobody@y"));
  EXPECT_FALSE(t.Exists("Users/stats.log"));
  EXPECT_FALSE(t.Exists("WAIT/stats.log"));
  EXPECT_FALSE(t.Exists("stats.log"));
  EXPECT_FALSE(t.Exists("LOG/system.log"));
  EXPECT_EQ(t.ReadLines("LOG/16-11-2026.log").size(), 5u);
}

}  // namespace
}  // namespace quellor
