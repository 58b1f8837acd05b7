// The bounce stage: a postmaster returned one of our validation requests, so nobody will ever
// validate the held message. Its held pair is purged and the bounce itself is consumed.

#include <string>

#include "logs/logs.h"
#include "logs/retrying_files.h"
#include "platform/names.h"
#include "platform/text.h"
#include "spool/activity_log.h"
#include "spool/address.h"
#include "spool/ids.h"
#include "spool/stages.h"

namespace quellor {

void BounceStage(PassRun& p) {
  Context& ctx = p.ctx;
  PassState& s = p.s;

  // A second, independent opening of the envelope: only its first recipient counts.
  TextFile envelope;
  std::string line1;
  std::string line2;
  p.Step([&] { envelope = OpenFile(ctx, ctx.Path("IN/" + s.envelope_name), "INPUT", 3); });
  p.Step([&] { line1 = envelope.ReadLine(); });
  p.Step([&] { s.sender = Trim(line1); });
  p.Step([&] { line2 = envelope.ReadLine(); });
  p.Step([&] { s.recipient = Trim(ExtractAddress(line2, "@")); });
  p.Step([&] { s.user = ResolveAlias(ctx, s.recipient); });
  p.Step([&] { envelope.Close(); });

  // The subject from the component is searched as it is; without one the whole file is read,
  // which also finds the request quoted in the bounce's body.
  p.Step([&] {
    s.first_wait_id = s.subject.empty() ? findid(ctx, s.message_file) : findid2(ctx, s.subject);
  });
  p.Mark(4);

  if (s.first_wait_id.empty()) {
    // No identifier: the postmaster's message is ordinary mail.
    s.handled = false;
    return;
  }

  PurgeHeld(p, s.first_wait_id, "Ret." + s.message_file,
            "Deleted - <" + s.sender + "> to <" + s.recipient + "> - sender bounces validation");
  // The handled flag stays set: the bounce is never delivered.
}

void PurgeHeld(PassRun& p, const std::string& id, const std::string& origin,
               const std::string& line) {
  Context& ctx = p.ctx;
  PassState& s = p.s;
  // A mailbox name that could leave WAIT/ names no waiting area at all.
  if (SafeName(s.user)) {
    const std::string held = ctx.Path("WAIT/" + s.user + "/" + id);
    p.Step([&] {
      if (OrdinaryFileExists(held + ".WAI")) DeleteFile(ctx, held + ".WAI");
    });
    p.Step([&] {
      if (OrdinaryFileExists(held + ".EML")) DeleteFile(ctx, held + ".EML");
    });
  }
  p.Step([&] {
    if (ctx.window.purgedlist.Count() > 1000) ctx.window.purgedlist.Clear();
  });
  p.Step([&] {
    if (ctx.settings.DebugOn()) ctx.window.purgedlist.Add(origin + " - Orig." + s.user + "/" + id);
  });
  p.Step([&] { ctx.window.purged.Increment(); });
  p.Step([&] { ctx.window.todaypurged.Increment(); });
  p.Step([&] { Statuslog(ctx, line, 2, ".log"); });
}

}  // namespace quellor
