#include "platform/text.h"

#include <fmt/format.h>
#include <iconv.h>

#include <cerrno>
#include <cmath>
#include <cstring>
#include <limits>

#include "platform/errors.h"

namespace quellor {

namespace {

// Windows-1252 code points of 0x80..0x9F (0 where the page has no character).
constexpr char16_t kHigh[32] = {0x20AC, 0,      0x201A, 0x0192, 0x201E, 0x2026, 0x2020, 0x2021,
                                0x02C6, 0x2030, 0x0160, 0x2039, 0x0152, 0,      0x017D, 0,
                                0,      0x2018, 0x2019, 0x201C, 0x201D, 0x2022, 0x2013, 0x2014,
                                0x02DC, 0x2122, 0x0161, 0x203A, 0x0153, 0,      0x017E, 0x0178};

unsigned char Upper(unsigned char c) {
  if (c >= 'a' && c <= 'z') return c - 32;
  if (c >= 0xE0 && c <= 0xFE && c != 0xF7) return c - 32;
  switch (c) {
    case 0x9A:
      return 0x8A;  // s caron
    case 0x9C:
      return 0x8C;  // oe
    case 0x9E:
      return 0x8E;  // z caron
    case 0xFF:
      return 0x9F;  // y diaeresis
    default:
      return c;
  }
}

unsigned char Lower(unsigned char c) {
  if (c >= 'A' && c <= 'Z') return c + 32;
  if (c >= 0xC0 && c <= 0xDE && c != 0xD7) return c + 32;
  switch (c) {
    case 0x8A:
      return 0x9A;
    case 0x8C:
      return 0x9C;
    case 0x8E:
      return 0x9E;
    case 0x9F:
      return 0xFF;
    default:
      return c;
  }
}

void AppendUtf8(std::string& out, char32_t cp) {
  if (cp < 0x80) {
    out += static_cast<char>(cp);
  } else if (cp < 0x800) {
    out += static_cast<char>(0xC0 | (cp >> 6));
    out += static_cast<char>(0x80 | (cp & 0x3F));
  } else if (cp < 0x10000) {
    out += static_cast<char>(0xE0 | (cp >> 12));
    out += static_cast<char>(0x80 | ((cp >> 6) & 0x3F));
    out += static_cast<char>(0x80 | (cp & 0x3F));
  } else {
    out += static_cast<char>(0xF0 | (cp >> 18));
    out += static_cast<char>(0x80 | ((cp >> 12) & 0x3F));
    out += static_cast<char>(0x80 | ((cp >> 6) & 0x3F));
    out += static_cast<char>(0x80 | (cp & 0x3F));
  }
}

char FromCodePoint(char32_t cp) {
  if (cp < 0x80 || (cp >= 0xA0 && cp <= 0xFF)) return static_cast<char>(cp);
  for (int i = 0; i < 32; ++i) {
    if (kHigh[i] != 0 && kHigh[i] == cp) return static_cast<char>(0x80 + i);
  }
  return '?';
}

}  // namespace

char UpperChar(char c) {
  return static_cast<char>(Upper(static_cast<unsigned char>(c)));
}
char LowerChar(char c) {
  return static_cast<char>(Lower(static_cast<unsigned char>(c)));
}

std::string UCase(std::string_view s) {
  std::string out(s);
  for (char& c : out) c = UpperChar(c);
  return out;
}

std::string LCase(std::string_view s) {
  std::string out(s);
  for (char& c : out) c = LowerChar(c);
  return out;
}

std::string LTrim(std::string_view s) {
  size_t b = 0;
  while (b < s.size() && s[b] == ' ') ++b;
  return std::string(s.substr(b));
}

std::string RTrim(std::string_view s) {
  size_t e = s.size();
  while (e > 0 && s[e - 1] == ' ') --e;
  return std::string(s.substr(0, e));
}

std::string Trim(std::string_view s) {
  size_t b = 0, e = s.size();
  while (b < e && s[b] == ' ') ++b;
  while (e > b && s[e - 1] == ' ') --e;
  return std::string(s.substr(b, e - b));
}

size_t InStr(std::string_view s, std::string_view find, size_t start) {
  if (start < 1) start = 1;
  if (start > s.size() + 1) return 0;
  size_t p = s.find(find, start - 1);
  return p == std::string_view::npos ? 0 : p + 1;
}

size_t InStrNoCase(std::string_view s, std::string_view find, size_t start) {
  return InStr(UCase(s), UCase(find), start);
}

size_t InStrRev(std::string_view s, std::string_view find) {
  size_t p = s.rfind(find);
  return p == std::string_view::npos ? 0 : p + 1;
}

std::string ReplaceAll(std::string_view s, std::string_view find, std::string_view replacement) {
  if (find.empty()) return std::string(s);
  std::string out;
  size_t pos = 0;
  while (true) {
    size_t p = s.find(find, pos);
    if (p == std::string_view::npos) break;
    out.append(s.substr(pos, p - pos));
    out.append(replacement);
    pos = p + find.size();
  }
  out.append(s.substr(pos));
  return out;
}

double Val(std::string_view s) {
  size_t i = 0;
  while (i < s.size() && s[i] == ' ') ++i;
  if (i + 1 < s.size() && s[i] == '&') {
    char kind = UpperChar(s[i + 1]);
    int base = kind == 'H' ? 16 : kind == 'O' ? 8 : 0;
    if (base != 0) {
      double v = 0;
      for (i += 2; i < s.size(); ++i) {
        char c = UpperChar(s[i]);
        int d = (c >= '0' && c <= '9') ? c - '0' : (c >= 'A' && c <= 'F') ? c - 'A' + 10 : 99;
        if (d >= base) break;
        v = v * base + d;
      }
      return v;
    }
  }
  // The longest leading part that reads as a number: an optional sign, digits and at most one
  // decimal point. Nothing else is skipped or read (no blanks inside, no exponent).
  std::string number;
  if (i < s.size() && (s[i] == '-' || s[i] == '+')) number += s[i++];
  bool point = false, digits = false;
  for (; i < s.size(); ++i) {
    char c = s[i];
    if (c >= '0' && c <= '9') {
      number += c;
      digits = true;
    } else if (c == '.' && !point) {
      number += c;
      point = true;
    } else {
      break;
    }
  }
  if (!digits) return 0;
  return std::strtod(number.c_str(), nullptr);
}

int16_t CInt16(double v) {
  if (!std::isfinite(v)) Raise(kErrOverflow);
  double r = std::nearbyint(v);  // the default rounding mode sends halves to the even neighbour
  if (r < -32768.0 || r > 32767.0) Raise(kErrOverflow);
  return static_cast<int16_t>(r);
}

int32_t CLng(double v) {
  if (!std::isfinite(v)) Raise(kErrOverflow);
  double r = std::nearbyint(v);
  if (r < -2147483648.0 || r > 2147483647.0) Raise(kErrOverflow);
  return static_cast<int32_t>(r);
}

std::string DecimalText(double v) {
  if (std::isfinite(v) && v == std::trunc(v) && std::fabs(v) < 1e15) {
    return fmt::format("{}", static_cast<long long>(v));
  }
  return fmt::format("{}", v);
}

std::string SignedText(long v) {
  return v >= 0 ? fmt::format(" {}", v) : fmt::format("{}", v);
}

std::string Utf8ToCp1252(std::string_view utf8) {
  std::string out;
  out.reserve(utf8.size());
  size_t i = 0;
  while (i < utf8.size()) {
    unsigned char c = static_cast<unsigned char>(utf8[i]);
    char32_t cp;
    size_t len;
    if (c < 0x80) {
      cp = c;
      len = 1;
    } else if ((c & 0xE0) == 0xC0) {
      cp = c & 0x1F;
      len = 2;
    } else if ((c & 0xF0) == 0xE0) {
      cp = c & 0x0F;
      len = 3;
    } else if ((c & 0xF8) == 0xF0) {
      cp = c & 0x07;
      len = 4;
    } else {
      out += '?';
      ++i;
      continue;
    }
    bool ok = i + len <= utf8.size();
    for (size_t k = 1; ok && k < len; ++k) {
      unsigned char cc = static_cast<unsigned char>(utf8[i + k]);
      if ((cc & 0xC0) != 0x80) ok = false;
      cp = (cp << 6) | (cc & 0x3F);
    }
    if (!ok) {
      out += '?';
      ++i;
      continue;
    }
    out += FromCodePoint(cp);
    i += len;
  }
  return out;
}

std::string Cp1252ToUtf8(std::string_view cp1252) {
  std::string out;
  out.reserve(cp1252.size());
  for (char ch : cp1252) {
    unsigned char c = static_cast<unsigned char>(ch);
    if (c < 0x80) {
      out += ch;
    } else if (c < 0xA0) {
      char16_t cp = kHigh[c - 0x80];
      AppendUtf8(out, cp ? cp : c);
    } else {
      AppendUtf8(out, c);
    }
  }
  return out;
}

std::string ToCp1252(std::string_view text, const char* charset) {
  std::string cs = UCase(charset ? charset : "");
  if (cs == "UTF-8" || cs == "UTF8" || cs == "US-ASCII" || cs == "ASCII") return Utf8ToCp1252(text);
  if (cs == "WINDOWS-1252" || cs == "CP1252") return std::string(text);
  iconv_t cd = iconv_open("UTF-8", charset);
  if (cd == reinterpret_cast<iconv_t>(-1)) return std::string(text);
  std::string out(text.size() * 4 + 16, '\0');
  char* in = const_cast<char*>(text.data());
  size_t in_left = text.size();
  char* dst = out.data();
  size_t out_left = out.size();
  while (in_left > 0) {
    if (iconv(cd, &in, &in_left, &dst, &out_left) == static_cast<size_t>(-1)) {
      if (errno == E2BIG) break;
      // Skip a byte that the source charset cannot hold.
      *dst++ = '?';
      --out_left;
      ++in;
      --in_left;
    }
  }
  iconv_close(cd);
  out.resize(out.size() - out_left);
  return Utf8ToCp1252(out);
}

bool IsContinuationLine(std::string_view line) {
  return !line.empty() && (line[0] == ' ' || line[0] == '\t');
}

std::string WithoutExtension(std::string_view name) {
  if (name.size() < 4) Raise(kErrInvalidCall);
  return std::string(name.substr(0, name.size() - 4));
}

std::string OneLine(std::string_view text) {
  std::string line(text);
  for (char& c : line) {
    if (c == '\r' || c == '\n' || c == '\0') c = ' ';
  }
  return line;
}

void StripLineEnd(std::string& text) {
  if (text.size() >= 2 && text.compare(text.size() - 2, 2, "\r\n") == 0) {
    text.resize(text.size() - 2);
  }
}

}  // namespace quellor
