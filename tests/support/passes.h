#pragma once
// Whole passes as the service runs them, for the tests that drive the spool.

#include <string>

#include "core/context.h"
#include "platform/fs.h"

namespace quellor::testing {

// What the pass timer does: take back deferred pairs, list IN/ into the window, count it into
// `total` and run a pass when there is anything. Name indexes are forgotten before and after,
// since tests change the tree behind the program's back.
void TimerPass(Context& ctx);

// Flushes to the disk only make a test slow when it writes thousands of files, or when it kills
// its passes (a killed process loses nothing the kernel has).
class NoSyncFileSystem : public FileSystem {
 public:
  int Fsync(int) override { return 0; }
  int SyncDir(const std::string&) override { return 0; }
};

}  // namespace quellor::testing
