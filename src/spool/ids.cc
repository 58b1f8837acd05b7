#include "spool/ids.h"

#include "logs/retrying_files.h"
#include "platform/files.h"
#include "platform/names.h"
#include "platform/regional.h"
#include "platform/text.h"
#include "spool/header_line.h"

namespace quellor {

namespace {
constexpr std::string_view kMarkerUpper = "REQUEST-ID:";
}  // namespace

std::string nextid(Context& ctx) {
  Guard guard(ctx.error_sink(), "Quellor - nextid");
  std::string candidate;
  bool all_exist = false;
  do {
    guard([&] {
      const LocalTime now = ctx.clock.LocalNow();
      const int number = static_cast<int>(1000 * ctx.Rnd()) + 1;
      candidate = CompactDate(now) + CompactTime(now) + std::to_string(number);
    });
    all_exist = false;
    guard([&] {
      // Combined with a logical and on purpose: a candidate is drawn again only when all nine
      // files exist, so a name that one queue already holds can come back.
      bool all = true;
      for (const char* folder : {"IN/", "OUT/", "LOCAL/"}) {
        for (const char* ext : {".WAI", ".EML", ".TMP"}) {
          all = all && AnyFileExists(ctx.Path(std::string(folder) + candidate + ext));
        }
      }
      all_exist = all;
    });
  } while (all_exist);
  return candidate;
}

std::string IdFromSubjectText(std::string_view text) {
  std::string s = ReplaceAll(text, " ", "");
  s = ReplaceAll(s, "\t", "");
  s += '\r';
  const std::string upper = UCase(s);
  const size_t p = InStr(upper, kMarkerUpper);
  if (p == 0) return "";
  const size_t from = p + kMarkerUpper.size();  // 1-based start of the value
  const size_t q = InStr(upper, "\r", from);
  const std::string value = Trim(s.substr(from - 1, q - from));
  std::string id;
  for (char c : value) {
    if (c < '0' || c > '9') break;
    id += c;
  }
  return id;
}

std::string findid2(Context& ctx, std::string& ssubject) {
  Guard guard(ctx.error_sink(), "Quellor - findid2");
  std::string id;
  guard([&] {
    if (!ssubject.empty() && ssubject.back() == '\r') ssubject.pop_back();
  });
  guard([&] { id = IdFromSubjectText(ssubject); });
  return id;
}

std::string findid(Context& ctx, std::string& mail) {
  Guard guard(ctx.error_sink(), "Quellor - findid");
  TextFile file;
  std::string result;
  guard([&] { file = OpenFile(ctx, ctx.Path("IN/" + mail), "INPUT", 4); });
  for (;;) {
    bool more = false;
    // A file that did not open (or cannot be read) ends the search instead of looping on it.
    if (!guard([&] { more = !file.Eof() && result.empty(); }) || !more) break;

    // Lines are read in pieces: a message of one huge line is never held whole.
    LineFacts line;
    std::string text;
    bool found = false;
    const bool read = guard([&] {
      while (!file.Eof()) {
        line = ReadLineFacts(file);
        if (UCase(line.Start(8)) == "SUBJECT:") {
          found = true;
          SubjectHeaderText header(line);
          header.ReadContinuations(file);
          text = header.Text();
          break;
        }
      }
    });
    if (!read) break;

    // Files with bare line feeds arrive as one long line: the subject position is then the line
    // feed before "SUBJECT:", so the text starts at the colon.
    guard([&] {
      if (!found && line.lf_subject > 0) text = line.lf_text;
      if (!text.empty() && text.back() == '\r') text.pop_back();
    });
    guard([&] {
      if (!text.empty()) result = IdFromSubjectText(text);
    });
  }
  guard([&] { file.Close(); });
  return result;
}

}  // namespace quellor
