#include "platform/side_by_side.h"

#include <unistd.h>

#include <condition_variable>
#include <mutex>
#include <system_error>
#include <thread>

namespace quellor {

namespace {

constexpr size_t kMostThreads = 7;

// The kept threads and the batch they are working on.
struct Workers {
  std::mutex turn;  // one batch at a time
  std::mutex mutex;
  std::condition_variable work;
  std::condition_variable finished;
  const std::function<void(size_t)>* job = nullptr;
  size_t count = 0;
  size_t next = 0;
  size_t done = 0;
  size_t threads = 0;
  pid_t owner = 0;

  // Takes the batch's next job while one is left; false when none is.
  bool RunOne(std::unique_lock<std::mutex>& lock) {
    if (!job || next >= count) return false;
    const size_t index = next++;
    const std::function<void(size_t)>* current = job;
    lock.unlock();
    (*current)(index);
    lock.lock();
    if (++done == count) finished.notify_all();
    return true;
  }

  void Loop() {
    std::unique_lock lock(mutex);
    for (;;) {
      work.wait(lock, [&] { return job && next < count; });
      RunOne(lock);
    }
  }
};

// The process's workers. A child process made by fork has none of its parent's threads: it
// gets workers of its own (the parent's state is left as it was copied).
Workers& TheWorkers() {
  static Workers* workers = nullptr;
  static std::mutex made;
  std::lock_guard lock(made);
  if (!workers || workers->owner != ::getpid()) {
    workers = new Workers;  // never freed: kept threads live as long as the process
    workers->owner = ::getpid();
  }
  return *workers;
}

}  // namespace

void RunSideBySide(size_t count, const std::function<void(size_t)>& job) {
  if (count == 0) return;
  if (count == 1) {
    job(0);
    return;
  }
  Workers& w = TheWorkers();
  std::lock_guard turn(w.turn);
  std::unique_lock lock(w.mutex);
  while (w.threads < kMostThreads && w.threads + 1 < count) {
    try {
      std::thread([&w] { w.Loop(); }).detach();
    } catch (const std::system_error&) {
      break;  // no thread to be had (a task limit): the threads there are, or this one, do it
    }
    ++w.threads;
  }
  w.job = &job;
  w.count = count;
  w.next = 0;
  w.done = 0;
  w.work.notify_all();
  while (w.RunOne(lock)) {
  }
  w.finished.wait(lock, [&] { return w.done == w.count; });
  w.job = nullptr;
}

}  // namespace quellor
