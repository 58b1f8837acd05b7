// The Postfix bridge: quellor-receive writing pairs into IN/, and the delivery service handing
// the pairs of LOCAL/ and OUT/ to Postfix (a pair leaves the spool only once Postfix took it).
#include <gtest/gtest.h>

#include <cerrno>

#include "bridge/dregger.h"
#include "bridge/in_pair.h"
#include "bridge/outgoing.h"
#include "bridge/receive.h"
#include "bridge/units.h"
#include "platform/fs.h"
#include "support/process.h"
#include "support/scenario.h"
#include "support/table.h"
#include "support/temp_tree.h"

namespace quellor::bridge {
namespace {

using testing::TempTree;

constexpr const char* kNull = "MAILER-DAEMON@mx.example";
const std::string kIn = "IN/20261116090000000001";

class ReceiveTest : public ::testing::Test {
 protected:
  int Run(std::string_view sender, std::string_view message, std::string* error = nullptr) {
    std::string ignored;
    return Receive({tree.Path("IN/"), kNull}, sender, "u@local.example", message,
                   "20261116090000000001", error ? error : &ignored);
  }
  TempTree tree;
};

TEST_F(ReceiveTest, WritesThePairWithCrLfAndAReturnPathLine) {
  ASSERT_EQ(Run("a@remote.example", "From: a\nSubject: Hi\n\nBody\r\nFrom here\n"), 0);
  EXPECT_EQ(tree.List("IN"),
            (std::vector<std::string>{kIn.substr(3) + ".EML", kIn.substr(3) + ".WAI"}));
  EXPECT_EQ(tree.Read(kIn + ".WAI"), "a@remote.example\r\nu@local.example\r\n");
  EXPECT_EQ(
      tree.Read(kIn + ".EML"),
      "Return-Path: <a@remote.example>\r\nFrom: a\r\nSubject: Hi\r\n\r\nBody\r\nFrom here\r\n");
  // The null sender in its three spellings becomes the postmaster address.
  for (const char* sender : {"", "<>", "MAILER-DAEMON"}) {
    tree.Remove(kIn + ".WAI");
    tree.Remove(kIn + ".EML");
    ASSERT_EQ(Run(sender, "Subject: x\n\n"), 0);
    EXPECT_EQ(tree.Read(kIn + ".WAI"), std::string(kNull) + "\r\nu@local.example\r\n");
    EXPECT_EQ(tree.Read(kIn + ".EML"), "Return-Path: <>\r\nSubject: x\r\n\r\n");
  }
  // Taken stems are skipped in order: a lone envelope or a file being written takes one.
  tree.Remove(kIn + ".EML");
  tree.Write("IN/20261116090000000002.TMP", "x");
  ASSERT_EQ(Run("a@remote.example", "Subject: x\n\n"), 0);
  EXPECT_TRUE(tree.Exists("IN/20261116090000000003.EML"));
  EXPECT_EQ(NextStem("20261116095959999999"), "20261116095960000000");
  EXPECT_EQ(StemAt({1795446621, 280046237}), "20261123151021280046");
}

// An unusable envelope, and each failing step, leave nothing behind and ask for a retry.
TEST_F(ReceiveTest, AFailingStepLeavesNothingAndAsksForARetry) {
  std::string error;
  EXPECT_EQ(Run("a@x\r\nb@y", "Subject: x\n\n", &error), kExitTryAgain);
  EXPECT_NE(error.find("unusable envelope"), std::string::npos);
  const struct {
    FsOp op;
    std::string path_part;
    int err;
  } cases[] = {
      {FsOp::kOpen, ".WAI", EACCES}, {FsOp::kWrite, "", ENOSPC}, {FsOp::kOpen, ".TMP", EMFILE},
      {FsOp::kSync, "", EIO},        {FsOp::kRename, "", EXDEV},
  };
  for (const auto& c : cases) {
    FaultyFileSystem faulty;
    faulty.FailAlways(c.op, c.err, c.path_part);
    ScopedFileSystem scoped(&faulty);
    error.clear();
    EXPECT_EQ(Run("a@remote.example", "Subject: x\n\nBody\n", &error), kExitTryAgain) << error;
    EXPECT_FALSE(error.empty());
    EXPECT_TRUE(tree.List("IN").empty()) << error;
  }
}

TEST(BounceScanTest, ReturnedRequestsGetTheIdentifierIntoTheirSubject) {
  testing::CheckTable("bounce_scan",
                      [](const auto& f) { return InMessage(f[0], f[1] == "1", f[2]); });
}

using Strings = std::vector<std::string>;

// Takes every submission as "<sender> -> <recipient>\n<message>", or refuses them all.
class FakePostfix : public Submitter {
 public:
  bool Submit(const std::string& sender, const std::string& recipient, const std::string& message,
              std::string* error) override {
    if (refuse) *error = "sendmail exited with status 75";
    if (!refuse) taken.push_back(sender + " -> " + recipient + "\n" + message);
    return !refuse;
  }
  bool refuse = false;
  Strings taken;
};

// The delivery service over the golden cases of tests/data/dregger: each `<case>.in` fills the
// spool and runs rounds, `<case>.ref` holds the files changed, what Postfix took and the log.
// Directives: "@run <now>" (one round at that time, then the seconds to the next retry),
// "@refuse on|off" (Postfix refuses every submission, or takes them again).
class DreggerScenario : public ::testing::TestWithParam<std::string> {};

TEST_P(DreggerScenario, MatchesReference) {
  const std::string base = QUELLOR_SOURCE_DIR "/tests/data/dregger/" + GetParam();
  TempTree tree;
  FakePostfix postfix;
  std::string out;
  Dregger dregger{{tree.root(), kNull, "mx.example"}, postfix, [&](const std::string& line) {
                    out += "log: " + line + "\n";
                  }};
  testing::Scenario scenario(tree);
  scenario.On("refuse", [&](TempTree&, const Strings& w) { postfix.refuse = w.at(1) == "on"; });
  scenario.On("run", [&](TempTree&, const Strings& w) {
    const int handed = dregger.RunOnce(std::stol(w.at(1)));
    for (const std::string& taken : postfix.taken) out += "took " + testing::Escape(taken);
    postfix.taken.clear();
    out += "run at " + w[1] + ": " + std::to_string(handed) + " handed over, next retry in " +
           std::to_string(dregger.SecondsToNextRetry(std::stol(w[1]))) + "\n";
  });
  const std::string changes = scenario.Run(base + ".in");
  testing::Scenario::Check(base + ".ref", changes + "@dregger\n" + out);
}

INSTANTIATE_TEST_SUITE_P(Cases, DreggerScenario,
                         ::testing::ValuesIn(testing::Scenario::Cases("dregger")),
                         testing::ScenarioName);

TEST(OutgoingTest, LongEightBitTextIsFoldedIntoSeveralWords) {
  testing::CheckTable("eight_bit_words", [](const auto& f) { return EncodeEightBitWords(f[0]); });
}

// The unit that quellorctl writes and the Debian package ships: the filter's confinement, with
// the group and folders Postfix's sendmail needs and no private user namespace hiding that group.
TEST(UnitsTest, TheDeliveryServiceUnit) {
  testing::CheckGolden(
      "bridge/dregger.service",
      DreggerUnitText({"/var/spool/quellor/", "/usr/sbin/quellor-dregger",
                       "MAILER-DAEMON@mx.example", "mx.example", "/etc/postfix 2"}));
}

}  // namespace
}  // namespace quellor::bridge
