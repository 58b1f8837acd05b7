// The delivery service: which pairs it hands to Postfix, what it hands over, and that a pair
// leaves the spool only once Postfix took it.
#include "bridge/dregger.h"

#include <gtest/gtest.h>

#include "bridge/outgoing.h"
#include "bridge/units.h"
#include "support/process.h"
#include "support/temp_tree.h"

namespace quellor::bridge {
namespace {

using testing::TempTree;
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

class DreggerTest : public ::testing::Test {
 protected:
  TempTree tree;
  FakePostfix postfix;
  Strings log;
  Dregger dregger{{tree.root(), "MAILER-DAEMON@mx.example", "mx.example"},
                  postfix,
                  [this](const std::string& line) { log.push_back(line); }};
};

TEST_F(DreggerTest, CompletePairsLeaveOldestFirstAndHalvesWait) {
  tree.Write("LOCAL/2.WAI", "a@x\r\nu@l\r\n");
  tree.Write("LOCAL/2.EML", "Return-Path: <a@x>\r\nSubject: two\r\n\r\nB\r\n");
  tree.Write("LOCAL/1.wai", "MAILER-DAEMON@mx.example\r\nu@l\r\nHeld subject\r\n");
  tree.Write("LOCAL/1.eml", "Subject: one\r\n\r\nFrom me\r\n");
  tree.Write("LOCAL/3.WAI", "a@x\r\nu@l\r\n");
  tree.Write("LOCAL/3.TMP", "being written");
  tree.Write("LOCAL/4.EML", "no envelope yet");
  EXPECT_EQ(dregger.RunOnce(1000), 2);
  EXPECT_EQ(postfix.taken,
            (Strings{" -> u@l\nSubject: one\n\nFrom me\n", "a@x -> u@l\nSubject: two\n\nB\n"}));
  EXPECT_EQ(tree.List("LOCAL"), (Strings{"3.TMP", "3.WAI", "4.EML"}));
}

TEST_F(DreggerTest, ARefusedPairStaysAndIsTriedAgainLater) {
  tree.Write("LOCAL/1.WAI", "a@x\r\nu@l\r\n");
  tree.Write("LOCAL/1.EML", "Subject: one\r\n\r\n");
  postfix.refuse = true;
  EXPECT_EQ(dregger.RunOnce(1000), 0);
  EXPECT_EQ(tree.List("LOCAL").size(), 2u);
  EXPECT_EQ(log, Strings{"LOCAL/1: sendmail exited with status 75; trying again in 30 s"});
  EXPECT_EQ(dregger.SecondsToNextRetry(1010), 20);
  postfix.refuse = false;
  EXPECT_EQ(dregger.RunOnce(1010), 0);  // not due yet
  EXPECT_EQ(dregger.RunOnce(1030), 1);
  EXPECT_TRUE(tree.List("LOCAL").empty());
  EXPECT_EQ(dregger.SecondsToNextRetry(1030), -1);
}

TEST_F(DreggerTest, RequestsLeaveAsValidMail) {
  tree.Write("OUT/20261116100000123.WAI", "u@l\r\na@x\r\n");
  tree.Write("OUT/20261116100000123.EML",
             "From: u@l\r\nTo: a@x\r\nSubject: Rq:Gr\xfc\xdf"
             "e aus Z\xfcrich // Request-ID:2026111609000012\r\nX-Priority: 3\r\n\r\n"
             "Body\r\n.\r\n");
  tree.Write("OUT/20261116100000124.WAI", "u@l\r\nMAILER-DAEMON@mx.example\r\n");
  tree.Write("OUT/20261116100000124.EML", "Subject: Rq: // Request-ID:1\r\n\r\n.\r\n");
  EXPECT_EQ(dregger.RunOnce(1000), 2);
  EXPECT_EQ(postfix.taken,
            Strings{"u@l -> a@x\nFrom: u@l\nTo: a@x\n"
                    "Subject: =?windows-1252?Q?Rq=3AGr=FC=DFe_aus_Z=FCrich?= // "
                    "Request-ID:2026111609000012\nX-Priority: 3\n"
                    "Message-ID: <quellor.2026111609000012.20261116100000123@mx.example>\n"
                    "Auto-Submitted: auto-replied\n\nBody\n"});
  EXPECT_EQ(log, Strings{"OUT/20261116100000124: request to the null sender "
                         "(MAILER-DAEMON@mx.example) dropped"});
  EXPECT_TRUE(tree.List("OUT").empty());
}

TEST(OutgoingTest, LongEightBitTextIsFoldedIntoSeveralWords) {
  const std::string encoded = EncodeEightBitWords("a " + std::string(80, '\xe9') + " b");
  EXPECT_TRUE(encoded.starts_with("a =?windows-1252?Q?=E9")) << encoded;
  EXPECT_TRUE(encoded.ends_with("?= b")) << encoded;
  size_t at = 0;
  for (size_t end; (end = encoded.find("\r\n", at)) != std::string::npos; at = end + 3)
    EXPECT_LE(end - at, 78u);
  EXPECT_EQ(EncodeEightBitWords("plain"), "plain");
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
