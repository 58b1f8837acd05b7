// The processing pass over the golden cases of tests/data/spool: each `<case>.in` sets up an
// installation and runs passes; `<case>.ref` holds every file the passes changed or removed and
// the window's counters and lists afterwards.
//
// Directives: "@set <setting> <value>" (debug, log, postmasters, users_auto, domains_auto,
// safe_delivery), "@fail <open|unlink|rename> <EACCES|ENOSPC|EIO> <path part>" (fails such calls
// until "@clear"), "@advance <seconds>" (the clock), "@remove <path>",
// "@postmaster <line>" (a line of the local postmasters list), "@purgedlist <n> <line>" (n
// lines already in the purged list), "@clock Y M D h m s" (the local
// time), "@pass" (take back deferred pairs, list IN/ as the scheduler does and run one pass; one
// runs at the end when the case has none). A pass that throws, and a line the pass could write
// to no log, are noted after the window.

#include "support/scenario.h"

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <cerrno>
#include <chrono>
#include <ctime>
#include <map>
#include <string>

#include "platform/fs.h"
#include "platform/names.h"
#include "platform/text.h"
#include "spool/pass_run.h"
#include "spool/stages.h"
#include "support/passes.h"
#include "support/table.h"

namespace quellor::testing {
namespace {

// Shows regular files as last modified at the fake clock's time (minus their real age), so the
// request throttle's "written today" test follows the test's clock; fails calls on request.
class FakeTimeFileSystem : public FaultyFileSystem {
 public:
  explicit FakeTimeFileSystem(const FakeClock& clock) : clock_(clock) {}
  int Stat(const std::string& path, struct stat* st) override {
    const int r = FaultyFileSystem::Stat(path, st);
    if (r == 0 && S_ISREG(st->st_mode)) st->st_mtime += clock_.Now() - std::time(nullptr);
    return r;
  }

