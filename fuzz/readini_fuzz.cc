// Fuzzes the reader of quellor.ini.
#include <cstdint>
#include <string_view>

#include "config/readini.h"
#include "fuzz_tree.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  quellor::fuzz::FuzzTree& tree = quellor::fuzz::Tree();
  tree.Reset();
  tree.Write("quellor.ini", std::string_view(reinterpret_cast<const char*>(data), size));
  quellor::readini(tree.ctx);
  return 0;
}
