// The processing pass: takes the pairs of IN/ oldest name first, routes every recipient line of
// each and removes the pair.
#include "spool/pass.h"

#include <chrono>
#include <string>
#include <vector>

#include "logs/retrying_files.h"
#include "platform/errors.h"
#include "platform/files.h"
#include "platform/message.h"
#include "platform/names.h"
#include "platform/text.h"
#include "platform/tree_lock.h"
#include "spool/ids.h"
#include "spool/input_pair.h"
#include "spool/pass_run.h"
#include "spool/stages.h"

namespace quellor {

namespace {

// The status lists are cleared above this many entries.
constexpr int kListLimit = 1000;

// Left$(name, Len(name) - 4): fails on a name shorter than its extension.
std::string WithoutExtension(const std::string& name) {
  if (name.size() < 4) Raise(kErrInvalidCall);
  return name.substr(0, name.size() - 4);
}

// The recipient loop over the envelope lines after the sender.
void RecipientLoop(PassRun& p, TextFile& envelope) {
  Context& ctx = p.ctx;
  PassState& s = p.s;
  for (;;) {
    bool more = false;
    // An envelope that did not open ends the loop instead of spinning on it; its recipients
    // that were not read leave the message unfinished.
    if (!p.Step([&] { more = !envelope.Eof(); })) return p.Unfinished(0);
    if (!more) break;
    std::string line;
    if (!p.Step([&] { line = envelope.ReadLine(); })) return p.Unfinished(0);
    ReadRecipientLine(p, line);
    CountDomains(p);
    if (s.subject.empty()) {
      // Read again for every recipient while no subject is known.
      ReadHeaders(p);
    } else {
      p.Step([&] { s.wait_id = findid2(ctx, s.subject); });
    }
    p.Mark(14);
    // A recipient whose message carries a wait identifier is a validation reply.
    ReplyStage(p);
    RouteRecipient(p);
  }
}

// One input pair, from the pause before it to the refreshed listing after it.
void OneMessage(PassRun& p) {
  Context& ctx = p.ctx;
  PassState& s = p.s;
  WindowModel& w = ctx.window;

  p.Step([&] { ctx.sleeper.Sleep(std::chrono::milliseconds(ctx.pause_ms)); });
  s.handled = false;
  // The pass always takes the head of the listing, which is refreshed after every message.
  p.Step([&] { s.message_file = w.File1.At(0); });
  p.Step([&] { s.envelope_name = WithoutExtension(s.message_file) + ".WAI"; });
  p.Mark(2);
  s.subject.clear();

  const std::string message_path = ctx.Path("IN/" + s.message_file);
  const std::string envelope_path = ctx.Path("IN/" + s.envelope_name);
  bool complete = false;
  p.Step([&] {
    complete = SafeName(s.message_file) && SafeName(s.envelope_name) &&
               OrdinaryFileExists(message_path) && OrdinaryFileExists(envelope_path);
  });

  if (complete) {
    p.Step([&] {
      MessageComponent& component = ctx.component();
      if (component.Open(message_path) == 0) s.subject = component.Subject();
    });

    TextFile envelope;
    p.Step([&] { envelope = OpenFile(ctx, envelope_path, "INPUT", 1); });
    p.Step([&] { s.sender = Trim(envelope.ReadLine()); });

    // Every entry is compared, exactly and with its letter case.
    p.Step([&] {
      for (const std::string& postmaster : w.List1.items()) {
        if (Trim(postmaster) == s.sender) s.handled = true;
      }
    });
    p.Mark(3);

    if (s.handled) BounceStage(p);
    p.Mark(5);
    // A bounce of one of our requests is consumed whole.
    if (!s.handled) RecipientLoop(p, envelope);

    p.Mark(35);
    p.Step([&] { envelope.Close(); });
  }

  // Everything written for this pair reaches the disk before the pair goes, so a crash at any
  // moment leaves the message in IN/ or in its new places.
  p.FlushWritten();
  SettleInputPair(p, complete);

  p.Step([&] { w.total.Decrement(); });
  // The next head may be a pair the host server dropped meanwhile with a lower name.
  p.Step([&] { RefreshInputListing(ctx); });
  p.Mark(36);
}

// A rewrite of a message file (the stripping of a leading envelope line) that was cut short
// between the removal of the old file and the renaming of its complete copy leaves
// IN/<stem>.HDR beside the envelope and no message file; the copy takes the message file's name
// again, so a later pass takes the pair instead of leaving it unlisted forever.
void RecoverRewrites(PassRun& p) {
  Context& ctx = p.ctx;
  std::vector<std::string> copies;
  p.Step([&] { copies = ListFiles(ctx.Path("IN"), "*.HDR"); });
  for (const std::string& copy : copies) {
    p.Step([&] {
      const std::string stem = ctx.Path("IN/" + WithoutExtension(copy));
      if (OrdinaryFileExists(stem + ".WAI") && !AnyFileExists(stem + ".EML")) {
        NameFile(ctx, ctx.Path("IN/" + copy), stem + ".EML");
      }
    });
  }
}

}  // namespace

void quellor(Context& ctx) {
  // Never beside another process's pass, nor beside an administrator's release or drop. A lock
  // file that cannot be opened does not stop the pass.
  const TreeLock lock(ctx.root);
  PassRun p(ctx);
  WindowModel& w = ctx.window;
  p.Mark(1);
  // The reply flag lives for the whole pass: cleared here only.
  p.s.reply = false;

  // The 16-bit entry counts, more than the limit (not the limit itself).
  p.Step([&] {
    if (w.List2.Count() > kListLimit) w.List2.Clear();
  });
  p.Step([&] {
    if (w.List3.Count() > kListLimit) w.List3.Clear();
  });
  // At most 40 messages a pass (MESSAGES_PER_PASS may say otherwise); the rest wait for the
  // next pass.
  p.Step([&] {
    const int most = ctx.settings.MessagesPerPass();
    if (w.total.Value() > most) w.total.Set(std::to_string(most));
  });

  RecoverRewrites(p);

  for (;;) {
    bool more = false;
    // A counter that cannot be read ends the pass rather than looping on it.
    if (!p.Step([&] { more = w.total.Value() > 0; }) || !more) break;
    bool left = true;
    p.Step([&] { left = SkipPassedOver(ctx); });
    if (!left) break;
    OneMessage(p);
  }
}

}  // namespace quellor
