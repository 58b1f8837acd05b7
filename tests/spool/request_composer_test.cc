// Validation requests over the golden cases of tests/data/composer: each `<case>.in` sets up
// templates and the pass's values, then composes; `<case>.ref` holds the pairs left in OUT/ and
// every other file changed. Directives: "@value <name> <text>" (request_address, sender,
// recipient, subject, wait_id, user; the text is unescaped like a "=~" file), "@compose".

#include <gtest/gtest.h>

#include <map>
#include <string>

#include "platform/names.h"
#include "spool/pass_run.h"
#include "spool/stages.h"
#include "support/scenario.h"

namespace quellor::testing {
namespace {

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
