#include "spool/header_line.h"

#include "platform/text.h"

namespace quellor {

namespace {
constexpr std::string_view kLfSubject = "\nSUBJECT:";
}  // namespace

void LineFacts::Feed(std::string_view piece) {
  // The line feed ends what is kept: nothing after the first one is ever read from the line.
  if (kept.empty() || kept.back() != '\n') {
    const size_t lf = piece.find('\n');
    const size_t want = lf == std::string_view::npos ? piece.size() : lf + 1;
    kept.append(
        piece.substr(0, std::min(want, kMaxLineText - std::min(kept.size(), kMaxLineText))));
  }
  for (size_t i = 0; i < piece.size(); ++i) {
    const char c = piece[i];
    const size_t at = length + i + 1;  // 1-based position in the line
    if (first_blank == 0 && c == ' ') first_blank = at;
    if (first_colon == 0 && c == ':') first_colon = at;
    if (lf_open_) {
      if (c == '\n') {
        lf_open_ = false;
      } else if (lf_text.size() < kMaxLineText) {
        lf_text += c;
      }
    } else if (lf_subject == 0) {
      // The pattern's first character occurs in it only once, so a mismatch restarts at 0 or 1.
      if (UpperChar(c) == kLfSubject[match_]) {
        if (++match_ == kLfSubject.size()) {
          lf_subject = at - kLfSubject.size() + 1;
          lf_text = ":";
          lf_open_ = true;
        }
      } else {
        match_ = c == '\n' ? 1 : 0;
      }
    }
  }
  length += piece.size();
}

LineFacts ReadLineFacts(TextFile& file) {
  LineFacts facts;
  file.ReadLinePieces([&](std::string_view piece) { facts.Feed(piece); });
  return facts;
}

}  // namespace quellor
