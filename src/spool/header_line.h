#pragma once
// LineFacts: what the pass's header reading needs to know of one message line, gathered from the
// line in pieces so that a line as long as the message is never held whole.

#include <cstddef>
#include <string>
#include <string_view>

#include "platform/files.h"

namespace quellor {

// The most of a line's text that is kept. Postfix keeps at most 100 KB of a whole header block,
// so no subject of real mail comes near it; anything longer is cut here.
inline constexpr size_t kMaxLineText = 1 << 20;

struct LineFacts {
  std::string kept;        // the line up to its first line feed (included), at most kMaxLineText
  size_t length = 0;       // the whole line's length
  size_t first_blank = 0;  // 1-based positions of the first blank and colon; 0 when none
  size_t first_colon = 0;
  size_t lf_subject =
      0;                // 1-based position of the first line feed followed by "SUBJECT:" (any case)
  std::string lf_text;  // the text from that colon up to the next line feed, at most kMaxLineText

  // Takes the next piece of the line.
  void Feed(std::string_view piece);
  // The line's first characters (at most n), as Left$ gives them.
  std::string_view Start(size_t n) const { return std::string_view(kept).substr(0, n); }

 private:
  size_t match_ = 0;  // characters of "\nSUBJECT:" matched so far
  bool lf_open_ = false;
};

// Reads the next line of a file opened for input (raises as ReadLine does).
LineFacts ReadLineFacts(TextFile& file);

// The text of a subject header after "SUBJECT:" up to its first line feed: the header line and
// its continuation lines (a blank-led line trimmed, a tab-led one without its tab) joined.
class SubjectHeaderText {
 public:
  explicit SubjectHeaderText(const LineFacts& subject_line);
  // Reads the continuation lines and the line that ends the header (which is discarded). On a
  // failed read the text holds what was read before it.
  void ReadContinuations(TextFile& file);
  // The text up to its first line feed.
  std::string Text() const;

 private:
  std::string text_;
  bool ended_ = false;  // the text holds a line feed: nothing after it is needed
};

}  // namespace quellor
