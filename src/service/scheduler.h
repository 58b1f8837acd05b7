#pragma once
// The Start command and the pass timer: daily counters, the `total` hinge and the pass.

#include <functional>

#include "core/context.h"

namespace quellor {

// Refreshes the input listing `File1` from the "*.EML" files of IN/ and writes its count into
// `total`. A missing IN/ raises "Path not found" and leaves both as they were.
void CountQueue(Context& ctx);

class Scheduler {
 public:
  struct Hooks {
    std::function<void()> start_listener;  // put the status listener into listening state
    std::function<void()> watchdog_tick;   // one companion-watchdog tick
  };
  Scheduler(Context& ctx, Hooks hooks);
  // The same with another processing pass in place of `quellor(ctx)` (tests).
  Scheduler(Context& ctx, Hooks hooks, std::function<void()> pass);

  // Start button: start-up time and title, listener, one watchdog tick, and a pass when
  // `total` is above 0. Errors: "Quellor - Command1_click".
  void Command1_Click();
  // Pass timer tick (every 10 s): the daily reset when the date moved on by exactly one day,
  // then, when `total` reads 0 and Start was given, re-count IN/ and pass. Errors:
  // "Quellor - Timer1_timer".
  void Timer1_Timer();

 private:
  Context& ctx_;
  Hooks hooks_;
  std::function<void()> pass_;
};

}  // namespace quellor
