#include "spool/header_line.h"

#include <algorithm>

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
          lf_text.assign(1, ':');
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

SubjectHeaderText::SubjectHeaderText(const LineFacts& subject_line) {
  if (subject_line.kept.size() > 8) text_ = subject_line.kept.substr(8);
  ended_ = text_.find('\n') != std::string::npos;
}

void SubjectHeaderText::ReadContinuations(TextFile& file) {
  while (!file.Eof()) {
    const LineFacts next = ReadLineFacts(file);
    std::string_view add = next.kept;
    if (!add.empty() && add[0] == ' ') {
      const size_t b = add.find_first_not_of(' ');
      add.remove_prefix(b == std::string_view::npos ? add.size() : b);
      // Trailing blanks are trimmed too; after a line feed they are never used anyway.
      if (add.find('\n') == std::string_view::npos) {
        while (!add.empty() && add.back() == ' ') add.remove_suffix(1);
      }
    } else if (!add.empty() && add[0] == '\t') {
      add.remove_prefix(1);
    } else {
      return;
    }
    if (!ended_ && text_.size() < kMaxLineText) {
      text_.append(add.substr(0, kMaxLineText - text_.size()));
      ended_ = add.find('\n') != std::string_view::npos;
    }
  }
}

std::string SubjectHeaderText::Text() const {
  return text_.substr(0, text_.find('\n'));
}

}  // namespace quellor
