// Validation replies: a reply naming a held message releases every message that the held
// message's sender has waiting for that recipient, and white-lists that sender.

#include <string>
#include <vector>

#include "core/context.h"
#include "logs/logs.h"
#include "logs/retrying_files.h"
#include "platform/files.h"
#include "platform/fs.h"
#include "platform/message.h"
#include "platform/names.h"
#include "platform/regional.h"
#include "platform/text.h"
#include "spool/activity_log.h"
#include "spool/address.h"
#include "spool/lists.h"
#include "spool/stages.h"
#include "spool/stages/invalid.h"
#include "spool/stages/lines.h"

namespace quellor {

namespace {

// The actual path of an existing file, or the path as asked.
std::string Actual(const std::string& path) {
  return ResolveExisting(path).value_or(path);
}

// One listed held envelope, as the release loop reads it.
struct HeldEnvelope {
  std::string name;  // "<id>.WAI" as listed
  std::string sender;
  std::string recipient;
  std::string subject;  // "" when the envelope has no third line
};

// Reads a listed envelope; line 1 becomes the pass's last-read held sender.
HeldEnvelope ReadListed(PassRun& p, const std::string& folder, const std::string& name) {
  HeldEnvelope held;
  held.name = name;
  TextFile file;
  p.Step([&] { file = OpenFile(p.ctx, folder + name, "INPUT", 2); });
  p.Step([&] {
    held.sender = file.ReadLine();
    p.s.last_held_sender = held.sender;
  });
  p.Step([&] { held.recipient = file.ReadLine(); });
  p.Step([&] {
    if (!file.Eof()) held.subject = file.ReadLine();
  });
  p.Step([&] { file.Close(); });
  p.Mark(17);
  return held;
}

// Marks the held message for its recipient: the "(New in white list) " subject when the held
// envelope has one, and the "Spam-Quellor" header. Large or unreadable messages stay unmarked.
void MarkReleased(PassRun& p, const std::string& message, const HeldEnvelope& held) {
  Context& ctx = p.ctx;
  if (!OpenForMarking(p, message)) return;
  MessageComponent& component = ctx.component();
  if (!held.subject.empty()) {
    p.Step([&] { component.RemoveHeader("Subject"); });
    p.Step([&] { component.AddHeader("Subject", OneLine("(New in white list) " + held.subject)); });
  }
  p.Step([&] {
    component.AddHeader("Spam-Quellor",
                        OneLine(held.sender + " found in white list of " + p.s.recipient));
  });
  p.Step([&] { component.Save(message); });
}

// Releases one held pair into LOCAL/ under a fresh name.
void Release(PassRun& p, const std::string& folder, const HeldEnvelope& held,
             const std::string& held_sender) {
  Context& ctx = p.ctx;
  PassState& s = p.s;
  p.Step([&] { ctx.window.Validations.Increment(); });
  p.Step([&] { ctx.window.todayvalidations.Increment(); });
  p.Step([&] {
    if (ctx.settings.DebugOn()) {
      ctx.window.List2.InsertTop(GeneralDateTime(ctx.clock.LocalNow()) + " Valid: " + held_sender +
                                 " -> " + s.recipient);
    }
  });
  p.Step([&] {
    if (ctx.settings.LogOn()) {
      std::string text = "Validation: " + held_sender + " to " + s.recipient;
      log(ctx, text, 1, ".iwr");
    }
  });

  const std::string envelope = Actual(folder + held.name);
  const std::string message = Actual(folder + WithoutExtension(held.name) + ".EML");
  std::string newid;
  p.Step([&] { newid = FreeQueueName(ctx, "LOCAL/"); });
  p.Mark(18);
  MarkReleased(p, message, held);

  // The envelope keeps its three lines: released mail carries its subject to the host.
  const std::string local = ctx.Path("LOCAL/" + newid);
  const std::string local_envelope = local + ".WAI";
  const std::string local_message = local + ".EML";
  p.Step([&] { CopyNewFile(ctx, envelope, local_envelope); });
  WriteLocalMessage(p, message, local);

  // The held pair goes only once both copies are safely on the disk: a copy that gave up must
  // not cost the message, which then simply stays held.
  bool copied = false;
  p.Step([&] {
    copied = AnyFileExists(local_envelope) && AnyFileExists(local_message);
    if (copied) p.FlushWritten();
  });
  if (copied) {
    p.Step([&] { DeleteFile(ctx, message); });
    p.Step([&] { DeleteFile(ctx, envelope); });
  }
  p.Step([&] {
    Statuslog(ctx,
              "Sent     - <" + held.sender + "> to <" + held.recipient + "> - validation received",
              2, ".log");
  });
}

// Puts the held sender on the recipient's own white list unless some white list has it.
void WhiteList(PassRun& p, const std::string& held_sender) {
  Context& ctx = p.ctx;
  const std::string users = ctx.Path(ctx.users + "/");
  const std::string own = users + p.s.user + ".WLT";
  if (WhiteListed(p, p.s.user, held_sender)) return;

  AppendListLine(p, own, held_sender);
}

}  // namespace

void ReplyStage(PassRun& p) {
  Context& ctx = p.ctx;
  PassState& s = p.s;
  if (s.wait_id.empty()) return;
  s.reply = true;

  const std::string id = Trim(s.wait_id);
  bool exists = false;
  // A mailbox name that could leave WAIT/ has no waiting area.
  p.Step([&] {
    exists = SafeName(s.user) && SafeName(id + ".WAI") &&
             OrdinaryFileExists(ctx.Path("WAIT/" + s.user + "/" + id + ".WAI"));
  });
  if (!exists) {
    InvalidNonexistent(p);
    return;
  }

  p.Mark(15);
  s.handled = true;
  const std::string folder = ctx.Path("WAIT/" + s.user + "/");
  std::string held_sender;
  std::string held_recipient;
  TextFile envelope;
  p.Step([&] { envelope = OpenFile(ctx, folder + id + ".WAI", "INPUT", 2); });
  p.Step([&] { held_sender = envelope.ReadLine(); });
  p.Step([&] { held_recipient = envelope.ReadLine(); });
  p.Step([&] { envelope.Close(); });

  if (UCase(s.recipient) != UCase(held_recipient)) {
    InvalidForeign(p);
    return;
  }
  ReleaseHeldSender(p, held_sender);
}

void ReleaseHeldSender(PassRun& p, const std::string& held_sender) {
  const std::string folder = p.ctx.Path("WAIT/" + p.s.user + "/");
  // Every message of the held sender to this recipient, whichever identifier the reply named.
  std::vector<std::string> listed;
  p.Step([&] { listed = ListFiles(folder, "*.WAI"); });
  p.Mark(16);
  const size_t count = listed.size();
  for (size_t i = 0; i < count; ++i) {
    const HeldEnvelope held = ReadListed(p, folder, listed[i]);
    if (UCase(held.sender) == UCase(held_sender) && UCase(held.recipient) == UCase(p.s.recipient)) {
      Release(p, folder, held, held_sender);
    }
  }

  p.Mark(19);
  WhiteList(p, held_sender);
}

}  // namespace quellor
