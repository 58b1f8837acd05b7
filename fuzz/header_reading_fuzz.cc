// Fuzzes the pass's own reading of a message's headers (subject, envelope line, diagnostic copy).
#include <cstdint>
#include <string_view>

#include "fuzz_tree.h"
#include "spool/pass_run.h"
#include "spool/stages.h"

using namespace quellor;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  fuzz::FuzzTree& tree = fuzz::Tree();
  tree.Reset();
  tree.Write("IN/1.EML", std::string_view(reinterpret_cast<const char*>(data), size));
  PassRun run(tree.ctx);
  run.s.message_file = "1.EML";
  ReadHeaders(run);
  // A second recipient reads the file again, as rewritten by the first reading.
  run.s.subject.clear();
  ReadHeaders(run);
  return 0;
}
