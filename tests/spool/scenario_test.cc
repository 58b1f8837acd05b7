// The processing pass over the golden cases of tests/data/spool: each `<case>.in` sets up an
// installation and runs passes; `<case>.ref` holds every file the passes changed or removed and
// the window's counters and lists afterwards.
//
// Directives: "@set <setting> <value>" (debug, log, postmasters, users_auto, domains_auto,
// safe_delivery), "@fail <open|unlink> <EACCES|ENOSPC> <path part>" (fails such calls until
// "@clear"), "@advance <seconds>" (the clock), "@remove <path>",
// "@postmaster <line>" (a line of the local postmasters list), "@purgedlist <n> <line>" (n
// lines already in the purged list), "@clock Y M D h m s" (the local
// time), "@pass" (take back deferred pairs, list IN/ as the scheduler does and run one pass; one
// runs at the end when the case has none).

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
#include "spool/input_pair.h"
#include "spool/pass.h"

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

// What the scheduler does: take back deferred pairs, list IN/, count it into `total`, run the pass.
void RunPass(TempTree& tree) {
  ForgetNameIndexes();
  ReturnDeferred(tree.ctx);
  WindowModel& w = tree.ctx.window;
  w.File1.Clear();
  for (const auto& name : ListFiles(tree.Path("IN"), "*.EML")) w.File1.Add(name);
  w.total.Set(std::to_string(w.File1.size()));
  if (w.total.Value() > 0) quellor(tree.ctx);
  ForgetNameIndexes();
}

class SpoolScenario : public ::testing::TestWithParam<std::string> {};

TEST_P(SpoolScenario, MatchesReference) {
  const std::string base = std::string(QUELLOR_SOURCE_DIR) + "/tests/data/spool/" + GetParam();
  TempTree tree;
  tree.ctx.settings.postmasters = "";
  FakeTimeFileSystem fake_time(tree.clock);
  ScopedFileSystem seam(&fake_time);

  Scenario scenario(tree);
  scenario.On("fail", [&](TempTree&, const std::vector<std::string>& w) {
    const std::map<std::string, FsOp> ops = {{"open", FsOp::kOpen}, {"unlink", FsOp::kUnlink}};
    const std::map<std::string, int> errors = {{"EACCES", EACCES}, {"ENOSPC", ENOSPC}};
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
  scenario.On("pass", [&](TempTree& t, const std::vector<std::string>&) {
    RunPass(t);
    passed = true;
  });
  std::string result = scenario.Run(base + ".in");
  if (!passed) {
    RunPass(tree);
    result = scenario.Changes();
  }
  Scenario::Check(base + ".ref", result + "@window\n" + WindowText(tree.ctx.window));
}

INSTANTIATE_TEST_SUITE_P(Cases, SpoolScenario, ::testing::ValuesIn(Scenario::Cases("spool")),
                         ScenarioName);

}  // namespace
}  // namespace quellor::testing
