// Bounces of validation requests from postmasters: the held pair is purged.

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "spool/held_mail.h"
#include "spool/stages.h"

namespace quellor::testing {
namespace {

const char* const kId = "2026111609000001";
const std::string kStem = "20261116095959123";

// A bounce whose body quotes the validation request in full.
std::string QuotingBounce(const std::string& subject_header, const std::string& eol = "\r\n") {
  std::string text = "From: postmaster@x.org" + eol;
  if (!subject_header.empty()) text += subject_header + eol;
  text += eol + "Your message could not be delivered." + eol + eol + "From: u@y.org" + eol +
          "Subject: Rq:Hello // Request-ID:" + kId + eol + eol + "Please reply." + eol;
  return text;
}

struct BounceCase {
  const char* name;
  std::vector<std::string> envelope;  // IN/<stem>.WAI
  std::string message;                // IN/<stem>.EML
  std::string subject;                // as the component gave it
  bool held = true;                   // WAIT/u@y.org/<id> pair present
  bool bounce = true;                 // consumed as a bounce
  bool purged = true;                 // the held pair is gone afterwards
  std::string logged_recipient = "u@y.org";
};

// A tree holding one request's pair (and another one) that receives a bounce.
struct Bouncer : HeldMailTest {
  PassRun& Bounce(const BounceCase& c) {
    tree.WriteLines("IN/" + kStem + ".WAI", c.envelope);
    tree.Write("IN/" + kStem + ".EML", c.message);
    tree.WriteLines("Users/alias@y.org.ALS", {"u@y.org"});
    if (c.held) Hold("u@y.org", kId, "a@x.org", "u@y.org", "Hello");
    Hold("u@y.org", "2026111609000002", "a@x.org", "u@y.org", "Other");
    PassRun& p = AtLine("postmaster@x.org", "", "", "");
    p.s.message_file = kStem + ".EML";
    p.s.envelope_name = kStem + ".WAI";
    p.s.subject = c.subject;
    p.s.handled = true;  // the postmasters test matched
    BounceStage(p);
    return p;
  }
};

class BounceTest : public ::testing::Test, public Bouncer {};

TEST_F(BounceTest, PurgesTheHeldPairOfTheFirstRecipient) {
  const std::vector<BounceCase> cases = {
      {"request quoted in the body", {"postmaster@x.org", "u@y.org"}, QuotingBounce(""), ""},
      {"held pair already gone", {"postmaster@x.org", "u@y.org"}, QuotingBounce(""), "", false},
      {"identifier in the subject",
       {"postmaster@x.org", "<u@y.org>"},
       QuotingBounce("Subject: Failure"),
       std::string("Returned: Rq:Hello // Request-ID: ") + kId},
      {"first recipient is an alias",
       {"postmaster@x.org", "alias@y.org"},
       QuotingBounce(""),
       "",
       true,
       true,
       true,
       "alias@y.org"},
      {"bare line feeds", {"postmaster@x.org", "u@y.org"}, QuotingBounce("", "\n"), ""},
      {"only the first recipient counts",
       {"postmaster@x.org", "v@y.org", "u@y.org"},
       QuotingBounce(""),
       "",
       true,
       true,
       false,
       "v@y.org"},
      {"no identifier: ordinary mail",
       {"postmaster@x.org", "u@y.org"},
       "From: postmaster@x.org\r\nSubject: Hello\r\n\r\nJust a note.\r\n",
       "",
       true,
       false,
       false},
      {"subject without identifier hides the body's",
       {"postmaster@x.org", "u@y.org"},
       QuotingBounce("Subject: Failure"),
       "Failure",
       true,
       false,
       false},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    Bouncer t;
    t.tree.ctx.settings.debug = "ON";
    PassRun& p = t.Bounce(c);

    EXPECT_EQ(p.s.handled, c.bounce);
    EXPECT_EQ(p.s.errseek, 4);
    EXPECT_EQ(p.s.first_wait_id, c.bounce ? kId : "");
    EXPECT_EQ(t.tree.Exists("WAIT/u@y.org/" + std::string(kId) + ".WAI"), c.held && !c.purged);
    EXPECT_EQ(t.tree.Exists("WAIT/u@y.org/" + std::string(kId) + ".EML"), c.held && !c.purged);
    // Nothing else in the waiting area is touched, nothing is delivered.
    EXPECT_TRUE(t.tree.Exists("WAIT/u@y.org/2026111609000002.WAI"));
    EXPECT_TRUE(t.Files("LOCAL").empty());
    const std::string counted = c.bounce ? "1" : "0";
    EXPECT_EQ(t.tree.ctx.window.purged.text(), counted);
    EXPECT_EQ(t.tree.ctx.window.todaypurged.text(), counted);
    EXPECT_EQ(t.ActivityLog(), c.bounce
                                   ? "10:00:00 Deleted - <postmaster@x.org> to <" +
                                         c.logged_recipient + "> - sender bounces validation\r\n"
                                   : "");
    if (c.bounce) {
      const std::string user = c.logged_recipient == "v@y.org" ? "v@y.org" : "u@y.org";
      EXPECT_EQ(t.tree.ctx.window.purgedlist.items(),
                std::vector<std::string>{"Ret." + kStem + ".EML - Orig." + user + "/" + kId});
    } else {
      EXPECT_EQ(t.tree.ctx.window.purgedlist.size(), 0u);
    }
    EXPECT_EQ(t.Errors(), "");
  }
}

TEST_F(BounceTest, PurgedListNeedsDebugExactlyOnAndIsClearedAboveAThousand) {
  struct Case {
    const char* debug;
    size_t before;
    size_t after;
  };
  for (const Case& c : std::vector<Case>{
           {"ON", 1000, 1001}, {"ON", 1001, 1}, {"on", 0, 0}, {"on", 1001, 0}, {"OFF", 3, 3}}) {
    SCOPED_TRACE(std::string(c.debug) + " " + std::to_string(c.before));
    Bouncer t;
    t.tree.ctx.settings.debug = c.debug;
    for (size_t i = 0; i < c.before; ++i) t.tree.ctx.window.purgedlist.Add("old");
    t.Bounce({"bounce", {"postmaster@x.org", "u@y.org"}, QuotingBounce(""), ""});
    EXPECT_EQ(t.tree.ctx.window.purgedlist.size(), c.after);
    EXPECT_EQ(t.tree.ctx.window.purged.text(), "1");
    EXPECT_EQ(t.Errors(), "");
  }
}

}  // namespace
}  // namespace quellor::testing
