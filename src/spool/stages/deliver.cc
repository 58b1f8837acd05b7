// Delivery to the local queue: a new pair LOCAL/<id>.WAI and LOCAL/<id>.EML for one recipient.
#include <string>

#include "logs/logs.h"
#include "logs/retrying_files.h"
#include "platform/files.h"
#include "platform/message.h"
#include "platform/names.h"
#include "spool/activity_log.h"
#include "spool/stages.h"
#include "spool/stages/lines.h"

namespace quellor {

namespace {

struct RouteInfo {
  int16_t marker;
  bool forward;  // counted in Forward/todayforward here (the other routes are counted earlier)
  const char* suffix;
};

RouteInfo InfoOf(DeliveryRoute route) {
  switch (route) {
    case DeliveryRoute::kLearn:
      return {24, false, "> - learn mode"};
    case DeliveryRoute::kWhiteListed:
      return {31, false, "> - found in white list"};
    case DeliveryRoute::kForwardConfigured:
      return {32, true, "> - forward mode"};
    case DeliveryRoute::kForwardUnconfigured:
      break;
  }
  return {33, true, "> - forward mode"};
}

// The "Spam-Quellor" mark on the input message itself, before it is copied: messages under
// 1000 KB that the component can open. Each white-listed recipient adds its own line.
void MarkWhiteListed(PassRun& p, const std::string& message) {
  Context& ctx = p.ctx;
  if (!OpenForMarking(p, message)) return;
  p.Step([&] {
    ctx.component().AddHeader("Spam-Quellor",
                              OneLine(p.s.sender + " found in white list of " + p.s.recipient));
  });
  p.Step([&] { ctx.component().Save(message); });
}

}  // namespace

void Deliver(PassRun& p, DeliveryRoute route) {
  Context& ctx = p.ctx;
  PassState& s = p.s;
  const RouteInfo info = InfoOf(route);
  p.Mark(info.marker);
  if (info.forward) {
    p.Step([&] { ctx.window.Forward.Increment(); });
    p.Step([&] { ctx.window.todayforward.Increment(); });
  }

  std::string newid;
  p.Step([&] { newid = FreeQueueName(ctx, "LOCAL/"); });
  const std::string message = ctx.Path("IN/" + s.message_file);
  if (route == DeliveryRoute::kWhiteListed) MarkWhiteListed(p, message);

  // The envelope first: the host server takes a pair only when both files are there.
  const std::string local = ctx.Path("LOCAL/" + newid);
  TextFile envelope;
  p.BeginCopy();
  p.Step([&] { envelope = OpenNewFile(ctx, local + ".WAI", 1); });
  p.Step([&] { envelope.WriteLine(OneLine(s.sender)); });
  p.Step([&] { envelope.WriteLine(OneLine(s.recipient)); });
  p.Step([&] { envelope.Close(); });

  WriteLocalMessage(p, message, local);
  p.EndCopy();

  p.Step([&] {
    Statuslog(ctx, "Sent     - <" + s.sender + "> to <" + s.recipient + info.suffix, 2, ".log");
  });
}

}  // namespace quellor
