// A pass killed at any moment never loses a message: a child process runs passes over a queue
// of 200 pairs and is killed at random moments; after every kill each message is still in IN/,
// delivered in LOCAL/ or held in WAIT/, and once the passes run to their end every recipient
// has its copy.

#include <gtest/gtest.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <map>
#include <optional>
#include <random>
#include <sstream>
#include <string>
#include <vector>

#include "platform/fs.h"
#include "platform/names.h"
#include "spool/pass.h"
#include "support/temp_tree.h"

namespace quellor::testing {
namespace {

constexpr int kMessages = 200;

struct Queued {
  std::string stem;
  std::string token;  // a line of the body found in every copy
  std::vector<std::string> held_for;
  int delivered = 0;  // recipients that get a LOCAL/ copy
};

std::string Slurp(const std::filesystem::path& path) {
  std::ifstream in(path, std::ios::binary);
  std::ostringstream ss;
  ss << in.rdbuf();
  return ss.str();
}

std::vector<Queued> FillQueue(TempTree& tree) {
  tree.Write("SYSTEM/validation.txt", "Reply to $email.\r\n");
  tree.Write("SYSTEM/validation.htm", "<p>Reply.</p>\r\n");
  tree.Write("Users/l@y.org.CONF", "MODE=LEARN\r\n");
  for (int u = 0; u < 3; ++u)
    tree.Write("Users/p" + std::to_string(u) + "@y.org.CONF", "MODE=QUELLOR\r\n");
  std::vector<Queued> queue;
  for (int i = 0; i < kMessages; ++i) {
    Queued q;
    q.stem = "20261116" + std::to_string(100000000 + i);
    q.token = "token-" + std::to_string(i);
    const std::string protected_user = "p" + std::to_string(i % 3) + "@y.org";
    std::vector<std::string> recipients;
    switch (i % 4) {
      case 0:
        recipients = {protected_user};
        q.held_for = {protected_user};
        break;
      case 1:
        recipients = {"f" + std::to_string(i % 7) + "@y.org"};
        q.delivered = 1;
        break;
      case 2:
        recipients = {"l@y.org"};
        q.delivered = 1;
        break;
      default:
        recipients = {"f1@y.org", protected_user, "l@y.org"};
        q.held_for = {protected_user};
        q.delivered = 2;
    }
    std::vector<std::string> envelope = {"s" + std::to_string(i) + "@x.org"};
    envelope.insert(envelope.end(), recipients.begin(), recipients.end());
    tree.WriteLines("IN/" + q.stem + ".WAI", envelope);
    // Every tenth message starts with an envelope line, which the pass strips by a rewrite.
    const std::string from_line = i % 10 == 0 ? "From s@x.org Mon Nov 16 09:00:00 2026\r\n" : "";
    tree.Write("IN/" + q.stem + ".EML", from_line + "From: s@x.org\r\nSubject: Hi " +
                                            std::to_string(i) + "\r\n\r\n" + q.token + "\r\n");
    queue.push_back(q);
  }
  return queue;
}

// A killed process loses nothing of what it wrote (the kernel keeps it), so the child skips the
// flushes to the disk: what is tested is the order in which files are written and removed.
class NoSyncFileSystem : public FileSystem {
 public:
  int Fsync(int) override { return 0; }
  int SyncDir(const std::string&) override { return 0; }
};

// The child: passes like the scheduler's ticks until the queue is empty.
[[noreturn]] void RunPasses(const std::string& root) {
  NoSyncFileSystem no_sync;
  SetFileSystem(&no_sync);
  SystemClock clock;
  RecordingSleeper sleeper;
  Context ctx(root, clock, sleeper);
  ctx.pause_ms = 0;
  ForgetNameIndexes();
  for (;;) {
    WindowModel& w = ctx.window;
    w.File1.Clear();
    for (const auto& name : ListFiles(ctx.Path("IN"), "*.EML")) w.File1.Add(name);
    if (w.File1.size() == 0) break;
    w.total.Set(std::to_string(w.File1.size()));
    quellor(ctx);
  }
  _exit(0);
}

// How many files under `folder` (and its subfolders) with the extension hold the token.
std::map<std::string, int> CountTokens(const std::string& folder, const std::string& extension) {
  std::map<std::string, int> counts;
  for (const auto& entry : std::filesystem::recursive_directory_iterator(folder)) {
    if (!entry.is_regular_file() || entry.path().extension() != extension) continue;
    const std::string text = Slurp(entry.path());
    const size_t at = text.find("token-");
    if (at != std::string::npos) ++counts[text.substr(at, text.find('\r', at) - at)];
  }
  return counts;
}

// Puts the temporary trees into memory where it can (a killed process loses nothing the
// kernel has, so the file system makes no difference here, only the test's speed).
class InMemoryTrees {
 public:
  InMemoryTrees() {
    if (const char* old = std::getenv("TMPDIR")) saved_ = old;
    if (access("/dev/shm", W_OK) == 0) setenv("TMPDIR", "/dev/shm", 1);
  }
  ~InMemoryTrees() {
    if (saved_) {
      setenv("TMPDIR", saved_->c_str(), 1);
    } else {
      unsetenv("TMPDIR");
    }
  }

 private:
  std::optional<std::string> saved_;
};

TEST(PassCrashTest, KilledPassesNeverLoseAMessage) {
  InMemoryTrees in_memory;
  for (const unsigned seed : {7u, 1234u, 99991u}) {
    SCOPED_TRACE(seed);
    TempTree tree;
    const std::vector<Queued> queue = FillQueue(tree);
    std::mt19937 rng(seed);
    const auto run = [&](bool kill_it) {
      const pid_t pid = fork();
      ASSERT_GE(pid, 0);
      if (pid == 0) RunPasses(tree.root());
      if (kill_it) {
        usleep(2000 + rng() % 30000);
        kill(pid, SIGKILL);
      }
      int status = 0;
      waitpid(pid, &status, 0);
      ForgetNameIndexes();
    };

    // Kills spread over the whole queue: rounds go on until the queue is empty.
    int round = 0;
    for (; round < 60 && !ListFiles(tree.Path("IN"), "*.EML").empty(); ++round) {
      run(true);
      auto in = CountTokens(tree.Path("IN"), ".EML");
      for (const auto& [token, n] : CountTokens(tree.Path("IN"), ".HDR")) in[token] += n;
      const auto local = CountTokens(tree.Path("LOCAL"), ".EML");
      const auto held = CountTokens(tree.Path("WAIT"), ".EML");
      for (const Queued& q : queue) {
        EXPECT_TRUE(in.count(q.token) || local.count(q.token) || held.count(q.token))
            << q.token << " lost in round " << round;
      }
    }

    EXPECT_GT(round, 5);
    run(false);
    EXPECT_TRUE(ListFiles(tree.Path("IN"), "*.EML").empty());
    const auto local = CountTokens(tree.Path("LOCAL"), ".EML");
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
