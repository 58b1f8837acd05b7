// The processing pass where a golden case cannot say it: the 40-message cap with half pairs
// that change behind the listing, pairs dropped while a pass runs, and releases whose copy into
// a full disk gives up.

#include "spool/pass.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <chrono>
#include <functional>
#include <map>
#include <string>
#include <vector>

#include "platform/fs.h"
#include "platform/names.h"
#include "spool/input_pair.h"
#include "spool/pass_run.h"
#include "spool/stages.h"
#include "support/temp_tree.h"

namespace quellor::testing {
namespace {

std::string Message(const std::string& from) {
  return "From: " + from + "\r\nTo: u@y.org\r\nSubject: Hi\r\n\r\nHello there.\r\n";
}

// A pair from `sender` to u@y.org in IN/, the message file named with `ext`.
void Queue(const TempTree& tree, const std::string& stem, const std::string& sender,
           const char* ext = ".EML") {
  tree.WriteLines("IN/" + stem + ".WAI", {sender, "u@y.org"});
  tree.Write("IN/" + stem + ext, Message(sender));
}

TEST(PassTest, TakesAtMostFortyOldestFirstAndRemovesHalfPairs) {
  TempTree tree;
  tree.ctx.settings.postmasters = "";
  for (int i = 1; i <= 45; ++i) {
    const std::string n = (i < 10 ? "0" : "") + std::to_string(i);
    Queue(tree, "202611160900000" + n, "s" + n + "@x.org");
  }
  // A pair whose message file goes after the listing, and a message without its envelope.
  Queue(tree, "20261116080000000", "gone@x.org");
  tree.Write("IN/20261116080000001.EML", Message("lone@x.org"));
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
  EXPECT_EQ(tree.List("LOCAL").size(), 2 * 38u);
  EXPECT_EQ(w.File1.size(), 7u);
  EXPECT_EQ(w.File1.At(0), "20261116090000039.EML");
  // The half pairs left no line (the order is PairsDroppedDuringAPassAreTakenInNameOrder's).
  const std::string activity = tree.Read("LOG/16-11-2026.log");
  EXPECT_EQ(activity.find("lone@x.org"), std::string::npos);
  EXPECT_EQ(activity.find("gone@x.org"), std::string::npos);
}

// Runs a change of IN/ behind the pass's back before the message of the given number.
class DroppingSleeper : public Sleeper {
 public:
  explicit DroppingSleeper(std::map<int, std::function<void()>> drops) : drops_(std::move(drops)) {}
  void Sleep(std::chrono::milliseconds ms) override {
    if (ms.count() < 100) return;  // the throttle's pause, not the pass's
    if (auto drop = drops_.find(++count_); drop != drops_.end()) drop->second();
  }

 private:
  std::map<int, std::function<void()>> drops_;
  int count_ = 0;
};

TEST(PassTest, PairsDroppedDuringAPassAreTakenInNameOrder) {
  TempTree tree;
  for (int i = 1; i <= 10; ++i)
    Queue(tree, "202611160900000" + std::to_string(10 + i), "s" + std::to_string(i) + "@x.org");
  // Before the message of each number: a pair that sorts before the head is the next taken; a
  // later one (a lower-case extension) waits its turn; a pair removed is not taken; hidden names
  // and a folder are never listed.
  DroppingSleeper dropper({
      {3, [&] { Queue(tree, "20261116085900000", "early@x.org"); }},
      {5, [&] { Queue(tree, "20261116100000000", "late@x.org", ".eml"); }},
      {6,
       [&] {
         tree.Remove("IN/20261116090000018.EML");
         tree.Remove("IN/20261116090000018.WAI");
       }},
      {7,
       [&] {
         Queue(tree, ".20261116085900001", "hidden@x.org");
         tree.MakeFolder("IN/20261116085900002.EML");
       }},
  });
  Context ctx(tree.root(), tree.clock, dropper);
  // Nine of the ten listed: the pass takes no more than MESSAGES_PER_PASS.
  ctx.settings.messages_per_pass = "9";
  WindowModel& w = ctx.window;
  ASSERT_TRUE(RefreshInputListing(ctx));
  w.total.Set(std::to_string(w.File1.size()));

  quellor(ctx);

  std::vector<std::string> taken;
  for (const std::string& line : tree.ReadLines("LOG/16-11-2026.log")) {
    const size_t from = line.find("<");
    taken.push_back(line.substr(from + 1, line.find("@", from) - from - 1));
  }
  EXPECT_EQ(taken,
            (std::vector<std::string>{"s1", "s2", "s3", "early", "s4", "s5", "s6", "s7", "s9"}));
  EXPECT_EQ(w.total.text(), "0");
  EXPECT_EQ(std::vector<std::string>(w.File1.items().begin(), w.File1.items().end()),
            (std::vector<std::string>{"20261116090000020.EML", "20261116100000000.eml"}));
  EXPECT_TRUE(tree.Exists("IN/.20261116085900001.EML"));
}

TEST(PassTest, AReleaseWhoseCopyGivesUpKeepsTheHeldPair) {
  // The local queue refuses new files (a full disk): the held pair must survive.
  struct Case {
    int first_refused;  // 1: the envelope copy on, 2: only the message copy
    size_t local_files;
  };
  for (const Case& c : {Case{1, 0}, Case{2, 1}}) {
    SCOPED_TRACE(c.first_refused);
    TempTree tree;
    tree.WriteLines("WAIT/u@y.org/2026111609000001.WAI", {"a@x.org", "u@y.org", "Hi"});
    tree.Write("WAIT/u@y.org/2026111609000001.EML", Message("a@x.org"));
    ForgetNameIndexes();
    PassRun p(tree.ctx);
    p.s.sender = "a@x.org";
    p.s.recipient = p.s.user = "u@y.org";
    p.s.wait_id = "2026111609000001";
    FaultyFileSystem faulty;
    faulty.FailNth(FsOp::kOpen, c.first_refused, ENOSPC, 1000, "LOCAL/");
    faulty.FailAlways(FsOp::kRename, ENOSPC, "LOCAL/");  // no second name for the message either
    {
      ScopedFileSystem scoped(&faulty);
      ReplyStage(p);
    }
    ForgetNameIndexes();
    EXPECT_TRUE(tree.Exists("WAIT/u@y.org/2026111609000001.WAI"));
    EXPECT_TRUE(tree.Exists("WAIT/u@y.org/2026111609000001.EML"));
    EXPECT_EQ(tree.List("LOCAL").size(), c.local_files);
  }
}

}  // namespace
}  // namespace quellor::testing
