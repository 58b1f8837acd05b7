#include "bridge/outgoing.h"

#include <vector>

#include "bridge/bounce_scan.h"
#include "platform/text.h"

namespace quellor::bridge {

namespace {

constexpr std::string_view kCharsetWord = "=?windows-1252?Q?";
// Longest encoded word allowed by RFC 2047.
constexpr size_t kMaxEncodedWord = 75;

bool HasEightBit(std::string_view s) {
  for (unsigned char c : s) {
    if (c >= 0x80) return true;
  }
  return false;
}

bool StartsWithNoCase(std::string_view line, std::string_view prefix) {
  return line.size() >= prefix.size() && UCase(line.substr(0, prefix.size())) == UCase(prefix);
}

std::string CrLfToLf(std::string_view text) {
  std::string out;
  out.reserve(text.size());
  for (size_t i = 0; i < text.size(); ++i) {
    if (text[i] == '\r' && i + 1 < text.size() && text[i + 1] == '\n') continue;
    out += text[i];
  }
  return out;
}

// One character in Q encoding.
std::string QChar(unsigned char c) {
  if ((c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '!' ||
      c == '*' || c == '+' || c == '-' || c == '/')
    return std::string(1, static_cast<char>(c));
  if (c == ' ') return "_";
  static const char kHex[] = "0123456789ABCDEF";
  return std::string{'=', kHex[c >> 4], kHex[c & 15]};
}

// Header fields that hold addresses: encoding them would break the addresses.
bool IsAddressField(std::string_view line) {
  for (std::string_view name : {"From:", "To:", "Cc:", "Bcc:", "Reply-To:", "Sender:"}) {
    if (StartsWithNoCase(line, name)) return true;
  }
  return false;
}

}  // namespace

std::string EncodeEightBitWords(std::string_view value) {
  if (!HasEightBit(value)) return std::string(value);
  // Words are split at blanks; the run from the first to the last 8-bit word is encoded as a
  // whole, its blanks included, so that decoding gives back the same text.
  std::vector<std::string_view> words;
  for (size_t at = 0;;) {
    const size_t blank = value.find(' ', at);
    words.push_back(value.substr(at, blank == std::string_view::npos ? blank : blank - at));
    if (blank == std::string_view::npos) break;
    at = blank + 1;
  }
  size_t first = words.size(), last = 0;
  for (size_t i = 0; i < words.size(); ++i) {
    if (HasEightBit(words[i])) {
      first = std::min(first, i);
      last = i;
    }
  }
  std::string span;
  for (size_t i = first; i <= last; ++i) span += (i > first ? " " : "") + std::string(words[i]);
  std::string encoded;
  std::string word;
  for (unsigned char c : span) {
    const std::string q = QChar(c);
    if (kCharsetWord.size() + word.size() + q.size() + 2 > kMaxEncodedWord) {
      encoded += (encoded.empty() ? "" : "\r\n ") + std::string(kCharsetWord) + word + "?=";
      word.clear();
    }
    word += q;
  }
  encoded += (encoded.empty() ? "" : "\r\n ") + std::string(kCharsetWord) + word + "?=";
  std::string out;
  for (size_t i = 0; i < first; ++i) out += std::string(words[i]) + " ";
  out += encoded;
  for (size_t i = last + 1; i < words.size(); ++i) out += " " + std::string(words[i]);
  return out;
}

std::string LocalForSendmail(std::string_view message) {
  if (StartsWithNoCase(message, "Return-Path:")) {
    size_t end = message.find('\n');
    while (end != std::string_view::npos && IsContinuationLine(message.substr(end + 1)))
      end = message.find('\n', end + 1);
    message.remove_prefix(end == std::string_view::npos ? message.size() : end + 1);
  }
  return CrLfToLf(message);
}

std::string RequestForSendmail(std::string_view message, std::string_view stem,
                               std::string_view hostname) {
  // The end-of-message line of the spool format is no part of the mail.
  if (message.ends_with("\r\n.\r\n")) message.remove_suffix(3);
  const size_t split = message.find("\r\n\r\n");
  const std::string_view header =
      split == std::string_view::npos ? message : message.substr(0, split + 2);
  const std::string_view rest =
      split == std::string_view::npos ? std::string_view() : message.substr(split + 2);
  std::string out;
  std::string subject;
  bool has_message_id = false, has_auto_submitted = false;
  for (size_t at = 0; at < header.size();) {
    size_t end = header.find("\r\n", at);
    if (end == std::string_view::npos) end = header.size();
    const std::string_view line = header.substr(at, end - at);
    at = end + 2;
    if (StartsWithNoCase(line, "Subject:")) subject = std::string(line.substr(8));
    has_message_id = has_message_id || StartsWithNoCase(line, "Message-ID:");
    has_auto_submitted = has_auto_submitted || StartsWithNoCase(line, "Auto-Submitted:");
    const size_t colon = line.find(':');
    if (HasEightBit(line) && colon != std::string_view::npos && !IsAddressField(line) &&
        line[0] != ' ' && line[0] != '\t') {
      const bool blank = colon + 1 < line.size() && line[colon + 1] == ' ';
      out += std::string(line.substr(0, colon + 1)) + " " +
             EncodeEightBitWords(line.substr(colon + (blank ? 2 : 1))) + "\r\n";
    } else {
      out += std::string(line) + "\r\n";
    }
  }
  if (!has_message_id) {
    out += "Message-ID: " + std::string(kRequestMessageIdPrefix) + IdentifierInSubject(subject) +
           "." + std::string(stem) + "@" + std::string(hostname) + ">\r\n";
  }
  if (!has_auto_submitted) out += "Auto-Submitted: auto-replied\r\n";
  out += rest;
  return CrLfToLf(out);
}

}  // namespace quellor::bridge
