#include "spool/activity_log.h"

#include <functional>

#include "logs/logs.h"
#include "platform/files.h"
#include "platform/guard.h"
#include "platform/regional.h"
#include "platform/text.h"
#include "spool/stats.h"

namespace quellor {

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
