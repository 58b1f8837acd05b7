// Fuzzes the quoted-printable encoder of the request's text parts.
#include <cstdint>
#include <cstdlib>
#include <string>
#include <string_view>

#include "mail/quoted_printable.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const std::string out =
      quellor::EncodeQP(std::string_view(reinterpret_cast<const char*>(data), size));
  // Escapes take three characters and soft breaks three more per 73 input characters.
  if (out.size() > 3 * size + 3 * (size / 73 + 1)) std::abort();
  return 0;
}
