// quellorctl pass [--all] [--no-pause]: what the service does when it starts, once, without
// staying resident: start-up, the Start command, optionally passes until IN/ is empty, and
// then the window's state on standard output.
#include <CLI/CLI.hpp>
#include <exception>
#include <iostream>
#include <string>
#include <vector>

#include "commands.h"
#include "core/context.h"
#include "platform/clock.h"
#include "platform/names.h"
#include "service/scheduler.h"
#include "service/startup.h"
#include "spool/input_pair.h"
#include "status/status_reply.h"

namespace quellor::ctl {

namespace {

// The number of message files waiting in IN/ (those the passes skip included), with the input
// listing brought up to date; none when the folder cannot be listed.
size_t InputQueue(Context& ctx) {
  try {
    RefreshInputListing(ctx);
    return ctx.window.File1.size() + ctx.delivery.passed_over.size();
  } catch (const std::exception&) {
    return 0;
  }
}

}  // namespace

int RunPass(const std::vector<std::string>& args) {
  CLI::App app{
      "Runs the service's start-up and one pass over IN/ (up to 40 messages), then prints the "
      "status reply and the rest of the window's state.",
      "quellorctl pass"};
  bool all = false;
  bool no_pause = false;
  app.add_flag("--all", all, "keep passing until IN/ holds no message");
  app.add_flag("--no-pause", no_pause, "no pause before each message and in the throttle");
  try {
    std::vector<std::string> reversed(args.rbegin(), args.rend());
    app.parse(reversed);
  } catch (const CLI::ParseError& e) {
    return app.exit(e) == 0 ? 0 : 2;
  }

  const std::string root = RootFromEnvironment();
  if (!FolderExists(root)) {
    std::cerr << "quellorctl pass: no installation at " << root
              << " (set QUELLOR_ROOT, or create one with quellorctl init)\n";
    return 1;
  }

  SystemClock clock;
  RealSleeper sleeper;
  Context ctx(root, clock, sleeper);
  LoadStartup(ctx);
  // The throttle pauses a tenth of the per-message pause, so both go together.
  if (no_pause) ctx.pause_ms = 0;

  // No listener, no watchdog: this run is not the resident service.
  Scheduler scheduler(ctx, Scheduler::Hooks{});
  scheduler.Command1_Click();

  int status = 0;
  if (all) {
    // Pass-timer ticks, back to back, until the input queue is empty. A tick that leaves the
    // queue exactly as it found it (a pair that cannot be deleted, or a stalled `total`)
    // would repeat forever, so it ends the run.
    // The listing's change count tells whether a tick changed the queue at all, without
    // comparing every name of a long queue after every tick.
    while (InputQueue(ctx) > 0) {
      const uint64_t before = ctx.input_listing_changes;
      scheduler.Timer1_Timer();
      const size_t left = InputQueue(ctx);
      if (ctx.input_listing_changes == before) {
        std::cerr << "quellorctl pass: " << left
                  << " message(s) stay in IN/: a pass could not take them out (see "
                  << ctx.Path("LOG/system.log") << ")\n";
        status = 1;
        break;
      }
    }
  }

  std::cout << BuildStateDump(ctx.window);
  std::cout.flush();
  return status;
}

}  // namespace quellor::ctl
