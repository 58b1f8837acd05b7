#pragma once
// Runs a batch of independent blocking calls (disk flushes) side by side on a few threads kept
// for the purpose, so that the disk serves them together instead of one after the other.

#include <cstddef>
#include <functional>

namespace quellor {

// Calls job(0) to job(count - 1), each once, on the calling thread and up to seven kept
// threads, and returns when all have returned. The jobs must not throw. Calls from several
// threads take turns.
void RunSideBySide(size_t count, const std::function<void(size_t)>& job);

}  // namespace quellor
