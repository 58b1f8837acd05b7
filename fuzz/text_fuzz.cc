// Fuzzes the Windows-1252 text helpers: casing, searching, numbers and code-page conversion.
#include <cstdint>
#include <cstdlib>
#include <string>
#include <string_view>

#include "platform/errors.h"
#include "platform/text.h"

using namespace quellor;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const std::string_view in(reinterpret_cast<const char*>(data), size);
  const size_t cut = in.find('\0');
  const std::string_view a = in.substr(0, cut);
  const std::string_view b = cut == std::string_view::npos ? "" : in.substr(cut + 1);

  if (UCase(a).size() != a.size() || LCase(a).size() != a.size()) std::abort();
  if (Trim(a).size() > a.size()) std::abort();
  const size_t p = InStr(a, b);
  if (p != 0 && a.substr(p - 1, b.size()) != b) std::abort();
  if (p != 0 && InStrNoCase(a, b) == 0) std::abort();
  InStrRev(a, b);
  ReplaceAll(a, b, "xy");
  const double v = Val(a);
  try {
    CInt16(v);
    CLng(v);
  } catch (const RuntimeError&) {
    // Overflow raises by design.
  }
  DecimalText(v);

  // Windows-1252 text survives the way through UTF-8, except the five codes the page leaves
  // empty, which come back as "?".
  std::string expected(a);
  for (char& c : expected) {
    const unsigned char u = static_cast<unsigned char>(c);
    if (u == 0x81 || u == 0x8D || u == 0x8F || u == 0x90 || u == 0x9D) c = '?';
  }
  if (Utf8ToCp1252(Cp1252ToUtf8(a)) != expected) std::abort();
  Utf8ToCp1252(a);
  ToCp1252(a, "ISO-8859-2");
  ToCp1252(a, std::string(b.substr(0, 20)).c_str());
  return 0;
}
