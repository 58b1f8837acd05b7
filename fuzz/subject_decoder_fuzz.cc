// Fuzzes the encoded-word subject decoder and its quoted-printable part.
#include <cstdint>
#include <cstdlib>
#include <string_view>

#include "fuzz_tree.h"
#include "mail/subject_decoder.h"
#include "platform/errors.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const std::string_view in(reinterpret_cast<const char*>(data), size);
  quellor::Context& ctx = quellor::fuzz::Tree().ctx;
  ctx.window.List2.Clear();
  try {
    // Every round replaces a word by a shorter text, so the result is never longer.
    if (quellor::DecodeSubject(ctx, in).size() > size) std::abort();
  } catch (const quellor::RuntimeError&) {
    // An empty or NUL-holding B text raises to the pass by design.
  }
  if (quellor::DecodeQP(in).size() > size) std::abort();
  quellor::HexValue(in.substr(0, 2));
  return 0;
}
