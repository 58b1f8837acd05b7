// Quarantine and the validation-request throttle: the message waits in WAIT/<user>/ under its
// input stem, and its sender gets at most one validation request a day per recipient.
#include <chrono>
#include <string>
#include <vector>

#include "logs/logs.h"
#include "logs/retrying_files.h"
#include "platform/errors.h"
#include "platform/files.h"
#include "platform/names.h"
#include "platform/regional.h"
#include "platform/text.h"
#include "spool/activity_log.h"
#include "spool/stages.h"
#include "spool/stages/lines.h"

namespace quellor {

namespace {

// Copies the input pair's message into the waiting area with the three-line held envelope.
void WriteHeld(PassRun& p, const std::string& folder) {
  Context& ctx = p.ctx;
  PassState& s = p.s;
  p.Mark(2503);
  p.BeginCopy();
  p.Step([&] { MakeMissingFolder(ctx, folder.substr(0, folder.size() - 1)); });
  p.Mark(2504);
  TextFile envelope;
  p.Step([&] { envelope = OpenFile(ctx, folder + s.wait_id + ".WAI", "OUTPUT", 2); });
  p.Step([&] { envelope.WriteLine(OneLine(s.sender)); });
  p.Step([&] { envelope.WriteLine(OneLine(s.recipient)); });
  p.Step([&] { envelope.WriteLine(OneLine(s.subject)); });
  p.Step([&] { envelope.Close(); });
  p.Step([&] {
    CopyFile(ctx, ctx.Path("IN/" + s.message_file), folder + s.message_file, CopyHow::kShareInput);
  });
  p.EndCopy();
  p.Mark(2505);
  p.Step([&] {
    Statuslog(ctx, "Queued - <" + s.sender + "> to <" + s.recipient + "> - wait for validation", 2,
              ".log");
  });
}

// Today's held envelopes of this sender to this recipient, counted up to 2.
int16_t TodaysHeld(PassRun& p, const std::string& folder) {
  Context& ctx = p.ctx;
  PassState& s = p.s;
  const LocalTime now = ctx.clock.LocalNow();
  std::vector<std::string> listed;
  p.Step([&] { listed = ListFiles(folder, CompactDate(now) + "*.WAI"); });
  int16_t count = 0;
  p.Mark(26);
  for (size_t i = 0; i < listed.size() && count < 2; ++i) {
    p.Step([&] { ctx.sleeper.Sleep(std::chrono::milliseconds(ctx.pause_ms / 10)); });
    p.Step([&] {
      const std::string path = folder + Trim(listed[i]);
      // Named with today's date but written another day (a clock change) does not count.
      if (!OrdinaryFileExists(path)) return;
      if (ShortDate(ctx.clock.ToLocal(FileModified(path))) != ShortDate(now)) return;
      TextFile file = OpenFile(ctx, path, "INPUT", 3);
      const std::string sender = file.ReadLine();
      // The throttle's read is also the held sender that invalid-validation warnings name.
      s.last_held_sender = sender;
      const std::string recipient = file.ReadLine();
      file.Close();
      if (UCase(sender) == UCase(s.sender) && UCase(recipient) == UCase(s.recipient)) ++count;
    });
  }
  p.Mark(27);
  return count;
}

}  // namespace

void Hold(PassRun& p, bool validation_off) {
  Context& ctx = p.ctx;
  PassState& s = p.s;
  p.Mark(2501);
  p.Step([&] { s.wait_id = WithoutExtension(Trim(s.message_file)); });
  p.Mark(2502);

  // A mailbox name that could leave WAIT/ has no waiting area.
  const bool safe = SafeName(s.user);
  const std::string folder = ctx.Path("WAIT/" + s.user + "/");
  // Kept as the pass has always behaved: after a reply in this pass, later held messages are not
  // written into the waiting area (they go with their input pair), yet their senders still get
  // a validation request. SAFE_DELIVERY=ON keeps them.
  if ((!s.reply || ctx.settings.SafeDeliveryOn()) && safe) WriteHeld(p, folder);

  p.Mark(2506);
  const int16_t count = safe ? TodaysHeld(p, folder) : 0;
  // The message just held is one of today's envelopes: a count of 1 means it is the first.
  if (count <= 1 && !validation_off) {
    // A request to an empty sender, or one that holds no address, could never arrive: the mail
    // stays held, and no request goes out.
    if (s.sender.find('@') == std::string::npos) {
      // Worded without "to <" so that the user's statistics count nothing for it.
      p.Step([&] {
        Statuslog(ctx,
                  "No request - <" + OneLine(s.sender) + "> is no address, held for <" +
                      s.recipient + ">",
                  2, ".log");
      });
      return;
    }
    // Opt-in: robots get no request either; their mail stays held like any other.
    std::string robot;
    if (ctx.settings.ChallengeFilterOn()) robot = RobotMail(p);
    if (!robot.empty()) {
      p.Step([&] {
        Statuslog(ctx,
                  "No request - <" + OneLine(s.sender) + "> is a robot (" + robot +
                      "), held for <" + s.recipient + ">",
                  2, ".log");
      });
      return;
    }
    ComposeRequest(p);
  }
}

}  // namespace quellor
