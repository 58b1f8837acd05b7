#include "mail/base64.h"

#include "platform/errors.h"

namespace quellor {

namespace {
constexpr char kAlphabet[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
}  // namespace

Base64Class::Base64Class() {
  for (auto& v : reverse_) v = 0;
  for (int i = 0; i < 64; ++i)
    reverse_[static_cast<unsigned char>(kAlphabet[i])] = static_cast<uint8_t>(i);
}

std::string Base64Class::EncodeString(std::string_view text) const {
  return EncodeByteArray(std::vector<uint8_t>(text.begin(), text.end()));
}

std::string Base64Class::EncodeByteArray(const std::vector<uint8_t>& bytes) const {
  const size_t chars = (bytes.size() + 2) / 3 * 4;
  std::string out;
  out.reserve(chars + chars / 76 * 2);
  size_t column = 0;
  auto put = [&](char c) {
    if (column == 76) {  // only when more output follows: no line break ends the text
      out += "\r\n";
      column = 0;
    }
    out += c;
    ++column;
  };
  size_t i = 0;
  for (; i + 3 <= bytes.size(); i += 3) {
    const uint32_t g = (bytes[i] << 16) | (bytes[i + 1] << 8) | bytes[i + 2];
    put(kAlphabet[(g >> 18) & 63]);
    put(kAlphabet[(g >> 12) & 63]);
    put(kAlphabet[(g >> 6) & 63]);
    put(kAlphabet[g & 63]);
  }
  const size_t rest = bytes.size() - i;
  if (rest > 0) {
    const uint32_t g = (bytes[i] << 16) | (rest == 2 ? bytes[i + 1] << 8 : 0);
    put(kAlphabet[(g >> 18) & 63]);
    put(kAlphabet[(g >> 12) & 63]);
    put(rest == 2 ? kAlphabet[(g >> 6) & 63] : '=');
    put('=');
  }
  return out;
}

std::string Base64Class::DecodeToString(std::string_view encoded) const {
  const std::vector<uint8_t> bytes = DecodeToByteArray(encoded);
  return std::string(bytes.begin(), bytes.end());
}

std::vector<uint8_t> Base64Class::DecodeToByteArray(std::string_view encoded) const {
  // Only CR LF pairs and "=" (wherever it stands) are removed; every other character outside
  // the alphabet stays and counts as "A", shifting the grouping, as senders' mail always did here.
  std::string text;
  text.reserve(encoded.size());
  for (size_t i = 0; i < encoded.size(); ++i) {
    if (encoded[i] == '\r' && i + 1 < encoded.size() && encoded[i + 1] == '\n') {
      ++i;
      continue;
    }
    if (encoded[i] == '=') continue;
    text += encoded[i];
  }
  const size_t n = text.size();
  const size_t rest = n % 4;
  const size_t size = n / 4 * 3 + (rest == 2 ? 1 : rest == 3 ? 2 : 0);
  if (size == 0) Raise(kErrSubscript);  // the output cannot be sized to zero bytes
  std::vector<uint8_t> out;
  out.reserve(size);
  auto value = [&](size_t k) -> uint32_t {
    // The reverse table has no entry for code 0; a single character left over is never looked
    // up, so a NUL there is dropped like any other.
    if (text[k] == '\0') Raise(kErrSubscript);
    return reverse_[static_cast<unsigned char>(text[k])];
  };
  size_t k = 0;
  for (; k + 4 <= n; k += 4) {
    const uint32_t g = (value(k) << 18) | (value(k + 1) << 12) | (value(k + 2) << 6) | value(k + 3);
    out.push_back(static_cast<uint8_t>(g >> 16));
    out.push_back(static_cast<uint8_t>(g >> 8));
    out.push_back(static_cast<uint8_t>(g));
  }
  if (rest >= 2) {  // a single character left over is dropped
    const uint32_t g =
        (value(k) << 18) | (value(k + 1) << 12) | (rest == 3 ? value(k + 2) << 6 : 0);
    out.push_back(static_cast<uint8_t>(g >> 16));
    if (rest == 3) out.push_back(static_cast<uint8_t>(g >> 8));
  }
  return out;
}

}  // namespace quellor
