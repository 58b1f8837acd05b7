#include "logs/logs.h"

#include <exception>

#include "platform/files.h"
#include "platform/guard.h"
#include "platform/regional.h"
#include "platform/text.h"

namespace quellor {

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

}  // namespace quellor
