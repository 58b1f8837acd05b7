#include "spool/address.h"

#include "logs/retrying_files.h"
#include "platform/errors.h"
#include "platform/files.h"
#include "platform/guard.h"
#include "platform/names.h"
#include "platform/text.h"

namespace quellor {

namespace {
constexpr std::string_view kNotAddress = "?|()\\/,;:<>[]\"";
}  // namespace

bool IsAddressChar(char c) {
  unsigned char u = static_cast<unsigned char>(c);
  return u >= 33 && u <= 126 && kNotAddress.find(c) == std::string_view::npos;
}

bool IsAddressChar(std::string_view ch) {
  return !ch.empty() && IsAddressChar(ch.front());
}

std::string ExtractAddress(std::string_view text, std::string_view mark) {
  if (mark.empty()) return "";
  // Bounded by two non-address characters, so both scans stop inside the text.
  std::string s = "<" + std::string(text) + ">";
  size_t p = s.find(mark);
  if (p == std::string::npos) return "";
  size_t e = p;
  while (e < s.size() && IsAddressChar(s[e])) ++e;
  size_t b = p;
  while (b > 0 && IsAddressChar(s[b])) --b;
  // A mark that is not an address character stops both scans where they began.
  if (e <= b + 1) return "";
  return s.substr(b + 1, e - b - 1);
}

std::string DomainOf(std::string_view address) {
  size_t at = address.find('@');
  return std::string(at == std::string_view::npos ? address : address.substr(at + 1));
}

std::string ReplaceNoCase(std::string_view text, std::string_view find,
                          std::string_view replacement) {
  if (find.empty()) return std::string(text);
  // The search goes on after each inserted replacement, that is, in the rest of the original
  // text, so one scan over the original gives the same result.
  std::string lower = LCase(text);
  std::string lower_find = LCase(find);
  std::string out;
  size_t pos = 0;
  while (true) {
    size_t p = lower.find(lower_find, pos);
    if (p == std::string::npos) break;
    out.append(text.substr(pos, p - pos));
    out.append(replacement);
    pos = p + find.size();
  }
  out.append(text.substr(pos));
  return out;
}

std::string ValueAfter(std::string_view key, std::string_view text, std::string_view terminator) {
  std::string upper = UCase(text);
  size_t p = InStr(upper, key);
  if (p == 0) return "";
  size_t start = p + key.size();
  size_t q = InStr(upper, terminator, start);
  if (q == 0) Raise(kErrInvalidCall);  // no terminator after the key
  return Trim(text.substr(start - 1, q - start));
}

std::string ResolveAlias(Context& ctx, const std::string& address) {
  // An address that is no plain file name cannot have an alias file.
  if (!SafeName(address)) return address;
  Guard guard(ctx.error_sink(), " - Alias");
  std::string path = ctx.Path(ctx.users + "/" + address + ".ALS");
  bool exists = false;
  guard([&] { exists = FindOrdinaryFile(path); });  // a failed search is logged
  if (!exists) return address;
  TextFile file;
  std::string line;
  guard([&] { file = OpenFile(ctx, path, "INPUT"); });
  guard([&] { line = file.ReadLine(); });
  guard([&] { file.Close(); });
  return Trim(line);
}

}  // namespace quellor
