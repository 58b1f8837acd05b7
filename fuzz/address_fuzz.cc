// Fuzzes the address helpers and the matching of list entries with "*".
#include <cstdint>
#include <cstdlib>
#include <string>
#include <string_view>

#include "platform/errors.h"
#include "spool/address.h"
#include "spool/lists.h"

using namespace quellor;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const std::string_view in(reinterpret_cast<const char*>(data), size);
  const size_t cut = in.find('\n');
  const std::string_view a = in.substr(0, cut);
  const std::string_view b = cut == std::string_view::npos ? "" : in.substr(cut + 1);

  const std::string address = ExtractAddress(a, "@");
  for (char c : address) {
    if (!IsAddressChar(c)) std::abort();
  }
  if (!address.empty() && address.find('@') == std::string::npos) std::abort();
  ExtractAddress(a, "*");
  DomainOf(address);
  ReplaceNoCase(a, b.substr(0, 8), "<x>");
  try {
    ValueAfter("SUBJECT:", std::string(a) + "\r", "\r");
    ValueAfter("(", a, ")");
  } catch (const RuntimeError&) {
    // A missing terminator raises by design.
  }
  MatchEntry(a, b);
  MatchEntry(b, a);
  return 0;
}
