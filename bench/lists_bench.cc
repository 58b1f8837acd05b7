// List lookups: the entry matcher alone, and buscaenlista over a long white list.
#include <benchmark/benchmark.h>
#include <stdlib.h>

#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include "core/context.h"
#include "platform/clock.h"
#include "platform/names.h"
#include "spool/lists.h"

namespace quellor {
namespace {

void BM_MatchEntry(benchmark::State& state) {
  const char* entries[] = {"*@example.org", "friend@example.org", "news*", "*@*.example.org"};
  const std::string value = "Some.Person+tag@mail.example.org";
  for (auto _ : state) {
    for (const char* entry : entries) benchmark::DoNotOptimize(MatchEntry(entry, value));
  }
  state.SetItemsProcessed(state.iterations() * 4);
}
BENCHMARK(BM_MatchEntry);

// The matcher alone over 100,000 entries held in memory, as buscaenlista meets them without
// the file reading: the value matches the last entry, or none.
void BM_MatchEntry100k(benchmark::State& state, const char* value, bool expected) {
  std::vector<std::string> entries;
  entries.reserve(100000);
  for (int i = 0; i < 99999; ++i) {
    entries.push_back("sender" + std::to_string(i) + "@domain" + std::to_string(i % 97) + ".org");
  }
  entries.push_back("last@example.org");
  for (auto _ : state) {
    bool found = false;
    for (const std::string& entry : entries) {
      if (MatchEntry(entry, value)) {
        found = true;
        break;
      }
    }
    if (found != expected) state.SkipWithError("wrong match result");
  }
  state.SetItemsProcessed(state.iterations() * 100000);
}
BENCHMARK_CAPTURE(BM_MatchEntry100k, hit_at_end, "LAST@example.org", true)
    ->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(BM_MatchEntry100k, miss, "nobody@example.org", false)
    ->Unit(benchmark::kMillisecond);

// An installation with a list of 100,000 addresses, the last one "last@example.org".
class LongList {
 public:
  LongList() : ctx_(MakeRoot(), clock_, sleeper_) {
    path_ = ctx_.Path("Users/u@example.org.WHITE");
    std::filesystem::create_directories(ctx_.Path("Users"));
    std::filesystem::create_directories(ctx_.Path("LOG"));
    std::ofstream out(path_, std::ios::binary);
    for (int i = 0; i < 99999; ++i) out << "sender" << i << "@domain" << (i % 97) << ".org\r\n";
    out << "last@example.org\r\n";
    out.close();
    ForgetNameIndexes();
  }
  ~LongList() {
    std::error_code ec;
    std::filesystem::remove_all(ctx_.root, ec);
  }
  Context& ctx() { return ctx_; }
  const std::string& path() const { return path_; }

 private:
  static std::string MakeRoot() {
    std::string tmpl = (std::filesystem::temp_directory_path() / "quellor-bench-XXXXXX").string();
    return std::string(mkdtemp(tmpl.data())) + "/";
  }
  FakeClock clock_;
  RecordingSleeper sleeper_;
  Context ctx_;
  std::string path_;
};

void BM_buscaenlista(benchmark::State& state, const char* value, bool expected) {
  LongList list;
  for (auto _ : state) {
    bool found = buscaenlista(list.ctx(), list.path(), value);
    if (found != expected) state.SkipWithError("wrong lookup result");
  }
  state.SetItemsProcessed(state.iterations() * 100000);
}
BENCHMARK_CAPTURE(BM_buscaenlista, hit_at_end_100k, "LAST@example.org", true)
    ->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(BM_buscaenlista, miss_100k, "nobody@example.org", false)
    ->Unit(benchmark::kMillisecond);

}  // namespace
}  // namespace quellor
