// Validation replies: release of held mail and white-listing of the held sender.

#include <gtest/gtest.h>

#include <algorithm>
#include <cerrno>
#include <map>
#include <set>
#include <string>
#include <vector>

#include "platform/fs.h"
#include "spool/held_mail.h"
#include "spool/stages.h"

namespace quellor::testing {
namespace {

class ReplyTest : public ::testing::Test, public HeldMailTest {};

// The released copy of MessageText(sender, subject) with the lines the release adds.
std::string Released(const std::string& sender, const std::string& subject,
                     const std::string& recipient = "u@y.org") {
  return "From: " + sender + "\r\nTo: u@y.org\r\nSubject: (New in white list) " + subject +
         "\r\nSpam-Quellor: " + sender + " found in white list of " + recipient +
         "\r\n\r\nHello there.\r\n";
}

TEST_F(ReplyTest, OneReplyReleasesEveryHeldMessageOfTheSenderInListingOrder) {
  // Three messages of one sender (written in three letter cases), one of another sender and one
  // of the same sender to another address of the same mailbox.
  Hold("u@y.org", "2026111609000001", "A@x.org", "u@y.org", "First");
  Hold("u@y.org", "2026111609000002", "a@X.org", "U@Y.org", "Second");
  Hold("u@y.org", "2026111609000003", "a@x.ORG", "u@y.org", "Third");
  Hold("u@y.org", "2026111609000004", "other@z.org", "u@y.org", "Other");
  Hold("u@y.org", "2026111609000005", "a@x.org", "alias@y.org", "Aliased");
  tree.ctx.settings.debug = "ON";
  PassRun& p = AtLine("a@x.org", "u@y.org", "u@y.org", "2026111609000002");

  ReplyStage(p);

  EXPECT_TRUE(p.s.handled);
  EXPECT_TRUE(p.s.reply);
  EXPECT_EQ(tree.ctx.window.Validations.text(), "3");
  EXPECT_EQ(tree.ctx.window.todayvalidations.text(), "3");

  // Three pairs under fresh names; each envelope is the held one byte for byte, each message
  // carries the new subject and the mark.
  const auto envelopes = Files("LOCAL", ".WAI");
  ASSERT_EQ(envelopes.size(), 3u);
  ASSERT_EQ(Files("LOCAL", ".EML").size(), 3u);
  std::map<std::string, std::string> by_subject;
  for (const auto& name : envelopes) {
    const std::string stem = name.substr(0, name.size() - 4);
    EXPECT_EQ(stem.rfind("20261116100000", 0), 0u) << stem;
    const auto lines = tree.ReadLines("LOCAL/" + name);
    ASSERT_EQ(lines.size(), 3u);
    by_subject[lines[2]] = stem;
    EXPECT_EQ(tree.Read("LOCAL/" + stem + ".EML"), Released(lines[0], lines[2]));
  }
  EXPECT_EQ(tree.Read("LOCAL/" + by_subject["Second"] + ".WAI"),
            "a@X.org\r\nU@Y.org\r\nSecond\r\n");
  ASSERT_EQ(by_subject.size(), 3u);

  // Released pairs are gone; the others stay held.
  EXPECT_EQ(Files("WAIT/u@y.org", ".WAI"),
            (std::vector<std::string>{"2026111609000004.WAI", "2026111609000005.WAI"}));
  EXPECT_EQ(Files("WAIT/u@y.org", ".EML"),
            (std::vector<std::string>{"2026111609000004.EML", "2026111609000005.EML"}));

  // The held sender of the named message is white-listed once.
  EXPECT_EQ(tree.Read("Users/u@y.org.WLT"), "a@X.org\r\n");

  // Logged in listing order, each with its own envelope's sender and recipient.
  EXPECT_EQ(ActivityLog(),
            "10:00:00 Received     - <A@x.org> to <u@y.org> - validation received\r\n"
            "10:00:00 Received     - <a@X.org> to <U@Y.org> - validation received\r\n"
            "10:00:00 Received     - <a@x.ORG> to <u@y.org> - validation received\r\n");
  const std::string validation = "10:00:00  Validation: a@X.org to u@y.org\r\n";
  EXPECT_EQ(RetryLog(), validation + validation + validation);
  EXPECT_EQ(tree.ctx.window.List2.items(),
            std::vector<std::string>(3, "16/11/2026 10:00:00 Valid: a@X.org -> u@y.org"));
  // The last envelope the loop read names the last-read held sender.
  EXPECT_EQ(p.s.last_held_sender, "a@x.org");
  EXPECT_EQ(Errors(), "");
}

TEST_F(ReplyTest, AReplyFromAnyAddressValidatesTheHeldSender) {
  Hold("u@y.org", "2026111609000001", "a@x.org", "u@y.org", "Hi");
  PassRun& p = AtLine("helper@q.org", "u@y.org", "u@y.org", "2026111609000001");

  ReplyStage(p);

  EXPECT_TRUE(p.s.handled);
  EXPECT_EQ(Files("LOCAL", ".EML").size(), 1u);
  EXPECT_EQ(tree.Read("Users/u@y.org.WLT"), "a@x.org\r\n");
  EXPECT_EQ(tree.ctx.window.invalid.text(), "0");
  EXPECT_EQ(Errors(), "");
}

TEST_F(ReplyTest, WhiteListsTheSenderOnlyWhenNoListHasIt) {
  struct Case {
    const char* name;
    std::map<std::string, std::string> lists;  // Users/<file> -> content
    std::string expected_own;                  // Users/u@y.org.WLT afterwards ("" = absent)
  };
  const std::vector<Case> cases = {
      {"listed nowhere: appended to the own list",
       {{"u@y.org.WLT", "c@d.org\r\n"}},
       "c@d.org\r\na@x.org\r\n"},
      {"listed nowhere, no own list: created", {}, "a@x.org\r\n"},
      {"on the own list by pattern", {{"u@y.org.WLT", "*@X.ORG\r\n"}}, "*@X.ORG\r\n"},
      {"on the list of all users", {{"@.WLT", "a@x.org\r\n"}}, ""},
      {"on the list of the domain", {{"@y.org.WLT", "  *@x.org  \r\n"}}, ""},
      {"a hidden list does not count", {{".WLT", "a@x.org\r\n"}}, "a@x.org\r\n"},
      {"own list without a last line end", {{"u@y.org.WLT", "c@d.org"}}, "c@d.org\r\na@x.org\r\n"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    HeldMailTest t;
    t.Hold("u@y.org", "2026111609000001", "a@x.org", "u@y.org", "Hi");
    for (const auto& [file, content] : c.lists) t.tree.Write("Users/" + file, content);
    PassRun& p = t.AtLine("a@x.org", "u@y.org", "u@y.org", "2026111609000001");

    ReplyStage(p);

    EXPECT_EQ(t.tree.ctx.window.Validations.text(), "1");
    EXPECT_EQ(t.tree.Exists("Users/u@y.org.WLT"), !c.expected_own.empty());
    EXPECT_EQ(t.tree.Read("Users/u@y.org.WLT"), c.expected_own);
    for (const auto& [file, content] : c.lists) {
      if (file != "u@y.org.WLT") {
        EXPECT_EQ(t.tree.Read("Users/" + file), content);
      }
    }
    EXPECT_EQ(t.Errors(), "");
  }
}

TEST_F(ReplyTest, MarksOnlyWhatTheHeldEnvelopeAndSizeAllow) {
  const std::string original = MessageText("a@x.org", "Original");
  const std::string marked_only =
      "From: a@x.org\r\nTo: u@y.org\r\nSubject: Original\r\n"
      "Spam-Quellor: a@x.org found in white list of u@y.org\r\n"
      "\r\nHello there.\r\n";
  // A message of `size` bytes with the given header block.
  auto sized = [](size_t size) {
    std::string text = "From: a@x.org\r\nSubject: Big\r\n\r\n";
    text += std::string(size - text.size(), 'x');
    return text;
  };
  struct Case {
    const char* name;
    std::vector<std::string> envelope;
    std::string message;
    std::string expected;
  };
  const std::vector<Case> cases = {
      {"empty subject line: own subject kept", {"a@x.org", "u@y.org", ""}, original, marked_only},
      {"two-line envelope: own subject kept", {"a@x.org", "u@y.org"}, original, marked_only},
      {"1000 KB exactly: unmarked", {"a@x.org", "u@y.org", "Big"}, sized(1024000), sized(1024000)},
      {"just below 1000 KB: marked",
       {"a@x.org", "u@y.org", "Big"},
       sized(1023999),
       "From: a@x.org\r\nSubject: (New in white list) Big\r\n"
       "Spam-Quellor: a@x.org found in white list of u@y.org\r\n" +
           sized(1023999).substr(std::string("From: a@x.org\r\nSubject: Big\r\n").size())},
      {"line feeds in held values stay inside one header line",
       {"a@x.org", "u@y.org", "Hi\nBcc: victim@z.org"},
       original,
       "From: a@x.org\r\nTo: u@y.org\r\nSubject: (New in white list) Hi Bcc: victim@z.org\r\n"
       "Spam-Quellor: a@x.org found in white list of u@y.org\r\n\r\nHello there.\r\n"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    HeldMailTest t;
    t.tree.WriteLines("WAIT/u@y.org/2026111609000001.WAI", c.envelope);
    t.tree.Write("WAIT/u@y.org/2026111609000001.EML", c.message);
    const std::string held_envelope = t.tree.Read("WAIT/u@y.org/2026111609000001.WAI");
    PassRun& p = t.AtLine("a@x.org", "u@y.org", "u@y.org", "2026111609000001");

    ReplyStage(p);

    const auto released = t.Files("LOCAL", ".EML");
    ASSERT_EQ(released.size(), 1u);
    const std::string stem = released[0].substr(0, released[0].size() - 4);
    EXPECT_EQ(t.tree.Read("LOCAL/" + stem + ".EML"), c.expected);
    EXPECT_EQ(t.tree.Read("LOCAL/" + stem + ".WAI"), held_envelope);
    EXPECT_TRUE(t.Files("WAIT/u@y.org", ".EML").empty());
    EXPECT_EQ(t.Errors(), "");
  }
}

TEST_F(ReplyTest, SwitchesCountOnlyWhenExactlyOn) {
  struct Case {
    const char* debug;
    const char* log;
    bool event;
    bool retry;
  };
  for (const Case& c : std::vector<Case>{{"ON", "ON", true, true},
                                         {"on", "ON", false, true},
                                         {"ON", "On", true, false},
                                         {"OFF", "OFF", false, false}}) {
    SCOPED_TRACE(std::string(c.debug) + "/" + c.log);
    HeldMailTest t;
    t.Hold("u@y.org", "2026111609000001", "a@x.org", "u@y.org", "Hi");
    t.tree.ctx.settings.debug = c.debug;
    t.tree.ctx.settings.log = c.log;
    ReplyStage(t.AtLine("a@x.org", "u@y.org", "u@y.org", "2026111609000001"));

    EXPECT_EQ(t.tree.ctx.window.Validations.text(), "1");
    EXPECT_EQ(t.tree.ctx.window.List2.size(), c.event ? 1u : 0u);
    EXPECT_EQ(CountLines(t.RetryLog(), "Validation: a@x.org to u@y.org"), c.retry ? 1 : 0);
    // The activity log does not depend on either switch.
    EXPECT_EQ(CountLines(t.ActivityLog(), "<a@x.org> to <u@y.org> - validation received\r\n"), 1);
    EXPECT_EQ(t.Errors(), "");
  }
}

TEST_F(ReplyTest, AReleaseWhoseCopyGivesUpKeepsTheHeldPair) {
  // The local queue refuses new files (a full disk): the held pair must survive.
  struct Case {
    const char* name;
    int first_refused;  // 1: the envelope copy on, 2: only the message copy
    size_t local_files;
  };
  for (const Case& c :
       std::vector<Case>{{"both copies refused", 1, 0}, {"message copy refused", 2, 1}}) {
    SCOPED_TRACE(c.name);
    HeldMailTest t;
    t.Hold("u@y.org", "2026111609000001", "a@x.org", "u@y.org", "Hi");
    PassRun& p = t.AtLine("a@x.org", "u@y.org", "u@y.org", "2026111609000001");
    FaultyFileSystem faulty;
    faulty.FailNth(FsOp::kOpen, c.first_refused, ENOSPC, 1000, "LOCAL/");
    {
      ScopedFileSystem scoped(&faulty);
      ReplyStage(p);
    }
    ForgetNameIndexes();
    EXPECT_TRUE(t.tree.Exists("WAIT/u@y.org/2026111609000001.WAI"));
    EXPECT_TRUE(t.tree.Exists("WAIT/u@y.org/2026111609000001.EML"));
    EXPECT_EQ(t.Files("LOCAL").size(), c.local_files);
  }
}

TEST_F(ReplyTest, NoIdentifierLeavesTheMessageAlone) {
  Hold("u@y.org", "2026111609000001", "a@x.org", "u@y.org", "Hi");
  PassRun& p = AtLine("a@x.org", "u@y.org", "u@y.org", "");

  ReplyStage(p);

  EXPECT_FALSE(p.s.handled);
  EXPECT_FALSE(p.s.reply);
  EXPECT_TRUE(Files("LOCAL").empty());
  EXPECT_EQ(Files("WAIT/u@y.org", ".WAI").size(), 1u);
  EXPECT_EQ(Errors(), "");
}

TEST_F(ReplyTest, MailboxNamesThatLeaveTheWaitingAreaNameNothing) {
  // A held-looking file reachable only through "..": never released, nothing created.
  tree.WriteLines("2026111609000001.WAI", {"a@x.org", "u@y.org", "Hi"});
  tree.Write("2026111609000001.EML", MessageText("a@x.org", "Hi"));
  for (const std::string user : {"..", "../WAIT", ""}) {
    SCOPED_TRACE(user);
    PassRun& p = AtLine("../Users", "u@y.org", user, "2026111609000001");

    ReplyStage(p);

    EXPECT_FALSE(p.s.handled);
    EXPECT_TRUE(p.s.reply);
    EXPECT_TRUE(Files("LOCAL").empty());
    EXPECT_TRUE(tree.Exists("2026111609000001.WAI"));
    EXPECT_FALSE(tree.Exists("Users/...WLT"));
    EXPECT_EQ(tree.ctx.window.invalid.text(), "0");
    EXPECT_EQ(Errors(), "");
  }
}

}  // namespace
}  // namespace quellor::testing
