// The processing pass end to end over a temporary installation: routing of every mode, the
// envelopes it writes, the validation-request throttle, the 40-message cap and half pairs.

#include "spool/pass.h"

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <ctime>
#include <filesystem>
#include <string>
#include <vector>

#include "platform/fs.h"
#include "platform/names.h"
#include "spool/held_mail.h"

namespace quellor::testing {
namespace {

// Shows regular files as last modified at the fake clock's time (minus their real age), so the
// throttle's "written today" test follows the test's clock.
class FakeTimeFileSystem : public FileSystem {
 public:
  explicit FakeTimeFileSystem(const FakeClock& clock) : clock_(clock) {}
  int Stat(const std::string& path, struct stat* st) override {
    const int r = FileSystem::Stat(path, st);
    if (r == 0 && S_ISREG(st->st_mode)) st->st_mtime += clock_.Now() - std::time(nullptr);
    return r;
  }

 private:
  const FakeClock& clock_;
};

class PassTest : public ::testing::Test, public HeldMailTest {
 protected:
  PassTest() : fake_time_(tree.clock), seam_(&fake_time_) {
    tree.ctx.settings.postmasters = "";
    tree.Write("SYSTEM/validation.txt", "Please reply to $email.\r\n");
    tree.Write("SYSTEM/validation.htm", "<p>Please reply.</p>\r\n");
  }

  // A pair in IN/: envelope (sender, recipient lines) and a message with that subject.
  void Queue(const std::string& stem, const std::string& sender,
             const std::vector<std::string>& recipients, const std::string& subject = "Hi") {
    std::vector<std::string> envelope = {sender};
    envelope.insert(envelope.end(), recipients.begin(), recipients.end());
    tree.WriteLines("IN/" + stem + ".WAI", envelope);
    tree.Write("IN/" + stem + ".EML", MessageText(sender, subject));
  }

  // What the scheduler does: list IN/, count it into `total`, run the pass.
  void RunPass() {
    ForgetNameIndexes();
    WindowModel& w = tree.ctx.window;
    w.File1.Clear();
    for (const auto& name : ListFiles(tree.Path("IN"), "*.EML")) w.File1.Add(name);
    w.total.Set(std::to_string(w.File1.size()));
    if (w.total.Value() > 0) quellor(tree.ctx);
    ForgetNameIndexes();
  }

