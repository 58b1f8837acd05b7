// Invalid validations: counted in `invalid`/`todayinvalid`, shown in the warnings list and
// written to the retry log.

#include "spool/stages/invalid.h"

#include <string>

#include "logs/logs.h"
#include "logs/retrying_files.h"
#include "platform/names.h"
#include "platform/regional.h"
#include "platform/text.h"

namespace quellor {

namespace {

// "dd/mm/yyyy,HH:MM:SS" of the warnings list.
std::string WarningStamp(Context& ctx) {
  const LocalTime now = ctx.clock.LocalNow();
  return ShortDate(now) + "," + LongTime(now);
}

// A name from mail data that cannot stay inside its folder names no file at all.
bool SafeFileExists(Context& ctx, const std::string& folder, const std::string& name,
                    const std::string& file) {
  return SafeName(name) && OrdinaryFileExists(ctx.Path(folder + name + "/" + file));
}

}  // namespace

void InvalidForeign(PassRun& p) {
  Context& ctx = p.ctx;
  PassState& s = p.s;
  p.Mark(20);
  p.Step([&] { ctx.window.invalid.Increment(); });
  p.Step([&] { ctx.window.todayinvalid.Increment(); });
  // The held sender named here is the one read last in this pass, not the one of this
  // identifier's envelope: kept as the operators know these lines.
  const std::string text = "$$Invalid Val - Wait id:" + s.wait_id + "|Val from: " + s.sender +
                           "-Wait from: " + s.last_held_sender;
  p.Step([&] {
    if (ctx.settings.DebugOn()) ctx.window.List3.Add(WarningStamp(ctx) + text);
  });
  p.Step([&] {
    if (ctx.settings.LogOn()) {
      std::string line = text;
      log(ctx, line, 1, ".iwr");
    }
  });
}

void InvalidNonexistent(PassRun& p) {
  Context& ctx = p.ctx;
  PassState& s = p.s;
  const std::string id = Trim(s.wait_id);

  // All three tests are always made.
  bool sender_holds = false;
  bool sender_configured = false;
  bool marker = false;
  p.Step([&] { sender_holds = SafeFileExists(ctx, "WAIT/", s.sender, id + ".WAI"); });
  p.Step([&] {
    sender_configured =
        SafeName(s.sender) && OrdinaryFileExists(ctx.Path(ctx.users + "/" + s.sender + ".CONF"));
  });
  p.Step([&] { marker = SafeFileExists(ctx, "WAIT/", s.user, id + ".SOD"); });

  if (!((!sender_holds && sender_configured) || marker)) return;  // ordinary routing

  s.handled = true;
  p.Step([&] { ctx.window.invalid.Increment(); });
  p.Step([&] { ctx.window.todayinvalid.Increment(); });
  const std::string text =
      "$$Invalid Val - Nonexistent Wait id:" + s.wait_id + "|Val from: " + s.sender;
  p.Step([&] {
    if (ctx.settings.DebugOn()) {
      ctx.window.List3.Add(WarningStamp(ctx) + text + "|Val to: " + s.recipient);
    }
  });
  p.Step([&] {
    if (ctx.settings.LogOn()) {
      std::string line = text;
      log(ctx, line, 1, ".iwr");
    }
  });
  p.Step([&] {
    if (SafeFileExists(ctx, "WAIT/", s.user, id + ".SOD")) {
      DeleteFile(ctx, ctx.Path("WAIT/" + s.user + "/" + id + ".SOD"));
    }
  });
}

}  // namespace quellor
