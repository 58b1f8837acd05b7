#include "bridge/bounce_scan.h"

#include <gmime/gmime.h>

#include <vector>

#include "platform/text.h"

namespace quellor::bridge {

namespace {

bool StartsWithNoCase(std::string_view line, std::string_view prefix) {
  return line.size() >= prefix.size() && UCase(line.substr(0, prefix.size())) == UCase(prefix);
}

// The lines of a CR LF text, without their ends.
std::vector<std::string_view> Lines(std::string_view text) {
  std::vector<std::string_view> lines;
  size_t at = 0;
  while (at < text.size()) {
    size_t end = text.find("\r\n", at);
    if (end == std::string_view::npos) end = text.size();
    lines.push_back(text.substr(at, end - at));
    at = end + 2;
  }
  return lines;
}

// The value of the header line at `i` with its continuation lines joined; `next` receives the
// index of the first line after it.
std::string UnfoldedValue(const std::vector<std::string_view>& lines, size_t i, size_t* next) {
  std::string_view first = lines[i];
  const size_t colon = first.find(':');
  std::string value(first.substr(colon + 1));
  size_t j = i + 1;
  for (; j < lines.size() && IsContinuationLine(lines[j]); ++j) value += lines[j];
  *next = j;
  return value;
}

// Index of the empty line that ends the header block (lines.size() when there is none).
size_t HeaderEnd(const std::vector<std::string_view>& lines) {
  for (size_t i = 0; i < lines.size(); ++i) {
    if (lines[i].empty()) return i;
  }
  return lines.size();
}

}  // namespace

std::string IdentifierInSubject(std::string_view subject) {
  std::string packed;
  for (char c : subject) {
    if (c != ' ' && c != '\t') packed += c;
  }
  const size_t at = InStrNoCase(packed, kRequestMarker);
  if (at == 0) return "";
  std::string id;
  for (size_t i = at - 1 + kRequestMarker.size(); i < packed.size(); ++i) {
    if (packed[i] < '0' || packed[i] > '9') break;
    id += packed[i];
  }
  return id;
}

std::string DecodeWords(std::string_view value) {
  g_mime_init();
  const std::string text(value);
  char* decoded = g_mime_utils_header_decode_text(nullptr, text.c_str());
  std::string out = decoded ? decoded : text;
  g_free(decoded);
  return out;
}

QuotedRequest FindQuotedRequest(std::string_view message) {
  QuotedRequest found;
  const std::vector<std::string_view> lines = Lines(message);
  const size_t header_end = HeaderEnd(lines);
  for (size_t i = 0, next; i < header_end; i = next) {
    next = i + 1;
    if (!StartsWithNoCase(lines[i], "Subject:")) continue;
    found.id = IdentifierInSubject(DecodeWords(UnfoldedValue(lines, i, &next)));
    if (!found.id.empty()) {
      found.in_top_subject = true;
      return found;
    }
  }
  for (size_t i = header_end, next; i < lines.size(); i = next) {
    next = i + 1;
    if (!StartsWithNoCase(lines[i], "Subject:")) continue;
    found.id = IdentifierInSubject(DecodeWords(UnfoldedValue(lines, i, &next)));
    if (!found.id.empty()) return found;
  }
  // Some reports quote only a few headers: our request's Message-ID names the identifier too.
  for (size_t at = message.find(kRequestMessageIdPrefix); at != std::string_view::npos;
       at = message.find(kRequestMessageIdPrefix, at + 1)) {
    size_t i = at + kRequestMessageIdPrefix.size();
    std::string id;
    while (i < message.size() && message[i] >= '0' && message[i] <= '9') id += message[i++];
    if (!id.empty() && i < message.size() && message[i] == '.') {
      found.id = id;
      return found;
    }
  }
  return found;
}

std::string MarkReturnedRequest(std::string_view message, std::string_view id) {
  const std::vector<std::string_view> lines = Lines(message);
  const size_t header_end = HeaderEnd(lines);
  const std::string suffix = " // " + std::string(kRequestMarker) + std::string(id);
  std::string out;
  bool marked = false;
  size_t consumed = 0;  // bytes of `message` taken over so far
  for (size_t i = 0, next; i < header_end; i = next) {
    next = i + 1;
    if (marked || !StartsWithNoCase(lines[i], "Subject:")) continue;
    const std::string value = UnfoldedValue(lines, i, &next);
    const size_t begin = static_cast<size_t>(lines[i].data() - message.data());
    const size_t end =
        static_cast<size_t>(lines[next - 1].data() - message.data()) + lines[next - 1].size();
    out += message.substr(consumed, begin - consumed);
    out += "Subject: " + Trim(value) + suffix;
    consumed = end;
    marked = true;
  }
  if (!marked) return "Subject: Returned mail" + suffix + "\r\n" + std::string(message);
  out += message.substr(consumed);
  return out;
}

}  // namespace quellor::bridge
