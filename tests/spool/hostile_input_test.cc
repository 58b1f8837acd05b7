// Trees a hostile user or a bad day can leave behind: names of a second drawn out, a cut copy, a
// kill during a list rewrite. (Symbolic links and FIFOs in the spool, NUL in mail data and a
// sender without an address are golden cases: tests/data/spool/hostile-*.)

#include <gtest/gtest.h>
#include <signal.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <filesystem>
#include <random>
#include <set>
#include <string>
#include <vector>

#include "platform/fs.h"
#include "platform/names.h"
#include "spool/lists.h"
#include "spool/pass.h"
#include "support/temp_tree.h"

namespace quellor::testing {
namespace {

namespace fs = std::filesystem;

class HostileTest : public ::testing::Test {
 protected:
  HostileTest() {
    tree.ctx.settings.postmasters = "";
    tree.Write("SYSTEM/validation.txt", "Please reply to $email.\r\n");
    tree.Write("SYSTEM/validation.htm", "<p>Please reply.</p>\r\n");
  }

  void Queue(const std::string& stem, const std::string& sender,
             const std::vector<std::string>& recipients, const std::string& subject = "Hi") {
    std::vector<std::string> envelope = {sender};
    envelope.insert(envelope.end(), recipients.begin(), recipients.end());
    tree.WriteLines("IN/" + stem + ".WAI", envelope);
    tree.Write("IN/" + stem + ".EML",
               "From: " + sender + "\r\nSubject: " + subject + "\r\n\r\nHi\r\n");
  }

  // Names in LOCAL/ with an extension.
  std::vector<std::string> Files(const std::string& extension) {
    std::vector<std::string> out;
    for (const std::string& name : tree.List("LOCAL")) {
      if (name.ends_with(extension)) out.push_back(name);
    }
    return out;
  }

  TempTree tree;

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
};

// Durability is not what this test is about: flushing 10,000 files to the disk would only make it
// slow.
class NoSyncFileSystem : public FileSystem {
 public:
  int Fsync(int) override { return 0; }
  int SyncDir(const std::string&) override { return 0; }
};

TEST_F(HostileTest, FiveThousandRecipientsWithinOneSecondGetFiveThousandPairs) {
  NoSyncFileSystem no_sync;
  ScopedFileSystem seam(&no_sync);
  std::vector<std::string> recipients;
  for (int i = 0; i < 5000; ++i) recipients.push_back("<u" + std::to_string(i) + "@y.org>");
  Queue("20261116095900001", "a@x.org", recipients);
  tree.ctx.pause_ms = 0;

  RunPass();

  const auto envelopes = Files(".WAI");
  const auto messages = Files(".EML");
  ASSERT_EQ(envelopes.size(), 5000u);
  ASSERT_EQ(messages.size(), 5000u);
  std::set<std::string> recipients_seen;
  for (const auto& name : envelopes) {
    const auto lines = tree.ReadLines("LOCAL/" + name);
    ASSERT_EQ(lines.size(), 2u);
    recipients_seen.insert(lines[1]);
    const std::string stem = name.substr(0, name.size() - 4);
    // The designed form: date, time, then 1 to 1000.
    EXPECT_GE(stem.size(), 15u);
    EXPECT_LE(stem.size(), 18u);
  }
  EXPECT_EQ(recipients_seen.size(), 5000u);
  EXPECT_TRUE(Files(".TMP").empty());
  EXPECT_FALSE(tree.Exists("LOG/system.log"));
}

// A delivery whose message copy cannot be completed leaves no .EML in LOCAL/: the host server
// takes only pairs whose .EML exists.
struct CutCase {
  const char* name;
  FsOp op;
  const char* path_part;
};

const CutCase kCuts[] = {
    {"CopyCannotStart", FsOp::kOpen, ".TMP"},
    {"NamingFails", FsOp::kRename, ".TMP"},
};

class CutTest : public HostileTest, public ::testing::WithParamInterface<CutCase> {};

TEST_P(CutTest, LocalNeverHoldsHalfAMessage) {
  const CutCase& c = GetParam();
  tree.Write("Users/u@y.org.CONF", "MODE=FORWARD\r\n");
  Queue("20261116095900001", "a@x.org", {"<u@y.org>"});
  FaultyFileSystem faulty;
  ScopedFileSystem seam(&faulty);
  ForgetNameIndexes();
  tree.ctx.window.File1.Clear();
  tree.ctx.window.File1.Add("20261116095900001.EML");
  tree.ctx.window.total.Set("1");
  faulty.FailAlways(c.op, EIO, c.path_part);
  quellor(tree.ctx);
  faulty.Clear();
  ForgetNameIndexes();

  EXPECT_TRUE(Files(".EML").empty());
}

INSTANTIATE_TEST_SUITE_P(Cuts, CutTest, ::testing::ValuesIn(kCuts),
                         [](const auto& info) { return std::string(info.param.name); });

TEST_F(HostileTest, ListRewriteKilledLeavesOldOrNewList) {
  std::vector<std::string> domains;
  for (int i = 0; i < 20000; ++i) domains.push_back("d" + std::to_string(100000 + i * 2) + ".org");
  tree.WriteLines("DOMAIN.LST", domains);
  const std::string added = "d100001.org";
  std::vector<std::string> with = domains;
  with.insert(with.begin() + 1, added);

  std::mt19937 random(7);
  for (int seed = 0; seed < 5; ++seed) {
    tree.WriteLines("DOMAIN.LST", domains);
    ForgetNameIndexes();
    const pid_t child = ::fork();
    ASSERT_GE(child, 0);
    if (child == 0) {
      AddListEntry(tree.ctx, tree.Path("DOMAIN.LST"), added);
      ::_exit(0);
    }
    ::usleep(std::uniform_int_distribution<int>(0, 30000)(random));
    ::kill(child, SIGKILL);
    int status = 0;
    ::waitpid(child, &status, 0);
    const auto lines = tree.ReadLines("DOMAIN.LST");
    EXPECT_TRUE(lines == domains || lines == with) << "seed " << seed << ": " << lines.size();
  }
  // A rewrite after the kills starts afresh from the list, never from a left-over work file.
  ForgetNameIndexes();
  tree.WriteLines("DOMAIN.LST", domains);
  AddListEntry(tree.ctx, tree.Path("DOMAIN.LST"), added);
  EXPECT_EQ(tree.ReadLines("DOMAIN.LST"), with);
}

}  // namespace
}  // namespace quellor::testing
