#include "fuzz_tree.h"

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <stdexcept>

#include "platform/names.h"

namespace quellor::fuzz {

namespace {
std::string MakeRoot() {
  const char* base = std::getenv("TMPDIR");
  std::string tmpl = std::string(base ? base : "/tmp") + "/quellor-fuzz-XXXXXX";
  if (!mkdtemp(tmpl.data())) throw std::runtime_error("mkdtemp failed");
  return tmpl + "/";
}

void RemoveRoot() {
  std::error_code ec;
  std::filesystem::remove_all(Tree().ctx.root, ec);
}
}  // namespace

FuzzTree::FuzzTree() : clock(0, 3600), sleeper(&clock), ctx(MakeRoot(), clock, sleeper) {
  Reset();
}

void FuzzTree::Reset() {
  std::error_code ec;
  for (const auto& entry : std::filesystem::directory_iterator(ctx.root, ec)) {
    std::filesystem::remove_all(entry.path(), ec);
  }
  for (const char* d :
       {"IN", "LOCAL", "OUT", "WAIT", "DEBUG", "Users", "SYSTEM", "LOG", "LOG/quellor"}) {
    std::filesystem::create_directories(ctx.root + d);
  }
  ForgetNameIndexes();
  clock.SetLocal(2026, 11, 16, 10, 0, 0);
  ctx.settings = Settings{};
  ctx.window = WindowModel{};
  ctx.pause_ms = 0;
}

void FuzzTree::Write(std::string_view relative, std::string_view bytes) const {
  std::ofstream out(ctx.root + std::string(relative), std::ios::binary | std::ios::trunc);
  out.write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
}

FuzzTree& Tree() {
  static FuzzTree* tree = [] {
    auto* t = new FuzzTree();
    std::atexit(RemoveRoot);
    return t;
  }();
  return *tree;
}

}  // namespace quellor::fuzz
