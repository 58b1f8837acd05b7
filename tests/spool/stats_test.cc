#include "spool/stats.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "logs/logs.h"
#include "platform/names.h"
#include "spool/activity_log.h"
#include "support/temp_tree.h"

namespace quellor {
namespace {

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

TEST_F(StatsTest, EachPassTextCountsInItsPairOfFields) {
  struct Case {
    const char* text;
    const char* line;
  } cases[] = {
      {"Sent     - <a@x> to <u@y> - learn mode", "16/11/2026|1|0|0|0|1|0|0|0"},
      {"Deleted - <a@x> to <u@y> - sender bounces validation", "16/11/2026|0|1|0|0|0|1|0|0"},
      {"Rejected - <a@x> to <u@y>", "16/11/2026|0|0|1|0|0|0|1|0"},
      {"Queued - <a@x> to <u@y> - wait for validation", "16/11/2026|0|0|0|1|0|0|0|1"},
      // The first rule that applies wins.
      {"Delayed then Sent - to <u@y>", "16/11/2026|1|0|0|0|1|0|0|0"},
      // Counted for nothing, but the file is written all the same.
      {"Other - <a@x> to <u@y> - note", "16/11/2026|0|0|0|0|0|0|0|0"},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.text);
    t.Remove("WAIT/u@y/stats.log");
    ForgetNameIndexes();
    Statuslog(t.ctx, c.text, 2, ".log");
    EXPECT_EQ(t.Read("WAIT/u@y/stats.log"), std::string(c.line) + "\r\n");
  }
  EXPECT_FALSE(t.Exists("LOG/system.log"));
}

TEST_F(StatsTest, ExistingCountsGoOnFromTheirLeadingNumbers) {
  struct Case {
    const char* before;
    const char* text;
    const char* after;
  } cases[] = {
      {"01/02/2003|5|1|0|2|5|1|0|2\r\n", "Queued - <a@x> to <u@y>", "01/02/2003|5|1|0|3|5|1|0|3"},
      // The two halves are counted apart from what the file says: only the matching field moves.
      {"any date| 7|x|2.5|3 apples|1|2|3|4\r\n", "Deleted - <a@x> to <u@y>",
       "any date|7|1|2|3|1|3|3|4"},
      // A wrong number of fields is overwritten with fresh counts.
      {"1|2|3|4|5|6|7|8\r\n", "Sent - <a@x> to <u@y>", "16/11/2026|1|0|0|0|1|0|0|0"},
      {"1|2|3|4|5|6|7|8|9|10\r\n", "Sent - <a@x> to <u@y>", "16/11/2026|1|0|0|0|1|0|0|0"},
  };
  for (const Case& c : cases) {
    Write("WAIT/u@y/stats.log", c.before);
    Statuslog(t.ctx, c.text, 2, ".log");
    EXPECT_EQ(t.Read("WAIT/u@y/stats.log"), std::string(c.after) + "\r\n") << c.before;
  }
}

TEST_F(StatsTest, AnEmptyFileStaysEmpty) {
  Write("WAIT/u@y/stats.log", "");
  for (int i = 0; i < 2; ++i) Statuslog(t.ctx, "Sent     - <a@x> to <u@y> - learn mode", 2, ".log");
  EXPECT_EQ(t.Read("WAIT/u@y/stats.log"), "");
  EXPECT_EQ(Errors(),
            std::vector<std::string>(
                2, "16/11/2026 10:00:00 : Statuslog - log:u@y - # 62 -  Input past end of file"));
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

TEST_F(StatsTest, MissingClosingBracketIsAnError) {
  Statuslog(t.ctx, "Sent - <a@x> to <u@y - learn mode", 2, ".log");
  EXPECT_EQ(
      Errors(),
      std::vector<std::string>{
          "16/11/2026 10:00:00 : Statuslog - log: - # 5 -  Invalid procedure call or argument"});
  EXPECT_FALSE(t.Exists("WAIT/u@y/stats.log"));
}

TEST_F(StatsTest, TheUserIsResolvedThroughItsAliasAndItsFolderName) {
  Write("Users/alias@y.ALS", "  u@y  \r\nignored\r\n");
  Statuslog(t.ctx, "Sent     - <a@x> to <alias@y> - learn mode", 2, ".log");
  EXPECT_EQ(t.Read("WAIT/u@y/stats.log"), "16/11/2026|1|0|0|0|1|0|0|0\r\n");
  EXPECT_FALSE(t.Exists("WAIT/alias@y"));

  // A holding folder is found whatever the letter case of the address.
  Statuslog(t.ctx, "Sent     - <a@x> to <U@Y> - learn mode", 2, ".log");
  EXPECT_EQ(t.Read("WAIT/u@y/stats.log"), "16/11/2026|2|0|0|0|2|0|0|0\r\n");
  EXPECT_EQ(t.List("WAIT"), std::vector<std::string>{"u@y"});
}

}  // namespace
}  // namespace quellor
