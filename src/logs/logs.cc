#include "logs/logs.h"

#include <exception>

#include "logs/stats.h"
#include "platform/files.h"
#include "platform/guard.h"
#include "platform/regional.h"
#include "platform/text.h"

namespace quellor {

namespace {

// A text written as one line of a log: a CR, LF or NUL inside it becomes a blank, so that no
// text taken from mail can add lines of its own.
std::string OneLine(std::string_view text) {
  std::string line(text);
  for (char& c : line) {
    if (c == '\r' || c == '\n' || c == '\0') c = ' ';
  }
  return line;
}

// Removes a trailing CR LF (only when the text has at least those two characters).
void StripLineEnd(std::string& text) {
  if (text.size() >= 2 && text.compare(text.size() - 2, 2, "\r\n") == 0) {
    text.resize(text.size() - 2);
  }
}

}  // namespace

void ErrorLog(Context& ctx, const std::string& label, int number, const std::string& description) {
  std::string line = GeneralDateTime(ctx.clock.LocalNow()) + " : " + label + " - #" +
                     SignedText(number) + " - " + description;
  try {
    TextFile file = TextFile::Open(ctx.Path("LOG/system.log"), OpenMode::kAppend);
    file.WriteLine(OneLine(line));
    file.Close();
  } catch (const std::exception&) {
    // Kept as the service has always behaved: the failure reaches the caller, past its error
    // handler, and can cut a pass short between a delivery and the removal of its input pair.
    if (!ctx.settings.SafeDeliveryOn()) throw;
    ctx.Journal(OneLine(line));
  }
}

void log(Context& ctx, std::string& text, int /*level*/, std::string_view extension) {
  Guard guard(ctx.error_sink(), "Quellor - log");
  StripLineEnd(text);
  LocalTime now = ctx.clock.LocalNow();
  std::string path = ctx.Path("LOG/quellor/" + DayFileName(now) + std::string(extension));
  TextFile file;
  // Each statement on its own: a file that did not open makes the write fail as well.
  guard([&] { file = TextFile::Open(path, OpenMode::kAppend); });
  guard([&] { file.WriteLine(OneLine(LongTime(now) + "  " + text)); });
  guard([&] { file.Close(); });
}

void Statuslog(Context& ctx, std::string text, int /*level*/, std::string_view extension) {
  std::string user;
  // The first failure ends the call; its description is logged with one blank in front.
  Guard guard(
      [&ctx](const std::string& label, int number, const std::string& description) {
        ErrorLog(ctx, label, number, " " + description);
      },
      std::function<std::string()>([&user] { return "Statuslog - log:" + user; }));
  guard([&] {
    StripLineEnd(text);
    text = ReplaceAll(text, "Sent ", "Received ");
    text = ReplaceAll(text, "Queued ", "Delayed ");
    text = ReplaceAll(text, "forward mode", "protection off");
    LocalTime now = ctx.clock.LocalNow();
    TextFile file = TextFile::Open(ctx.Path("LOG/" + DayFileName(now) + std::string(extension)),
                                   OpenMode::kAppend);
    file.WriteLine(OneLine(LongTime(now) + " " + text));
    file.Close();
    UpdateStatistics(ctx, text, user);
  });
}

}  // namespace quellor
