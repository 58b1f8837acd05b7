// Fuzzes the list files: a list of any bytes is searched and an entry is added to it.
#include <cstdint>
#include <string>
#include <string_view>

#include "fuzz_tree.h"
#include "spool/lists.h"

using namespace quellor;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  fuzz::FuzzTree& tree = fuzz::Tree();
  tree.Reset();
  const std::string_view in(reinterpret_cast<const char*>(data), size);
  tree.Write("Users/u@x.org.WLT", in);
  Context& ctx = tree.ctx;
  const std::string list = ctx.Path("Users/u@x.org.WLT");
  buscaenlista(ctx, list, "Bob@Example.ORG");
  AddListEntry(ctx, list, "carol@example.org");
  buscaenlista(ctx, list, "carol@example.org");
  ScanEmailsinString(ctx, std::string(in.substr(0, 4096)), "");
  return 0;
}
