#include "mail/quoted_printable.h"

namespace quellor {

std::string EncodeQP(std::string_view text) {
  static constexpr char kHex[] = "0123456789ABCDEF";
  std::string out;
  out.reserve(text.size() + text.size() / 24 + 16);
  for (size_t i = 1; i <= text.size(); ++i) {
    const auto code = static_cast<unsigned char>(text[i - 1]);
    if (code > 127 || code == '=') {
      out += '=';
      out += kHex[code >> 4];
      out += kHex[code & 0x0F];
    } else {
      out += static_cast<char>(code);
    }
    // The break counts input characters over the whole text, not output columns, and does not
    // restart after a line break of the input: the templates are encoded one line at a time.
    if (i % 73 == 0) out += "=\r\n";
  }
  return out;
}

}  // namespace quellor
