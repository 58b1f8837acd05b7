#include "mail/subject_decoder.h"

#include "mail/base64.h"
#include "platform/regional.h"
#include "platform/text.h"

namespace quellor {

namespace {
bool EndsWith(std::string_view s, std::string_view tail) {
  return s.size() >= tail.size() && s.substr(s.size() - tail.size()) == tail;
}
}  // namespace

// No handler of its own: a failing B text (empty, or a NUL) raises to the pass, which logs it.
std::string DecodeSubject(Context& ctx, std::string_view subject) {
  std::string s(subject);
  std::string hdr;  // the last encoded-word head decoded, upper-cased
  size_t pos = InStrNoCase(s, "=?");
  while (pos > 0) {
    const std::string prefix = s.substr(0, pos - 1);
    const size_t q = InStrNoCase(s, "Q?", pos);
    const size_t b = InStrNoCase(s, "B?", pos);
    size_t m = 0;
    if (q != 0 && b != 0) {
      m = q < b ? q : b;
    } else {
      m = q != 0 ? q : b;
    }
    const size_t head_len = m - pos + 2;
    const size_t e = m != 0 ? InStrNoCase(s, "?=", pos + head_len) : 0;
    if (m != 0 && e != 0) {
      hdr = UCase(s.substr(pos - 1, head_len));
      std::string text = s.substr(pos - 1 + head_len, e - pos - head_len);
      // "_" becomes a blank before the encoding is looked at, so B texts get it too.
      for (char& c : text) {
        if (c == '_') c = ' ';
      }
      if (EndsWith(hdr, "Q?")) {
        text = DecodeQP(text);
      } else if (EndsWith(hdr, "B?")) {
        text = Base64Class().DecodeToString(text);
      }
      s = prefix + text + s.substr(e + 1);
      // The search restarts at the beginning: decoded text holding a word is decoded again, and
      // blanks between adjacent words stay.
      pos = InStrNoCase(s, "=?");
    } else {
      pos = 0;
    }
    if (!EndsWith(hdr, "Q?") && !EndsWith(hdr, "B?")) {
      const LocalTime now = ctx.clock.LocalNow();
      ctx.window.List2.Add(ShortDate(now) + "," + LongTime(now) + hdr + " - " + s);
    }
  }
  return s;
}

std::string DecodeQP(std::string_view text) {
  std::string s(text);
  size_t p = InStr(s, "=");
  while (p > 0 && p + 2 <= s.size()) {
    const std::string xx = s.substr(p, 2);
    // Lower-case digits are left alone. A soft break "=" CR LF holds no lower-case letter
    // either, so it is taken here too and becomes the character 0 (subjects carry none).
    if (UCase(xx) == xx) s.replace(p - 1, 3, 1, static_cast<char>(HexValue(xx)));
    p = InStr(s, "=", p + 1);
  }
  return s;
}

int32_t HexValue(std::string_view text) {
  uint32_t value = 0;
  for (char c : text) {
    if (c == ' ' || c == '\t' || c == '\n') continue;
    int digit;
    if (c >= '0' && c <= '9') {
      digit = c - '0';
    } else if (c >= 'A' && c <= 'F') {
      digit = c - 'A' + 10;
    } else if (c >= 'a' && c <= 'f') {
      digit = c - 'a' + 10;
    } else {
      break;
    }
    value = value * 16 + static_cast<uint32_t>(digit);
  }
  return static_cast<int32_t>(value);
}

}  // namespace quellor
