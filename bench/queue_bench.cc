// The input listing of a long queue: IN/ with 10,000 pairs, listed by "*.EML" as is, and
// refreshed as the pass refreshes it after every message (one pair gone, one new pair added by
// the host server behind the program's back, then the listing copied into the window model).
#include <benchmark/benchmark.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>

#include "core/window_model.h"
#include "platform/files.h"
#include "platform/names.h"

namespace {

constexpr int kPairs = 10000;

std::string Stem(long i) {
  char stem[32];
  std::snprintf(stem, sizeof stem, "2026111610%09ld", i);
  return stem;
}

// The folder lives as long as the program and is removed at exit.
class QueueFolder {
 public:
  QueueFolder() {
    std::string tmpl =
        (std::filesystem::temp_directory_path() / "quellor-queue-bench-XXXXXX").string();
    dir_ = mkdtemp(tmpl.data());
    for (next_ = 0; next_ < kPairs; ++next_) AddPair(next_);
  }
  ~QueueFolder() {
    std::error_code ec;
    std::filesystem::remove_all(dir_, ec);
  }
  const std::string& dir() const { return dir_; }
  // What the host server does: envelope first, message file last.
  void AddPair(long i) {
    std::ofstream(dir_ + "/" + Stem(i) + ".WAI");
    std::ofstream(dir_ + "/" + Stem(i) + ".EML");
  }
  long next_ = 0;
  long head_ = 0;

 private:
  std::string dir_;
};

QueueFolder& Queue() {
  static QueueFolder folder;
  return folder;
}

void BM_ListInputQueue(benchmark::State& state) {
  const std::string& dir = Queue().dir();
  for (auto _ : state) {
    auto names = quellor::ListFiles(dir, "*.EML");
    if (names.size() != kPairs) state.SkipWithError("wrong count");
  }
}
BENCHMARK(BM_ListInputQueue)->Unit(benchmark::kMillisecond);

// One message's worth of queue traffic, then the refresh the pass does after it.
void BM_PassRefresh(benchmark::State& state) {
  QueueFolder& q = Queue();
  quellor::WindowModel w;
  for (auto _ : state) {
    state.PauseTiming();
    quellor::RemoveFile(q.dir() + "/" + Stem(q.head_) + ".EML");
    quellor::RemoveFile(q.dir() + "/" + Stem(q.head_) + ".WAI");
    ++q.head_;
    q.AddPair(q.next_++);
    state.ResumeTiming();
    std::vector<std::string> names = quellor::ListFiles(q.dir(), "*.EML");
    w.File1.Clear();
    for (std::string& name : names) w.File1.Add(std::move(name));
    if (w.File1.size() != kPairs) state.SkipWithError("wrong count");
  }
}
BENCHMARK(BM_PassRefresh)->Unit(benchmark::kMillisecond);

}  // namespace
