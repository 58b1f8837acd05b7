#include "service/startup.h"

#include <chrono>
#include <cstdint>
#include <string>
#include <vector>

#include "config/readini.h"
#include "logs/error_sink.h"
#include "platform/guard.h"
#include "platform/names.h"
#include "platform/text.h"
#include "service/scheduler.h"
#include "spool/lists.h"

namespace quellor {

void LoadStartup(Context& ctx) {
  Guard step(CarryOnSink(ctx), "Quellor - Form_Load");
  WindowModel& w = ctx.window;

  step([&] {
    ctx.pause_ms = 100;
    ctx.users = "Users";
  });
  step([&] { ctx.marker = "Request-ID:"; });
  step([&] {
    ctx.settings.log = "ON";
    ctx.settings.debug = "OFF";
  });
  step([&] { readini(ctx); });
  // The classic 100 milliseconds unless the administrator paced the passes otherwise.
  step([&] { ctx.pause_ms = ctx.settings.MessagePauseMs(); });
  step([&] { w.List1.Clear(); });
  step([&] { ScanEmailsinString(ctx, ctx.settings.postmasters, ""); });
  // The input listing and the queue count; a missing IN/ is logged and `total` stays as it was.
  step([&] { CountQueue(ctx); });
  step([&] {
    const auto ticks = std::chrono::steady_clock::now().time_since_epoch().count();
    ctx.Seed(static_cast<uint64_t>(ticks) ^ static_cast<uint64_t>(ctx.clock.Now()));
  });
  step([&] { ctx.reset_day = DayNumber(ctx.clock.LocalNow()); });
  // Only exactly "OFF" hides the window: "off" or any other value leaves it visible.
  step([&] { w.visible = ctx.settings.debug != "OFF"; });
}

}  // namespace quellor
