// CHALLENGE_FILTER=ON: robot mail is held like any other but gets no validation request.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "platform/names.h"
#include "spool/pass.h"
#include "support/temp_tree.h"

namespace quellor::testing {
namespace {

TEST(ChallengeFilter, HoldsRobotMailWithoutARequestOnlyWhenOn) {
  struct Case {
    const char* sender;
    const char* header;  // one header line (may be folded), or ""
    const char* robot;   // why no request goes with the filter on; "" for a person
  };
  const Case cases[] = {
      {"MAILER-DAEMON@mx.y.net", "", "null sender"},
      {"Postmaster@y.net", "", "postmaster"},
      {"pm@y.net", "", "postmaster"},  // a POSTMASTERS entry's mail without an identifier
      {"a@y.net", "Auto-Submitted: auto-replied", "Auto-Submitted: auto-replied"},
      {"a@y.net", "auto-submitted:\r\n Auto-Generated (vacation)",
       "Auto-Submitted: auto-generated"},
      {"a@y.net", "Auto-Submitted: no", ""},
      {"a@y.net", "Precedence: Bulk", "Precedence: bulk"},
      {"a@y.net", "Precedence: junk", "Precedence: junk"},
      {"a@y.net", "Precedence: list", "Precedence: list"},
      {"a@y.net", "Precedence: first-class", ""},
      {"a@y.net", "List-Id: Friends <friends.y.net>", "List-Id"},
      {"a@y.net", "List-Unsubscribe: <mailto:leave@y.net>", "List-Unsubscribe"},
      {"a@y.net", "X-List-Id: not a list", ""},
  };
  for (const Case& c : cases) {
    for (const bool on : {false, true}) {
      SCOPED_TRACE(std::string(c.sender) + " / " + c.header + (on ? " / ON" : " / OFF"));
      TempTree tree;
      tree.ctx.settings.challenge_filter = on ? "ON" : "on";  // only exactly "ON" turns it on
      tree.ctx.window.List1.Add("pm@y.net");
      tree.WriteLines("Users/u@x.org.CONF", {"MODE=QUELLOR"});
      const std::string header = *c.header ? std::string(c.header) + "\r\n" : "";
      tree.Write("IN/20261116090000001.EML", "From: " + std::string(c.sender) +
                                                 "\r\nSubject: Hi\r\n" + header + "\r\nBody\r\n");
      tree.WriteLines("IN/20261116090000001.WAI", {c.sender, "u@x.org"});
      ForgetNameIndexes();
      tree.ctx.window.File1.Add("20261116090000001.EML");
      tree.ctx.window.total.Set("1");

      quellor(tree.ctx);

      const bool filtered = on && *c.robot;
      EXPECT_TRUE(tree.Exists("WAIT/u@x.org/20261116090000001.EML"));
      EXPECT_EQ(tree.ctx.window.Ignore.text(), "1");
      EXPECT_EQ(tree.List("OUT").empty(), filtered);
      std::vector<std::string> log = {"10:00:00 Delayed - <" + std::string(c.sender) +
                                      "> to <u@x.org> - wait for validation"};
      if (filtered) {
        log.push_back("10:00:00 No request - <" + std::string(c.sender) + "> is a robot (" +
                      c.robot + "), held for <u@x.org>");
      }
      EXPECT_EQ(tree.ReadLines("LOG/16-11-2026.log"), log);
    }
  }
}

}  // namespace
}  // namespace quellor::testing
