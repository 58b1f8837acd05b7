// quellor-receive's pair writing: what lands in IN/, in which order of names, and the exit
// status Postfix acts on when a step fails.
#include "bridge/receive.h"

#include <gtest/gtest.h>

#include <cerrno>

#include "bridge/in_pair.h"
#include "platform/fs.h"
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

}  // namespace
}  // namespace quellor::bridge
