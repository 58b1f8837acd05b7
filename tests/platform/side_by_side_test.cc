// Batches of jobs run side by side: each job once, whatever thread asks, and in a child
// process too.
#include "platform/side_by_side.h"

#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <thread>
#include <vector>

#include "platform/files.h"
#include "platform/fs.h"
#include "support/temp_tree.h"

namespace quellor {
namespace {

// Runs batches of `size` jobs and tells whether every job ran exactly once.
bool EachOnce(size_t size) {
  std::vector<std::atomic<int>> runs(size);
  RunSideBySide(size, [&](size_t i) { runs[i].fetch_add(1); });
  for (const auto& r : runs) {
    if (r.load() != 1) return false;
  }
  return true;
}

TEST(SideBySide, EveryJobRunsOnce) {
  for (size_t size : {0, 1, 2, 8, 50}) EXPECT_TRUE(EachOnce(size)) << size;
  // Two threads asking at once take turns.
  std::atomic<int> good{0};
  std::vector<std::thread> askers;
  for (int t = 0; t < 2; ++t) {
    askers.emplace_back([&] {
      for (int round = 0; round < 50; ++round) good += EachOnce(9) ? 1 : 0;
    });
  }
  for (auto& a : askers) a.join();
  EXPECT_EQ(good.load(), 100);
  // A child process has none of its parent's threads: it gets its own.
  const pid_t pid = ::fork();
  ASSERT_GE(pid, 0);
  if (pid == 0) ::_exit(EachOnce(9) ? 0 : 1);
  int status = 0;
  ::waitpid(pid, &status, 0);
  EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0);
}

// A batch flush answers for each path: flushed, gone (nothing to flush) or failed.
TEST(SideBySide, BatchFlushAnswersForEachPath) {
  testing::TempTree t;
  t.Write("LOCAL/1.EML", "a");
  t.Write("WAIT/u/1.EML", "b");
  FaultyFileSystem faulty;
  faulty.FailNth(FsOp::kSync, 3, EIO);  // files first, then folders, in their order
  ScopedFileSystem scope(&faulty);
  const std::vector<int> results = SyncTogether({t.Path("local/1.eml"), t.Path("LOCAL/gone.EML")},
                                                {t.Path("LOCAL"), t.Path("WAIT/U")});
  EXPECT_EQ(results, (std::vector<int>{0, 0, 0, -EIO}));
}

}  // namespace
}  // namespace quellor
