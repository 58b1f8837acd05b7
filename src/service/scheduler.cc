#include "service/scheduler.h"

#include <string>
#include <utility>
#include <vector>

#include "logs/error_sink.h"
#include "platform/errors.h"
#include "platform/guard.h"
#include "platform/names.h"
#include "platform/regional.h"
#include "platform/text.h"
#include "spool/input_pair.h"
#include "spool/pass.h"

namespace quellor {

void CountQueue(Context& ctx) {
  const std::string in = ctx.Path("IN");
  if (!FolderExists(in)) Raise(kErrPathNotFound);
  RefreshInputListing(ctx);
  WindowModel& w = ctx.window;
  // The count is the listing's 16-bit entry count, as the window reports it (saturated at
  // 32767, so a longer queue still starts passes).
  w.total.Set(DecimalText(w.File1.Count()));
}

Scheduler::Scheduler(Context& ctx, Hooks hooks)
    : ctx_(ctx), hooks_(std::move(hooks)), pass_([this] { quellor(ctx_); }) {}

Scheduler::Scheduler(Context& ctx, Hooks hooks, std::function<void()> pass)
    : ctx_(ctx), hooks_(std::move(hooks)), pass_(std::move(pass)) {}

void Scheduler::Command1_Click() {
  Guard step(CarryOnSink(ctx_), "Quellor - Command1_click");
  WindowModel& w = ctx_.window;

  // The pass always takes the head of the input listing, so there is no queue position to reset.
  step([&] { w.start_enabled = false; });
  step([&] { w.starttime = StartTimeText(ctx_.clock.LocalNow()); });
  step([&] { w.title += " - Running since " + w.starttime; });
  step([&] {
    if (hooks_.start_listener) hooks_.start_listener();
  });
  step([&] {
    if (hooks_.watchdog_tick) hooks_.watchdog_tick();
  });
  step([&] {
    if (w.total.Value() > 0) pass_();
  });
}

void Scheduler::Timer1_Timer() {
  Guard step(CarryOnSink(ctx_), "Quellor - Timer1_timer");
  WindowModel& w = ctx_.window;

  // An equality on purpose: after a gap of two days or more the today counters are no longer
  // reset until the next start of the process.
  step([&] {
    const int64_t today = DayNumber(ctx_.clock.LocalNow());
    if (today - ctx_.reset_day == 1) {
      w.ResetToday();
      ctx_.reset_day = today;
    }
  });

  bool start = false;
  step([&] { start = w.total.Value() == 0 && !w.start_enabled; });
  if (!start) return;
  // Pairs that waited long enough in DEFER/ are counted with the rest.
  step([&] { ReturnDeferred(ctx_); });
  // Refresh and count in one statement: when the listing fails, `total` keeps its text.
  step([&] { CountQueue(ctx_); });
  step([&] {
    if (w.total.Value() > 0) pass_();
  });
}

}  // namespace quellor
