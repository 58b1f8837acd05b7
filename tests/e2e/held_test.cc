// quellorctl held, release and drop on temporary trees: a release does what a validation reply
// does, a drop what a bounce of the request does, refusals touch nothing, and neither runs in
// the middle of a pass.
#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <filesystem>
#include <string>
#include <thread>
#include <vector>

#include "e2e/ctl.h"
#include "platform/tree_lock.h"

namespace quellor::testing {
namespace {

// A protected user with four messages held: two from a@y.net, one each from b@z.net, c@w.net.
void HoldFour(const TempTree& tree) {
  ASSERT_EQ(Ctl(tree, tree.root(), "init").status, 0);
  tree.WriteLines("quellor.ini", {"POSTMASTERS=pm@y.net"});
  tree.WriteLines("Users/prot@x.org.CONF", {"MODE=QUELLOR"});
  Drop(tree, "20261116100000101", "a@y.net", "prot@x.org", "One");
  Drop(tree, "20261116100000102", "b@z.net", "prot@x.org", "Two");
  Drop(tree, "20261116100000103", "a@y.net", "prot@x.org", "Three");
  Drop(tree, "20261116100000104", "c@w.net", "prot@x.org", "=?utf-8?q?F=C3=BCnf?=");
  ASSERT_EQ(Ctl(tree, tree.root(), "pass --all --no-pause").status, 0);
}

// The contents of the files of a folder, sorted (names in LOCAL/ are random).
std::vector<std::string> Contents(const TempTree& tree, const std::string& folder) {
  std::vector<std::string> out;
  for (const std::string& name : tree.List(folder)) out.push_back(tree.Read(folder + "/" + name));
  std::sort(out.begin(), out.end());
  return out;
}

TEST(CtlHeld, ListsNewestFirstAndReleaseAndDropDoWhatAReplyAndABounceDo) {
  TempTree by_hand;
  TempTree by_mail;
  HoldFour(by_hand);
  HoldFour(by_mail);

  CtlResult json = Ctl(by_hand, by_hand.root(), "held --json");
  ASSERT_EQ(json.status, 0) << json.err;
  const size_t date = json.out.find("\"date\":\"") + 8;
  EXPECT_TRUE(HasShape(json.out.substr(date, 19), "99/99/9999 99:99:99")) << json.out;
  EXPECT_TRUE(json.out.starts_with(
      "[{\"user\":\"prot@x.org\",\"id\":\"20261116100000104\",\"date\":\"" +
      json.out.substr(date, 19) + "\",\"sender\":\"c@w.net\",\"subject\":\"F\u00fcnf\",\"size\":" +
      std::to_string(by_hand.Read("WAIT/prot@x.org/20261116100000104.EML").size()) + "}"))
      << json.out;
  const std::string table = Ctl(by_hand, by_hand.root(), "held PROT@x.org").out;
  EXPECT_LT(table.find("HELD SINCE"), table.find("20261116100000101  ")) << table;
  EXPECT_LT(table.find("20261116100000104  "), table.find("20261116100000101  ")) << table;

  CtlResult release = Ctl(by_hand, by_hand.root(), "release prot@x.org 20261116100000101");
  EXPECT_EQ(release.status, 0) << release.err;
  EXPECT_EQ(release.out,
            "released 2 message(s) from <a@y.net> to <prot@x.org> into LOCAL/; <a@y.net> is "
            "white-listed\n");
  CtlResult drop = Ctl(by_hand, by_hand.root(), "drop prot@x.org 20261116100000102");
  EXPECT_EQ(drop.status, 0) << drop.err;
  EXPECT_EQ(drop.out, "dropped 20261116100000102 from <b@z.net> to <prot@x.org>\n");

  // The same by mail: someone replies to the request of 101, a postmaster bounces that of 102.
  Drop(by_mail, "20261116110000001", "someone@v.net", "prot@x.org",
       "Re: One // Request-ID:20261116100000101");
  Drop(by_mail, "20261116110000002", "pm@y.net", "prot@x.org",
       "Undelivered: Two // Request-ID:20261116100000102");
  ASSERT_EQ(Ctl(by_mail, by_mail.root(), "pass --no-pause").status, 0);

  for (const char* folder : {"LOCAL", "WAIT/prot@x.org", "Users", "IN"}) {
    EXPECT_EQ(Contents(by_hand, folder), Contents(by_mail, folder)) << folder;
  }
  EXPECT_EQ(
      by_hand.List("WAIT/prot@x.org"),
      (std::vector<std::string>{"20261116100000104.EML", "20261116100000104.WAI", "stats.log"}));
  EXPECT_EQ(DayLogLines(by_hand, "LOG/quellor", ".iwr", "  "),
            DayLogLines(by_mail, "LOG/quellor", ".iwr", "  "));
  // The same lines as the reply's, after one that names the administrator.
  std::vector<std::string> hand = DayLogLines(by_hand, "LOG", ".log", " ");
  std::vector<std::string> mail = DayLogLines(by_mail, "LOG", ".log", " ");
  ASSERT_EQ(hand.size(), 8u);
  ASSERT_EQ(mail.size(), 7u);
  EXPECT_EQ(hand[4],
            "Released - <a@y.net> to <prot@x.org> - by the administrator (20261116100000101)");
  EXPECT_EQ(std::vector(hand.begin() + 5, hand.end() - 1),
            std::vector(mail.begin() + 4, mail.end() - 1));
  EXPECT_EQ(hand.back(), "Deleted - <b@z.net> to <prot@x.org> - dropped by the administrator");
  EXPECT_FALSE(by_hand.Exists("LOG/system.log")) << by_hand.Read("LOG/system.log");
}

TEST(CtlHeld, RefusesUnknownAndUnsafeNamesAndTouchesNothing) {
  TempTree tree;
  HoldFour(tree);
  // A held pair outside the tree, reachable only through a symlink or "..".
  tree.Write("outside/1.WAI", "a@y.net\r\nprot@x.org\r\n");
  tree.Write("outside/1.EML", "x");
  std::filesystem::create_directory_symlink(tree.Path("outside"), tree.Path("WAIT/link"));
  struct Case {
    const char* args;
    const char* error;
  };
  const Case cases[] = {
      {"release nobody@x.org 20261116100000101", "unknown user nobody@x.org"},
      {"drop prot@x.org 20261116100000999",
       "user prot@x.org has no held message 20261116100000999"},
      {"release prot@x.org stats", "has no held message stats"},
      {"release link 1", "unknown user link"},
      {"release ../outside 1", "refused user name"},
      {"drop prot@x.org ../../outside/1", "refused identifier"},
      {"release prot@x.org \"$(printf '1\\033[2J')\"", "refused identifier"},
      {"held nobody@x.org", "unknown user nobody@x.org"},
  };
  const std::vector<std::string> before = tree.List("WAIT/prot@x.org");
  for (const Case& c : cases) {
    CtlResult r = Ctl(tree, tree.root(), c.args);
    EXPECT_EQ(r.status, 1) << c.args;
    EXPECT_NE(r.err.find(c.error), std::string::npos) << c.args << ": " << r.err;
  }
  EXPECT_EQ(tree.List("WAIT/prot@x.org"), before);
  EXPECT_TRUE(tree.Exists("outside/1.WAI") && tree.Exists("outside/1.EML"));
  EXPECT_TRUE(tree.List("LOCAL").empty());
  EXPECT_EQ(Ctl(tree, tree.root(), "release prot@x.org").status, 2);
}

TEST(CtlHeld, AReleaseWaitsForTheRunningPass) {
  TempTree tree;
  HoldFour(tree);
  // This test holds the lock as a pass of the service would.
  auto pass = std::make_unique<TreeLock>(tree.root());
  ASSERT_TRUE(pass->held()) << pass->error();
  CtlResult release;
  std::thread admin(
      [&] { release = Ctl(tree, tree.root(), "release prot@x.org 20261116100000104"); });
  const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(60);
  while (tree.Read("ctl.err").find("waiting for the pass") == std::string::npos &&
         std::chrono::steady_clock::now() < deadline) {
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
  }
  // Told to wait, it has touched nothing yet.
  EXPECT_NE(tree.Read("ctl.err").find("waiting for the pass that is running on"),
            std::string::npos);
  EXPECT_TRUE(tree.List("LOCAL").empty());
  pass.reset();
  admin.join();
  EXPECT_EQ(release.status, 0) << release.err;
  EXPECT_FALSE(tree.Exists("WAIT/prot@x.org/20261116100000104.WAI"));
  EXPECT_EQ(tree.List("LOCAL").size(), 2u);
}

}  // namespace
}  // namespace quellor::testing
