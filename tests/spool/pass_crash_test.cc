// A pass killed at any moment never loses a message: a child process runs passes over a queue
// of 200 pairs and kills itself at a random file call; after every kill each message is still in
// IN/, delivered in LOCAL/ or held in WAIT/, and once the passes run to their end every recipient
// has its copy.

#include <gtest/gtest.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <filesystem>
#include <random>
#include <string>
#include <vector>

#include "platform/fs.h"
#include "platform/names.h"
#include "spool/queued_tokens.h"
#include "support/passes.h"
#include "support/temp_tree.h"

namespace quellor::testing {
namespace {

constexpr int kMessages = 200;

// A killed process loses nothing of what it wrote (the kernel keeps it), so the child skips the
// flushes to the disk: what is tested is the order in which files are written and removed. The
// child kills itself at a chosen opening, write, removal, renaming or link (0: never), so where
// it stops does not depend on how fast the machine is.
class KillingFileSystem : public NoSyncFileSystem {
 public:
  explicit KillingFileSystem(long kill_at) : kill_at_(kill_at) {}
  int Open(const std::string& p, int flags, int mode) override {
    return Count(), FileSystem::Open(p, flags, mode);
  }
  long Write(int fd, const void* buf, size_t n) override {
    return Count(), FileSystem::Write(fd, buf, n);
  }
  int Unlink(const std::string& p) override { return Count(), FileSystem::Unlink(p); }
  int Rename(const std::string& f, const std::string& t) override {
    return Count(), FileSystem::Rename(f, t);
  }
  int Link(const std::string& f, const std::string& t) override {
    return Count(), FileSystem::Link(f, t);
  }

 private:
  void Count() {
    if (kill_at_ > 0 && ++calls_ == kill_at_) raise(SIGKILL);
  }
  long kill_at_;
  long calls_ = 0;
};

// The child: passes like the scheduler's ticks until the queue is empty.
[[noreturn]] void RunPasses(const std::string& root, long kill_at) {
  KillingFileSystem no_sync(kill_at);
  SetFileSystem(&no_sync);
  SystemClock clock;
  RecordingSleeper sleeper;
  Context ctx(root, clock, sleeper);
  ctx.pause_ms = 0;
  do {
    TimerPass(ctx);
  } while (ctx.window.File1.size() > 0);
  _exit(0);
}

TEST(PassCrashTest, KilledPassesNeverLoseAMessage) {
  for (const unsigned seed : {7u, 1234u, 99991u}) {
    SCOPED_TRACE(seed);
    // In memory: a killed process loses nothing the kernel has, so the file system makes no
    // difference here, only the test's speed.
    TempTree tree(/*in_memory=*/true);
    const std::vector<Queued> queue = FillQueue(tree, kMessages);
    std::mt19937 rng(seed);
    const auto run = [&](bool kill_it) {
      const pid_t pid = fork();
      ASSERT_GE(pid, 0);
      const long kill_at = kill_it ? 100 + static_cast<long>(rng() % 1000) : 0;
      if (pid == 0) RunPasses(tree.root(), kill_at);
      int status = 0;
      waitpid(pid, &status, 0);
      ForgetNameIndexes();
    };

    // Kills spread over the whole queue: rounds go on until the queue is empty.
    int round = 0;
    for (; round < 60 && !ListFiles(tree.Path("IN"), "*.EML").empty(); ++round) {
      run(true);
      for (const Queued& q : Lost(tree, queue)) ADD_FAILURE() << q.token << " lost in " << round;
    }

    EXPECT_GT(round, 5);
    run(false);
    EXPECT_TRUE(ListFiles(tree.Path("IN"), "*.EML").empty());
    const auto local = CountTokens(tree.Path("LOCAL"));
    for (const Queued& q : queue) {
      // A message taken again after a kill may be delivered twice, never less than once.
      EXPECT_GE(local.count(q.token) ? local.at(q.token) : 0, q.delivered) << q.token;
      for (const std::string& user : q.held_for) {
        const std::string held = tree.Read("WAIT/" + user + "/" + q.stem + ".EML");
        EXPECT_NE(held.find(q.token + "\r\n"), std::string::npos) << q.token;
      }
    }
  }
}

}  // namespace
}  // namespace quellor::testing
