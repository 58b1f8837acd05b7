// Envelope recipient lines and the pass's own reading of the message headers.
#include "logs/retrying_files.h"
#include "mail/subject_decoder.h"
#include "platform/files.h"
#include "platform/names.h"
#include "platform/text.h"
#include "spool/address.h"
#include "spool/header_line.h"
#include "spool/ids.h"
#include "spool/stages.h"

namespace quellor {

namespace {
// Mid$(text, start, length) with a 1-based start: "" past the end, a negative length fails.
std::string Mid(const std::string& text, long start, long length) {
  if (start < 1 || length < 0) Raise(kErrInvalidCall);
  if (static_cast<size_t>(start) > text.size()) return "";
  return text.substr(static_cast<size_t>(start) - 1, static_cast<size_t>(length));
}

}  // namespace

void ReadRecipientLine(PassRun& p, const std::string& line) {
  PassState& s = p.s;
  p.Step([&] { s.recipient = Trim(ExtractAddress(line, "@")); });
  p.Step([&] { s.user = ResolveAlias(p.ctx, s.recipient); });
  p.Step([&] {
    // "u@x (v@y)": the text inside the parentheses is the address the sender wrote.
    if (!line.empty() && line.back() == ')') {
      const long rlen = static_cast<long>(s.recipient.size());
      s.request_address = Mid(line, rlen + 3, static_cast<long>(line.size()) - rlen - 3);
    } else {
      s.request_address = s.recipient;
    }
  });
}

void ReadHeaders(PassRun& p) {
  Context& ctx = p.ctx;
  PassState& s = p.s;
  p.Mark(8);
  const std::string message_path = ctx.Path("IN/" + s.message_file);
  TextFile file;
  LineFacts line;    // the last line read
  std::string text;  // the subject text
  size_t position = 0;
  bool leading_envelope = false;
  bool first_line = true;
  p.Step([&] { file = OpenFile(ctx, message_path, "INPUT", 2); });
  p.Mark(9);
  for (;;) {
    bool more = false;
    // A file that did not open ends the reading instead of looping on it.
    if (!p.Step([&] { more = !file.Eof() && position == 0; }) || !more) break;
    if (!p.Step([&] { line = ReadLineFacts(file); })) break;
    if (first_line) {
      first_line = false;
      const size_t colon = line.first_colon == 0 ? line.length : line.first_colon;
      const size_t blank = line.first_blank;
      if (blank != 0 && colon > blank) {
        // Not a header line: keep a copy of the message for the administrator.
        p.Step([&] { CopyFile(ctx, message_path, ctx.Path("DEBUG/" + s.message_file)); });
        p.Step([&] { ctx.window.kelpo.Increment(); });
      }
    }
    if (line.Start(5) == "From ") leading_envelope = true;
    if (UCase(line.Start(8)) == "SUBJECT:") {
      position = 1;
      SubjectHeaderText header(line);
      p.Step([&] { header.ReadContinuations(file); });
      text = header.Text();
    }
  }
  p.Step([&] { file.Close(); });
  p.Mark(10);

  if (leading_envelope) {
    // Strip the leading envelope line: copy everything after the first line feed into the
    // header copy, then let the copy take the message file's place.
    std::string copy_path;
    TextFile in;
    TextFile out;
    p.Step([&] { copy_path = ctx.Path("IN/" + WithoutExtension(s.message_file) + ".HDR"); });
    // A copy left by a rewrite that was cut short must not be appended to.
    p.Step([&] { DeleteFile(ctx, copy_path); });
    bool copied = p.Step([&] { in = OpenFile(ctx, message_path, "BINARY", 2); });
    copied = p.Step([&] { out = OpenFile(ctx, copy_path, "APPEND", 3); }) && copied;
    copied = p.Step([&] {
      const int64_t length = in.Length();
      while (in.Position() < length) {
        std::string block = in.ReadBlock(8192);
        if (block.empty()) break;
        if (in.Position() <= 8192) {
          const size_t lf = block.find('\n');
          if (lf != std::string::npos) block.erase(0, lf + 1);
        }
        out.Write(block);
      }
    }) && copied;
    p.Step([&] { in.Close(); });
    // The copy reaches the disk before the original goes, so a power cut cannot lose both.
    copied = p.Step([&] { out.Sync(); }) && copied;
    copied = p.Step([&] { out.Close(); }) && copied;
    if (copied) {
      p.Step([&] { DeleteFile(ctx, message_path); });
      p.Step([&] { NameFile(ctx, copy_path, message_path); });
    } else {
      // A copy cut short (a full disk) must not replace the message: it stays unstripped.
      p.Step([&] { DeleteFile(ctx, copy_path); });
    }
  }
  p.Mark(11);

  p.Step([&] {
    if (position == 0) {
      // Bare line-feed files arrive as one long line: the subject follows a line feed. Its text
      // starts eight places after that feed, at the colon, so it keeps a leading ":".
      position = line.lf_subject;
      if (position > 0) text = line.lf_text;
    }
    if (!text.empty() && text.back() == '\r') text.pop_back();
  });
  p.Mark(12);
  if (text.empty()) {
    s.wait_id.clear();
    return;
  }
  p.Mark(13);
  p.Step([&] {
    if (!text.empty() && text.back() == '\r') text.pop_back();
  });
  std::string decoded;
  p.Step([&] { decoded = DecodeSubject(ctx, text); });
  p.Step([&] { s.wait_id = IdFromSubjectText(decoded); });
  s.subject = decoded;
}

}  // namespace quellor
