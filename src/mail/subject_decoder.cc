#include "mail/subject_decoder.h"

#include <cstring>

#include "mail/base64.h"
#include "platform/regional.h"
#include "platform/text.h"

namespace quellor {

namespace {
// The encoding letter of a marker "Q?" or "B?" (either case); 0 for anything else.
char EncodingAt(const std::string& s, size_t i) {
  if (i + 1 >= s.size() || s[i + 1] != '?') return 0;
  const char c = UpperChar(s[i]);
  return c == 'Q' || c == 'B' ? c : 0;
}
}  // namespace

// No handler of its own: a failing B text (empty, or a NUL) raises to the pass, which logs it.
//
// Every round replaces the first encoded word of the whole text by its decoded text and searches
// again from the start, so decoded text holding a word is decoded again and blanks between
// adjacent words stay. The text before the first "=?" never changes again, so it is kept as
// finished output and only the rest is searched: one buffer holds the finished text at
// [0, done) and the text still to search at [from, end). A decoded text is never longer than
// its encoded word, so it always fits back in front of `from`.
std::string DecodeSubject(Context& ctx, std::string_view subject) {
  std::string buf(subject);
  size_t done = 0;
  size_t from = 0;
  bool decoded_any = false;  // the last head decoded ends with "Q?" or "B?"
  const Base64Class base64;
  for (;;) {
    // The first "=?" of the whole text: the finished text holds none, but its last "=" may meet a
    // "?" at the start of a decoded text.
    size_t pos;
    if (done > 0 && buf[done - 1] == '=' && from < buf.size() && buf[from] == '?') {
      buf[--from] = '=';
      pos = from;
      --done;
    } else {
      pos = buf.find("=?", from);
      if (pos == std::string::npos) break;
      std::memmove(buf.data() + done, buf.data() + from, pos - from);
      done += pos - from;
      from = pos;
    }
    size_t m = pos;
    while (m < buf.size() && EncodingAt(buf, m) == 0) ++m;
    const size_t e = m < buf.size() ? buf.find("?=", m + 2) : std::string::npos;
    if (e == std::string::npos) {
      // Nothing decoded yet: the subject is returned unchanged with one warning.
      if (!decoded_any) {
        const LocalTime now = ctx.clock.LocalNow();
        const std::string s = buf.substr(0, done) + buf.substr(from);
        ctx.window.List2.Add(ShortDate(now) + "," + LongTime(now) + " - " + s);
      }
      break;
    }
    decoded_any = true;
    std::string text = buf.substr(m + 2, e - m - 2);
    // "_" becomes a blank before the encoding is looked at, so B texts get it too.
    for (char& c : text) {
      if (c == '_') c = ' ';
    }
    text = EncodingAt(buf, m) == 'Q' ? DecodeQP(text) : base64.DecodeToString(text);
    from = e + 2 - text.size();
    std::memcpy(buf.data() + from, text.data(), text.size());
  }
  buf.erase(done, from - done);
  return buf;
}

std::string DecodeQP(std::string_view text) {
  std::string out;
  out.reserve(text.size());
  size_t i = 0;
  for (;;) {
    const size_t p = text.find('=', i);
    // An "=" within the last two characters, and everything after it, stays as it is.
    if (p == std::string_view::npos || p + 3 > text.size()) break;
    out.append(text.substr(i, p - i));
    const std::string_view xx = text.substr(p + 1, 2);
    // Lower-case digits are left alone. A soft break "=" CR LF holds no lower-case letter
    // either, so it is taken here too and becomes the character 0 (subjects carry none).
    if (UpperChar(xx[0]) == xx[0] && UpperChar(xx[1]) == xx[1]) {
      out += static_cast<char>(HexValue(xx));
      i = p + 3;  // the decoded character is not looked at again
    } else {
      out += '=';
      i = p + 1;
    }
  }
  out.append(text.substr(i));
  return out;
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