  FakeTimeFileSystem fake_time_;
  ScopedFileSystem seam_;
};

struct RouteCase {
  const char* name;
  const char* conf;  // nullptr: no configuration file
  bool listed;       // sender on the user's own white list
  const char* log;   // the activity-log line after the time
  int local;         // pairs in LOCAL/
  bool held;         // pair in WAIT/u@y.org/
  const char* counter;
  bool learned;  // sender appended to u@y.org.LRN
};

const RouteCase kRoutes[] = {
    {"Unconfigured", nullptr, false, "Received     - <a@x.org> to <u@y.org> - protection off", 1,
     false, "Forward", false},
    {"UnconfiguredListed", nullptr, true, "Received     - <a@x.org> to <u@y.org> - protection off",
     1, false, "Forward", false},
    {"Forward", "MODE=FORWARD", false, "Received     - <a@x.org> to <u@y.org> - protection off", 1,
     false, "Forward", false},
    {"UnknownMode", "mode = learn", true, "Received     - <a@x.org> to <u@y.org> - protection off",
     1, false, "Forward", false},
    {"Learn", "mode=learn", false, "Received     - <a@x.org> to <u@y.org> - learn mode", 1, false,
     "Learn", true},
    {"LearnListed", "MODE=LEARN", true, "Received     - <a@x.org> to <u@y.org> - learn mode", 1,
     false, "Learn", false},
    {"Protected", "MODE=QUELLOR", false, "Delayed - <a@x.org> to <u@y.org> - wait for validation",
     0, true, "Ignore", false},
    {"ProtectedSilent", "MODE=QUELLOR\r\nvalidation=off  ", false,
     "Delayed - <a@x.org> to <u@y.org> - wait for validation", 0, true, "Ignore", false},
    {"ProtectedListed", "X=1\r\nMODE=QUELLOR\r\nMODE=LEARN", true,
     "Received     - <a@x.org> to <u@y.org> - found in white list", 1, false, "Ignore", false},
};

class RouteTest : public PassTest, public ::testing::WithParamInterface<RouteCase> {};

TEST_P(RouteTest, RoutesByModeAndWhiteList) {
  const RouteCase& c = GetParam();
  if (c.conf) tree.Write("Users/u@y.org.CONF", std::string(c.conf) + "\r\n");
  if (c.listed) tree.WriteLines("Users/u@y.org.WLT", {"*@X.ORG"});
  Queue("20261116095900123", "a@x.org", {"<u@y.org>"});

  RunPass();

  const std::string activity = ActivityLog();
  EXPECT_EQ(activity, "10:00:00 " + std::string(c.log) + "\r\n");
  EXPECT_EQ(Errors(), "");
  EXPECT_TRUE(tree.List("IN").empty());
  EXPECT_EQ(tree.ctx.window.total.text(), "0");

  WindowModel& w = tree.ctx.window;
  const std::string counter = c.counter;
  EXPECT_EQ(w.Forward.text(), counter == "Forward" ? "1" : "0");
  EXPECT_EQ(w.todayforward.text(), counter == "Forward" ? "1" : "0");
  EXPECT_EQ(w.Learn.text(), counter == "Learn" ? "1" : "0");
  EXPECT_EQ(w.todaylearn.text(), counter == "Learn" ? "1" : "0");
  EXPECT_EQ(w.Ignore.text(), counter == "Ignore" ? "1" : "0");
  EXPECT_EQ(w.todayignore.text(), counter == "Ignore" ? "1" : "0");

  const auto local = Files("LOCAL", ".WAI");
  ASSERT_EQ(local.size(), static_cast<size_t>(c.local));
  ASSERT_EQ(Files("LOCAL", ".EML").size(), static_cast<size_t>(c.local));
  if (c.local == 1) {
    const std::string stem = local[0].substr(0, local[0].size() - 4);
    EXPECT_EQ(tree.Read("LOCAL/" + local[0]), "a@x.org\r\nu@y.org\r\n");
    std::string message = MessageText("a@x.org", "Hi");
    if (counter == "Ignore") {
      message.insert(message.find("\r\n\r\n") + 2,
                     "Spam-Quellor: a@x.org found in white list of u@y.org\r\n");
    }
    EXPECT_EQ(tree.Read("LOCAL/" + stem + ".EML"), message);
  }
  EXPECT_EQ(tree.Exists("WAIT/u@y.org/20261116095900123.WAI"), c.held);
  EXPECT_EQ(tree.Exists("WAIT/u@y.org/20261116095900123.EML"), c.held);
  const bool silent = c.conf && std::string(c.conf).find("validation=off") != std::string::npos;
  EXPECT_EQ(Files("OUT", ".EML").size(), c.held && !silent ? 1u : 0u);
  EXPECT_EQ(tree.Read("Users/u@y.org.LRN"), c.learned ? "a@x.org\r\n" : "");
  // Provisioning is off: an unconfigured user stays unconfigured.
  EXPECT_EQ(tree.Exists("Users/u@y.org.CONF"), c.conf != nullptr);
}

INSTANTIATE_TEST_SUITE_P(Modes, RouteTest, ::testing::ValuesIn(kRoutes),
                         [](const auto& info) { return std::string(info.param.name); });

TEST_F(PassTest, EnvelopesAndRequestCarryOneLineValues) {
  tree.Write("Users/u@y.org.CONF", "MODE=QUELLOR\r\n");
  // A subject whose decoded text holds CR LF, and a request address in parentheses.
  Queue("20261116095900001", "a@x.org", {"u@y.org (Bob@y.org)"}, "=?utf-8?Q?one=0D=0ABcc:_z?=");

  RunPass();

  EXPECT_EQ(tree.Read("WAIT/u@y.org/20261116095900001.WAI"),
            "a@x.org\r\nu@y.org\r\none  Bcc: z\r\n");
  const auto out = Files("OUT", ".WAI");
  ASSERT_EQ(out.size(), 1u);
  EXPECT_EQ(tree.Read("OUT/" + out[0]), "u@y.org\r\na@x.org\r\n");
  const std::string request = tree.Read("OUT/" + out[0].substr(0, out[0].size() - 4) + ".EML");
  EXPECT_EQ(request.rfind("From: Bob@y.org\r\nTo: a@x.org\r\n"
                          "Subject: Rq:one  Bcc: z // Request-ID:20261116095900001\r\n",
                          0),
            0u)
      << request;
  EXPECT_NE(request.find("Please reply to Bob@y.org."), std::string::npos) << request;
}

TEST_F(PassTest, ThrottleSendsOneRequestPerSenderRecipientAndDay) {
  tree.Write("Users/u@y.org.CONF", "MODE=QUELLOR\r\n");
  tree.Write("Users/v@y.org.CONF", "MODE=QUELLOR\r\n");
  struct Step {
    const char* stem;
    const char* sender;
    const char* recipient;
    const char* folder;
    size_t requests;  // OUT/ requests after this message
  };
  const Step steps[] = {
      {"20261116090000001", "a@x.org", "u@y.org", "u@y.org", 1},  // first of the day
      {"20261116090000002", "A@X.ORG", "U@y.org", "u@y.org", 1},  // same pair: held silently
      {"20261116090000003", "a@x.org", "v@y.org", "v@y.org", 2},  // other recipient
      {"20261117090000004", "a@x.org", "u@y.org", "u@y.org", 3},  // next day: a new request
  };
  for (const Step& step : steps) {
    if (step.stem[7] == '7') tree.clock.SetLocal(2026, 11, 17, 10, 0, 0);
    Queue(step.stem, step.sender, {step.recipient});
    RunPass();
    SCOPED_TRACE(step.stem);
    EXPECT_EQ(Files("OUT", ".EML").size(), step.requests);
    EXPECT_TRUE(tree.Exists("WAIT/" + std::string(step.folder) + "/" + step.stem + ".EML"));
  }
  EXPECT_EQ(CountLines(ActivityLog() + tree.Read("LOG/17-11-2026.log"), "wait for validation"), 4);
  EXPECT_EQ(Errors(), "");
}

TEST_F(PassTest, TakesAtMostFortyOldestFirstAndRemovesHalfPairs) {
  for (int i = 1; i <= 45; ++i) {
    const std::string n = (i < 10 ? "0" : "") + std::to_string(i);
    Queue("202611160900000" + n, "s" + n + "@x.org", {"u@y.org"});
  }
  // A pair whose message file goes after the listing, and a message without its envelope.
  Queue("20261116080000000", "gone@x.org", {"u@y.org"});
  tree.Write("IN/20261116080000001.EML", MessageText("lone@x.org", "Hi"));
  WindowModel& w = tree.ctx.window;
  ForgetNameIndexes();
  for (const auto& name : ListFiles(tree.Path("IN"), "*.EML")) w.File1.Add(name);
  w.total.Set("47");
  tree.Remove("IN/20261116080000000.EML");
  ForgetNameIndexes();

  quellor(tree.ctx);
  ForgetNameIndexes();

  EXPECT_EQ(w.total.text(), "0");
  EXPECT_EQ(tree.sleeper.count(), 40);
  // The two half pairs and 38 messages went; the 7 highest names wait for the next pass.
  EXPECT_EQ(tree.List("IN").size(), 14u);
  EXPECT_EQ(Files("LOCAL", ".EML").size(), 38u);
  EXPECT_EQ(w.File1.size(), 7u);
  EXPECT_EQ(w.File1.At(0), "20261116090000039.EML");
  // Logged in name order; the half pairs left no line.
  const std::string activity = ActivityLog();
  EXPECT_EQ(activity.find("lone@x.org"), std::string::npos);
  EXPECT_EQ(activity.find("gone@x.org"), std::string::npos);
  EXPECT_LT(activity.find("<s01@x.org>"), activity.find("<s02@x.org>"));
  EXPECT_LT(activity.find("<s37@x.org>"), activity.find("<s38@x.org>"));
  EXPECT_EQ(activity.find("<s39@x.org>"), std::string::npos);
}

TEST_F(PassTest, ProvisionsUsersOfLocalDomainsAndCountsTheirTraffic) {
  tree.ctx.settings.users_auto = "YES";
  tree.ctx.settings.domains_auto = "YES";
  tree.WriteLines("DOMAIN.LST", {"a.org", "y.org"});
  tree.Write("SYSTEM/NEW_USER.CONF", "MODE=QUELLOR\r\n");
  Queue("20261116090000001", "a@a.org", {"u@Y.ORG", "w@new.org"});
  RunPass();

  // Both forwarded and provisioned; the new domain was added to DOMAIN.LST in sorted order.
  EXPECT_EQ(Files("LOCAL", ".EML").size(), 2u);
  EXPECT_EQ(tree.Read("Users/u@Y.ORG.CONF"), "MODE=QUELLOR\r\n");
  EXPECT_EQ(tree.Read("DOMAIN.LST"), "a.org\r\nnew.org\r\ny.org\r\n");
  // The new domain is listed by the time its user is provisioned.
  EXPECT_EQ(tree.Read("Users/w@new.org.CONF"), "MODE=QUELLOR\r\n");
  WindowModel& w = tree.ctx.window;
  EXPECT_EQ(w.domainlist.items(), (std::vector<std::string>{"y.org:1", "new.org:1"}));
  EXPECT_EQ(w.outlist.items(), (std::vector<std::string>{"a.org:2"}));

  // The next message to that user is handled in the template's mode; the waiting area takes
  // the name in the letter case of this envelope.
  Queue("20261116090000002", "b@b.org", {"U@y.org"});
  RunPass();
  EXPECT_TRUE(tree.Exists("WAIT/U@y.org/20261116090000002.EML"));
  EXPECT_EQ(w.domainlist.items(), (std::vector<std::string>{"y.org:2", "new.org:1"}));
}

TEST_F(PassTest, MailboxNamesThatCouldLeaveTheirFolderAreNeverUsedAsPaths) {
  tree.ctx.settings.users_auto = "YES";
  // Every domain of those names is local, so only the names themselves stop provisioning.
  tree.WriteLines("DOMAIN.LST", {".", "..", "y.org"});
  tree.Write("SYSTEM/NEW_USER.CONF", "MODE=QUELLOR\r\n");
  const std::vector<std::string> aliases = {"..", ".", "../../x@y.org",
                                            std::string("a\0@y.org", 9)};
  for (size_t i = 0; i < aliases.size(); ++i) {
    const std::string address = "al" + std::to_string(i) + "@y.org";
    tree.WriteLines("Users/" + address + ".ALS", {aliases[i]});
    Queue("2026111609000000" + std::to_string(i), "a@x.org", {address});
  }
  const auto users_before = tree.List("Users");
  RunPass();

  // Forwarded as unconfigured users, with nothing created for those names anywhere.
  EXPECT_EQ(Files("LOCAL", ".EML").size(), aliases.size());
  EXPECT_EQ(tree.List("Users"), users_before);
  EXPECT_TRUE(tree.List("WAIT").empty());
  EXPECT_FALSE(std::filesystem::exists(tree.Path("../x@y.org.CONF")));
  EXPECT_EQ(Errors(), "");
}

TEST_F(PassTest, AForeignIdentifierNamesTheHeldSenderTheThrottleReadLast) {
  tree.Write("Users/u@y.org.CONF", "MODE=QUELLOR\r\n");
  // Held for v@y.org's mailbox but addressed to another recipient: a foreign identifier.
  Hold("v@y.org", "20261115090000009", "h@q.org", "w@y.org", "Old");
  Queue("20261116090000001", "a@x.org", {"u@y.org"});
  Queue("20261116090000002", "r@z.org", {"v@y.org"}, "Re: Request-ID:20261115090000009");
  RunPass();
  EXPECT_EQ(tree.ctx.window.invalid.text(), "1");
  // The throttle read a@x.org's held envelope last; the named envelope's sender is not used.
  EXPECT_EQ(CountLines(RetryLog(),
                       "$$Invalid Val - Wait id:20261115090000009|Val from: r@z.org-Wait from: "
                       "a@x.org\r\n"),
            1);
}

TEST_F(PassTest, AfterAReplyThePassHoldsNothingMoreButStillSendsRequests) {
  tree.Write("Users/u@y.org.CONF", "MODE=QUELLOR\r\n");
  // A reply naming no held message, then an ordinary message, both from unknown senders.
  Queue("20261116090000001", "r@x.org", {"u@y.org"}, "Re: Rq:Hi // Request-ID:123");
  Queue("20261116090000002", "a@x.org", {"u@y.org"});
  RunPass();

  // Neither is written into the waiting area (the reply flag stays set for the whole pass),
  // yet each sender gets a request naming the message's own identifier.
  EXPECT_TRUE(Files("WAIT/u@y.org", ".EML").empty());
  EXPECT_EQ(Files("OUT", ".EML").size(), 2u);
  EXPECT_EQ(CountLines(ActivityLog(), "wait for validation"), 0);
  EXPECT_EQ(tree.ctx.window.Ignore.text(), "2");

  // The next pass starts with the flag cleared.
  Queue("20261116090000003", "b@x.org", {"u@y.org"});
  RunPass();
  EXPECT_TRUE(tree.Exists("WAIT/u@y.org/20261116090000003.EML"));
}

TEST_F(PassTest, ABounceFromAPostmasterPurgesTheHeldPairAndIsConsumed) {
  tree.Write("Users/u@y.org.CONF", "MODE=QUELLOR\r\n");
  tree.ctx.window.List1.Add(" postmaster@x.org ");
  Hold("u@y.org", "2026111609000000", "a@x.org", "u@y.org", "Hi");
  Queue("20261116090000001", "postmaster@x.org", {"u@y.org", "v@y.org"},
        "Undeliverable: Rq:Hi // Request-ID:2026111609000000");
  RunPass();

  EXPECT_TRUE(Files("WAIT/u@y.org", ".EML").empty());
  EXPECT_TRUE(tree.List("LOCAL").empty());
  EXPECT_TRUE(tree.List("OUT").empty());
  EXPECT_TRUE(tree.List("IN").empty());
  EXPECT_EQ(ActivityLog(),
            "10:00:00 Deleted - <postmaster@x.org> to <u@y.org> - sender bounces validation\r\n");
  EXPECT_EQ(tree.ctx.window.purged.text(), "1");
}

}  // namespace
}  // namespace quellor::testing
