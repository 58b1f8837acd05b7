// quellor-receive's pair writing: what lands in IN/, in which order of names, and the exit
// status Postfix acts on when a step fails.
#include "bridge/receive.h"

#include <gtest/gtest.h>

#include <cerrno>

#include "bridge/bounce_scan.h"
#include "bridge/in_pair.h"
#include "platform/fs.h"
#include "support/temp_tree.h"

namespace quellor::bridge {
namespace {

using testing::TempTree;

constexpr const char* kNull = "MAILER-DAEMON@mx.example";
constexpr const char* kStem = "20261116090000000001";

class ReceiveTest : public ::testing::Test {
 protected:
  int Run(std::string_view sender, std::string_view message, std::string* error = nullptr,
          const std::string& stem = kStem) {
    std::string ignored;
    return Receive({tree.Path("IN/"), kNull}, sender, "u@local.example", message, stem,
                   error ? error : &ignored);
  }
  TempTree tree;
};

TEST_F(ReceiveTest, WritesThePairWithCrLfAndAReturnPathLine) {
  ASSERT_EQ(Run("a@remote.example", "From: a\nSubject: Hi\n\nBody\r\nFrom here\n"), 0);
  EXPECT_EQ(tree.List("IN"),
            (std::vector<std::string>{std::string(kStem) + ".EML", std::string(kStem) + ".WAI"}));
  EXPECT_EQ(tree.Read(std::string("IN/") + kStem + ".WAI"),
            "a@remote.example\r\nu@local.example\r\n");
  EXPECT_EQ(tree.Read(std::string("IN/") + kStem + ".EML"),
            "Return-Path: <a@remote.example>\r\n"
            "From: a\r\nSubject: Hi\r\n\r\nBody\r\nFrom here\r\n");
}

TEST_F(ReceiveTest, TakenStemsAreSkippedInOrder) {
  tree.Write(std::string("IN/") + kStem + ".WAI", "x");
  tree.Write("IN/20261116090000000002.TMP", "x");
  ASSERT_EQ(Run("a@remote.example", "Subject: x\n\n"), 0);
  EXPECT_TRUE(tree.Exists("IN/20261116090000000003.EML"));
  EXPECT_EQ(NextStem("20261116095959999999"), "20261116095960000000");
  EXPECT_EQ(StemAt({1795446621, 280046237}), "20261123151021280046");
}

TEST_F(ReceiveTest, TheNullSenderBecomesThePostmasterAddress) {
  for (const char* sender : {"", "<>", "MAILER-DAEMON"}) {
    ASSERT_EQ(Run(sender, "Subject: x\n\n"), 0);
    EXPECT_EQ(tree.Read(std::string("IN/") + kStem + ".WAI"),
              std::string(kNull) + "\r\nu@local.example\r\n");
    EXPECT_TRUE(tree.Read(std::string("IN/") + kStem + ".EML").starts_with("Return-Path: <>\r\n"));
    tree.Remove(std::string("IN/") + kStem + ".WAI");
    tree.Remove(std::string("IN/") + kStem + ".EML");
  }
}

TEST_F(ReceiveTest, UnusableEnvelopesAreRefusedForLater) {
  std::string error;
  EXPECT_EQ(Run("a@x\r\nb@y", "Subject: x\n\n", &error), kExitTryAgain);
  EXPECT_NE(error.find("unusable envelope"), std::string::npos);
  EXPECT_TRUE(tree.List("IN").empty());
}

// Each failing step leaves nothing behind and asks Postfix to try again.
TEST_F(ReceiveTest, AFailingStepLeavesNothingAndAsksForARetry) {
  struct Case {
    FsOp op;
    std::string path_part;
    int err;
  } cases[] = {
      {FsOp::kOpen, ".WAI", EACCES}, {FsOp::kWrite, "", ENOSPC}, {FsOp::kOpen, ".TMP", EMFILE},
      {FsOp::kSync, "", EIO},        {FsOp::kRename, "", EXDEV},
  };
  for (const Case& c : cases) {
    FaultyFileSystem faulty;
    faulty.FailAlways(c.op, c.err, c.path_part);
    ScopedFileSystem scoped(&faulty);
    std::string error;
    EXPECT_EQ(Run("a@remote.example", "Subject: x\n\nBody\n", &error), kExitTryAgain) << error;
    EXPECT_FALSE(error.empty());
    EXPECT_TRUE(tree.List("IN").empty()) << error;
  }
}

// Returned requests in the formats of Postfix, Exim and Exchange carry the identifier into the
// subject; the bounce stage takes it from there.
TEST(BounceScanTest, ReturnedRequestsGetTheIdentifierIntoTheirSubject) {
  struct Case {
    const char* name;
    std::string message;
    std::string subject;  // the subject line of the IN/ message ("" when untouched)
  } cases[] = {
      {"postfix",
       "Subject: Undelivered Mail Returned to Sender\r\nContent-Type: multipart/report\r\n\r\n"
       "--b\r\nContent-Type: message/rfc822\r\n\r\nFrom: u@local.example\r\n"
       "Subject: Rq:Hello // Request-ID:2026111609000012\r\n\r\nbody\r\n",
       "Subject: Undelivered Mail Returned to Sender // Request-ID:2026111609000012"},
      {"exim",
       "Subject: Mail delivery failed: returning message to sender\r\n\r\n"
       "------ This is a copy of the message, including all the headers. ------\r\n"
       "Subject: Rq:Hi\r\n // Request-ID: 77\r\n",
       "Subject: Mail delivery failed: returning message to sender // Request-ID:77"},
      {"exchange, subject encoded",
       "Subject: Undeliverable\r\n\r\n--b\r\nContent-Type: text/rfc822-headers\r\n\r\n"
       "Subject: =?windows-1252?Q?Rq:Gr=FC=DFe?= // Request-ID:42\r\n",
       "Subject: Undeliverable // Request-ID:42"},
      {"headers without a subject",
       "Subject: failure\r\n\r\nMessage-ID: <quellor.31.2026111609@mx.example>\r\n",
       "Subject: failure // Request-ID:31"},
      {"no subject of its own", "From: MAILER-DAEMON\r\n\r\nSubject: Rq: // Request-ID:5\r\n",
       "Subject: Returned mail // Request-ID:5"},
      {"own subject names it", "Subject: Undeliverable: Rq:x // Request-ID:9\r\n\r\n", ""},
      {"ordinary bounce", "Subject: Undelivered Mail\r\n\r\nSubject: lunch\r\n", ""},
  };
  for (const Case& c : cases) {
    const std::string in = InMessage("", true, c.message);
    ASSERT_TRUE(in.starts_with("Return-Path: <>\r\n")) << c.name;
    const std::string rest = in.substr(17);
    if (c.subject.empty()) {
      EXPECT_EQ(rest, c.message) << c.name;
    } else {
      EXPECT_NE(rest.find(c.subject + "\r\n"), std::string::npos) << c.name << "\n" << rest;
      EXPECT_EQ(rest.size() - rest.find("\r\n\r\n"), c.message.size() - c.message.find("\r\n\r\n"))
          << c.name << ": the body is untouched";
    }
  }
  // Only mail from the null sender is looked at.
  const std::string reply = "Subject: Re\r\n\r\nSubject: Rq: // Request-ID:5\r\n";
  EXPECT_EQ(InMessage("a@x", false, reply), "Return-Path: <a@x>\r\n" + reply);
}

}  // namespace
}  // namespace quellor::bridge
