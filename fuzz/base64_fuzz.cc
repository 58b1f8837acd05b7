// Fuzzes the base64 codec: any text decodes or raises, and encoded bytes decode back.
#include <cstdint>
#include <cstdlib>
#include <string>
#include <string_view>
#include <vector>

#include "mail/base64.h"
#include "platform/errors.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  static const quellor::Base64Class codec;
  const std::string_view in(reinterpret_cast<const char*>(data), size);
  try {
    codec.DecodeToString(in);
  } catch (const quellor::RuntimeError&) {
    // Empty results and NUL characters raise by design.
  }
  if (size > 0) {
    const std::string encoded = codec.EncodeByteArray(std::vector<uint8_t>(data, data + size));
    if (codec.DecodeToString(encoded) != in) std::abort();
  }
  return 0;
}
