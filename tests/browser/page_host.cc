// A small stand-in for the service in the browser test: start-up over QUELLOR_ROOT, the Start
// command (which starts the status listener), the window page and a pass timer, all on one
// event loop, until SIGTERM or SIGINT. The pass timer ticks every QUELLOR_PASS_MS milliseconds
// (default 1000) so the test does not wait 10 seconds for a pass. Prints "ready" once serving.

#include <boost/asio/io_context.hpp>
#include <boost/asio/signal_set.hpp>
#include <boost/asio/steady_timer.hpp>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <functional>

#include "config/context.h"
#include "platform/clock.h"
#include "platform/guard.h"
#include "service/error_sink.h"
#include "service/scheduler.h"
#include "service/startup.h"
#include "service/window_page.h"
#include "status/status_listener.h"

int main() {
  using namespace quellor;
  namespace asio = boost::asio;

  SystemClock clock;
  RealSleeper sleeper;
  Context ctx(RootFromEnvironment(), clock, sleeper);
  asio::io_context io;
  StatusListener listener(io, ctx, StatusPortFromEnvironment());
  WindowServer window(io, ctx, WindowPortFromEnvironment());

  LoadStartup(ctx);
  Scheduler scheduler(ctx, Scheduler::Hooks{[&] { listener.Listen(); }, nullptr});
  scheduler.Command1_Click();
  Guard step(CarryOnSink(ctx), "Quellor - Form_Load");
  step([&] { window.Start(); });

  const char* pass_ms = std::getenv("QUELLOR_PASS_MS");
  const std::chrono::milliseconds period(pass_ms ? std::atol(pass_ms) : 1000);
  asio::steady_timer timer(io);
  std::function<void()> arm = [&] {
    timer.expires_after(period);
    timer.async_wait([&](boost::system::error_code ec) {
      if (ec) return;
      scheduler.Timer1_Timer();
      arm();
    });
  };
  arm();

  asio::signal_set signals(io, SIGTERM);
  signals.add(SIGINT);
  signals.async_wait([&](boost::system::error_code, int) { io.stop(); });

  std::printf("ready\n");
  std::fflush(stdout);
  io.run();
  return 0;
}
