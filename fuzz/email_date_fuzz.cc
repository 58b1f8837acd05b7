// Fuzzes the mail Date header over moments and zone offsets.
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <ctime>

#include "fuzz_tree.h"
#include "mail/email_date.h"
#include "platform/errors.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  int64_t moment = 0;
  int32_t offset = 0;
  std::memcpy(&moment, data, size < sizeof moment ? size : sizeof moment);
  if (size > sizeof moment) {
    std::memcpy(&offset, data + sizeof moment,
                size - sizeof moment < sizeof offset ? size - sizeof moment : sizeof offset);
  }
  quellor::fuzz::FuzzTree& tree = quellor::fuzz::Tree();
  // Moments within ten thousand years and zones within a day each way, as a clock may give.
  const int64_t span = int64_t{10000} * 366 * 86400;
  tree.clock.Set(static_cast<std::time_t>(moment % span));
  tree.clock.SetOffset(offset % 86400);
  try {
    quellor::EmailDate(tree.ctx, static_cast<std::time_t>((moment >> 3) % span));
    quellor::TimeZone(tree.ctx);
    quellor::GMTTime(tree.ctx);
  } catch (const quellor::RuntimeError&) {
    // Run-time errors are the callers' to log.
  }
  return 0;
}
