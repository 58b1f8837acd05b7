// Invalid validations: foreign and nonexistent wait identifiers.

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "spool/held_mail.h"
#include "spool/stages.h"

namespace quellor::testing {
namespace {

// A tree with both switches on.
struct Switched : HeldMailTest {
  Switched() {
    tree.ctx.settings.debug = "ON";
    tree.ctx.settings.log = "ON";
  }
};

class InvalidTest : public ::testing::Test, public Switched {};

TEST_F(InvalidTest, ForeignIdentifierIsCountedAndConsumed) {
  // Held for u@y.org; the reply goes to another address of the same mailbox.
  for (const std::string last : {"", "prev@z.org"}) {
    SCOPED_TRACE("last-read held sender '" + last + "'");
    Switched t;
    t.Hold("u@y.org", "2026111609000001", "a@x.org", "u@y.org", "Hi");
    PassRun& p = t.AtLine("b@q.org", "alias@y.org", "u@y.org", "2026111609000001");
    p.s.last_held_sender = last;

    ReplyStage(p);

    EXPECT_TRUE(p.s.handled);
    EXPECT_TRUE(p.s.reply);
    EXPECT_EQ(p.s.errseek, 20);
    EXPECT_EQ(t.tree.ctx.window.invalid.text(), "1");
    EXPECT_EQ(t.tree.ctx.window.todayinvalid.text(), "1");
    EXPECT_EQ(t.tree.ctx.window.Validations.text(), "0");
    const std::string text =
        "$$Invalid Val - Wait id:2026111609000001|Val from: b@q.org-Wait from: " + last;
    EXPECT_EQ(t.tree.ctx.window.List3.items(),
              std::vector<std::string>{"16/11/2026,10:00:00" + text});
    EXPECT_EQ(t.RetryLog(), "10:00:00  " + text + "\r\n");
    // Nothing released, nobody white-listed.
    EXPECT_TRUE(t.Files("LOCAL").empty());
    EXPECT_EQ(t.Files("WAIT/u@y.org", ".WAI").size(), 1u);
    EXPECT_FALSE(t.tree.Exists("Users/u@y.org.WLT"));
    EXPECT_EQ(t.Errors(), "");
  }
}

TEST_F(InvalidTest, NonexistentIdentifierCountsOnlyForLocalSendersOrMarkers) {
  struct Case {
    const char* name;
    std::string sender;
    bool configured;    // Users/<sender>.CONF
    bool sender_holds;  // WAIT/<sender>/<id>.WAI
    bool marker;        // WAIT/u@y.org/<id>.SOD
    bool invalid;
  };
  const std::vector<Case> cases = {
      {"outsider: routed normally", "b@q.org", false, false, false, false},
      {"configured local user", "v@y.org", true, false, false, true},
      {"configured local user holding that id", "v@y.org", true, true, false, false},
      {"local user without configuration", "v@y.org", false, false, false, false},
      {"marker, outsider", "b@q.org", false, false, true, true},
      {"marker, local user holding that id", "v@y.org", true, true, true, true},
      {"sender that is no file name", "../Users/v@y.org", true, false, false, false},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    Switched t;
    if (c.configured) t.tree.Write("Users/" + c.sender + ".CONF", "MODE=QUELLOR\r\n");
    if (c.sender_holds) t.Hold(c.sender, "2026111609000007", "c@d.org", c.sender, "Hi");
    if (c.marker) t.tree.Write("WAIT/u@y.org/2026111609000007.SOD", "");
    PassRun& p = t.AtLine(c.sender, "u@y.org", "u@y.org", "2026111609000007");

    ReplyStage(p);

    EXPECT_TRUE(p.s.reply);
    EXPECT_EQ(p.s.handled, c.invalid);
    EXPECT_EQ(t.tree.ctx.window.invalid.text(), c.invalid ? "1" : "0");
    EXPECT_EQ(t.tree.ctx.window.todayinvalid.text(), c.invalid ? "1" : "0");
    const std::string text =
        "$$Invalid Val - Nonexistent Wait id:2026111609000007|Val from: " + c.sender;
    if (c.invalid) {
      EXPECT_EQ(t.tree.ctx.window.List3.items(),
                std::vector<std::string>{"16/11/2026,10:00:00" + text + "|Val to: u@y.org"});
      EXPECT_EQ(t.RetryLog(), "10:00:00  " + text + "\r\n");
    } else {
      EXPECT_EQ(t.tree.ctx.window.List3.size(), 0u);
      EXPECT_EQ(t.RetryLog(), "");
    }
    // The marker is used up; nothing is created for the sender.
    EXPECT_FALSE(t.tree.Exists("WAIT/u@y.org/2026111609000007.SOD"));
    if (!c.sender_holds) {
      EXPECT_FALSE(t.tree.Exists("WAIT/" + c.sender));
    }
    EXPECT_TRUE(t.Files("LOCAL").empty());
    EXPECT_EQ(t.Errors(), "");
  }
}

TEST_F(InvalidTest, MarkerServesOneReplyOnly) {
  tree.Write("WAIT/u@y.org/2026111609000007.sod", "");
  ReplyStage(AtLine("b@q.org", "u@y.org", "u@y.org", "2026111609000007"));
  EXPECT_TRUE(run->s.handled);
  EXPECT_FALSE(tree.Exists("WAIT/u@y.org/2026111609000007.sod"));

  ReplyStage(AtLine("b@q.org", "u@y.org", "u@y.org", "2026111609000007"));
  EXPECT_FALSE(run->s.handled);
  EXPECT_EQ(tree.ctx.window.invalid.text(), "1");
  EXPECT_EQ(Errors(), "");
}

TEST_F(InvalidTest, ReportsFollowTheSwitchesExactly) {
  tree.ctx.settings.debug = "on";
  tree.ctx.settings.log = "ON ";
  tree.Write("Users/v@y.org.CONF", "");
  Hold("u@y.org", "2026111609000001", "a@x.org", "u@y.org", "Hi");

  ReplyStage(AtLine("v@y.org", "u@y.org", "u@y.org", "2026111609000007"));
  ReplyStage(AtLine("v@y.org", "alias@y.org", "u@y.org", "2026111609000001"));

  EXPECT_EQ(tree.ctx.window.invalid.text(), "2");
  EXPECT_EQ(tree.ctx.window.todayinvalid.text(), "2");
  EXPECT_EQ(tree.ctx.window.List3.size(), 0u);
  EXPECT_EQ(RetryLog(), "");
  EXPECT_EQ(Errors(), "");
}

}  // namespace
}  // namespace quellor::testing
