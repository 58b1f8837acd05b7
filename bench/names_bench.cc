// Name lookups in a folder of 50,000 files: existence tests (exact hits, hits in another letter
// case, misses), our own create and delete beside them, and one pattern listing.
#include <benchmark/benchmark.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>

#include "platform/files.h"
#include "platform/names.h"

namespace {

constexpr int kFiles = 50000;

// The folder lives as long as the program and is removed at exit.
class BigFolder {
 public:
  BigFolder() {
    std::string tmpl =
        (std::filesystem::temp_directory_path() / "quellor-names-bench-XXXXXX").string();
    dir_ = mkdtemp(tmpl.data());
    for (int i = 0; i < kFiles; ++i) {
      std::ofstream(dir_ + "/2026111610000" + std::to_string(i) + ".EML");
    }
  }
  ~BigFolder() {
    std::error_code ec;
    std::filesystem::remove_all(dir_, ec);
  }
  const std::string& dir() const { return dir_; }

 private:
  std::string dir_;
};

const std::string& Folder() {
  static BigFolder folder;
  return folder.dir();
}

void BM_ExistsExactHit(benchmark::State& state) {
  std::string path = Folder() + "/20261116100004242.EML";
  for (auto _ : state) {
    if (!quellor::OrdinaryFileExists(path)) state.SkipWithError("not found");
  }
}
BENCHMARK(BM_ExistsExactHit);

void BM_ExistsOtherCaseHit(benchmark::State& state) {
  std::string path = Folder() + "/20261116100004242.eml";
  for (auto _ : state) {
    if (!quellor::OrdinaryFileExists(path)) state.SkipWithError("not found");
  }
}
BENCHMARK(BM_ExistsOtherCaseHit);

void BM_ExistsMiss(benchmark::State& state) {
  std::string path = Folder() + "/20261116100009999999.WAI";
  for (auto _ : state) {
    if (quellor::OrdinaryFileExists(path)) state.SkipWithError("found");
  }
}
BENCHMARK(BM_ExistsMiss);

// Our own writes keep the index current: creating and deleting a file costs no rescan.
void BM_CreateAndRemove(benchmark::State& state) {
  std::string path = Folder() + "/New.WAI";
  for (auto _ : state) {
    quellor::TextFile::Open(path, quellor::OpenMode::kOutput).Close();
    quellor::RemoveFile(Folder() + "/new.wai");
  }
}
BENCHMARK(BM_CreateAndRemove);

// A full listing for comparison: what every lookup would cost without the index.
void BM_ListFilesAll(benchmark::State& state) {
  for (auto _ : state) {
    auto names = quellor::ListFiles(Folder(), "*.eml");
    if (names.size() != kFiles) state.SkipWithError("wrong count");
  }
}
BENCHMARK(BM_ListFilesAll)->Unit(benchmark::kMillisecond);

}  // namespace