 private:
  const FakeClock& clock_;
};

class SpoolScenario : public ::testing::TestWithParam<std::string> {};

TEST_P(SpoolScenario, MatchesReference) {
  const std::string base = std::string(QUELLOR_SOURCE_DIR) + "/tests/data/spool/" + GetParam();
  TempTree tree;
  tree.ctx.settings.postmasters = "";
  FakeTimeFileSystem fake_time(tree.clock);
  ScopedFileSystem seam(&fake_time);
  std::string notes;
  tree.ctx.journal = [&](const std::string& line) { notes += "journal: " + line + "\n"; };

  Scenario scenario(tree);
  scenario.On("fail", [&](TempTree&, const std::vector<std::string>& w) {
    const std::map<std::string, FsOp> ops = {
        {"open", FsOp::kOpen}, {"unlink", FsOp::kUnlink}, {"rename", FsOp::kRename}};
    const std::map<std::string, int> errors = {
        {"EACCES", EACCES}, {"ENOSPC", ENOSPC}, {"EIO", EIO}};
    fake_time.FailAlways(ops.at(w.at(1)), errors.at(w.at(2)), w.at(3));
  });
  scenario.On("clear", [&](TempTree&, const std::vector<std::string>&) { fake_time.Clear(); });
  scenario.On("advance", [](TempTree& t, const std::vector<std::string>& w) {
    t.clock.Advance(std::chrono::seconds(std::stoi(w.at(1))));
  });
  scenario.On("remove", [](TempTree& t, const std::vector<std::string>& w) { t.Remove(w.at(1)); });
  bool passed = false;
  scenario.On("set", [](TempTree& t, const std::vector<std::string>& w) {
    Settings& s = t.ctx.settings;
    const std::map<std::string, std::string*> settings = {{"debug", &s.debug},
                                                          {"log", &s.log},
                                                          {"postmasters", &s.postmasters},
                                                          {"users_auto", &s.users_auto},
                                                          {"domains_auto", &s.domains_auto},
                                                          {"safe_delivery", &s.safe_delivery}};
    ASSERT_TRUE(settings.count(w.at(1))) << w[1];
    *settings.at(w[1]) = w.at(2);
  });
  scenario.On("postmaster", [](TempTree& t, const std::vector<std::string>& w) {
    t.ctx.window.List1.Add(w.at(1));
  });
  scenario.On("purgedlist", [](TempTree& t, const std::vector<std::string>& w) {
    for (int i = std::stoi(w.at(1)); i > 0; --i) t.ctx.window.purgedlist.Add(w.at(2));
  });
  scenario.On("clock", [](TempTree& t, const std::vector<std::string>& w) {
    t.clock.SetLocal(std::stoi(w.at(1)), std::stoi(w.at(2)), std::stoi(w.at(3)), std::stoi(w.at(4)),
                     std::stoi(w.at(5)), std::stoi(w.at(6)));
  });
  const auto pass = [&] {
    try {
      TimerPass(tree.ctx);
    } catch (const std::exception& e) {
      notes += std::string("the pass threw: ") + e.what() + "\n";
    }
    passed = true;
  };
  scenario.On("pass", [&](TempTree&, const std::vector<std::string>&) { pass(); });
  std::string result = scenario.Run(base + ".in");
  if (!passed) {
    pass();
    result = scenario.Changes();
  }
  Scenario::Check(base + ".ref", result + "@window\n" + WindowText(tree.ctx.window) +
                                     ReplaceAll(notes, tree.root(), "$ROOT/"));
}

INSTANTIATE_TEST_SUITE_P(Cases, SpoolScenario, ::testing::ValuesIn(Scenario::Cases("spool")),
                         ScenarioName);

// CHALLENGE_FILTER=ON (exactly): robot mail is held like any other but gets no request. Fields:
// sender, header lines, the switch.
TEST(ChallengeFilter, HoldsRobotMailWithoutARequest) {
  CheckTable("challenge_filter", [](const auto& f) {
    TempTree tree;
    tree.ctx.settings.challenge_filter = f[2];
    tree.ctx.window.List1.Add("pm@y.net");
    tree.WriteLines("Users/u@x.org.CONF", {"MODE=QUELLOR"});
    tree.Write("IN/20261116090000001.EML",
               "From: " + f[0] + "\r\nSubject: Hi\r\n" + f[1] + "\r\nBody\r\n");
    tree.WriteLines("IN/20261116090000001.WAI", {f[0], "u@x.org"});
    TimerPass(tree.ctx);
    return std::string(tree.Exists("WAIT/u@x.org/20261116090000001.EML") ? "held" : "lost") +
           ", ignored " + tree.ctx.window.Ignore.text() + ", " +
           std::to_string(tree.List("OUT").size()) + " files in OUT/\n" +
           tree.Read("LOG/16-11-2026.log");
  });
}

// Validation requests over the golden cases of tests/data/composer: each `<case>.in` sets up
// templates and the pass's values, then composes; `<case>.ref` holds the pairs left in OUT/ and
// every other file changed. Directives: "@value <name> <text>" (request_address, sender,
// recipient, subject, wait_id, user; the text is unescaped like a "=~" file), "@compose".
class ComposerScenario : public ::testing::TestWithParam<std::string> {};

TEST_P(ComposerScenario, MatchesReference) {
  const std::string base = std::string(QUELLOR_SOURCE_DIR) + "/tests/data/composer/" + GetParam();
  TempTree tree;
  PassRun p(tree.ctx);
  p.s.request_address = p.s.recipient = p.s.user = "bob@example.org";
  p.s.sender = "alice@remote.net";
  p.s.subject = "Hello";
  p.s.wait_id = "20261116095500412";

  Scenario scenario(tree);
  const std::map<std::string, std::string*> values = {{"request_address", &p.s.request_address},
                                                      {"sender", &p.s.sender},
                                                      {"recipient", &p.s.recipient},
                                                      {"subject", &p.s.subject},
                                                      {"wait_id", &p.s.wait_id},
                                                      {"user", &p.s.user}};
  scenario.On("value", [&](TempTree&, const std::vector<std::string>& w) {
    ASSERT_TRUE(values.count(w.at(1))) << w[1];
    *values.at(w[1]) = Unescape(w.size() > 2 ? w[2] : "");
  });
  scenario.On("compose", [&](TempTree&, const std::vector<std::string>&) {
    ForgetNameIndexes();
    ComposeRequest(p);
  });
  Scenario::Check(base + ".ref", scenario.Run(base + ".in"));
}

INSTANTIATE_TEST_SUITE_P(Cases, ComposerScenario, ::testing::ValuesIn(Scenario::Cases("composer")),
                         ScenarioName);

}  // namespace
}  // namespace quellor::testing
