#include "service/service_host.h"

#include <systemd/sd-daemon.h>

#include <boost/asio/post.hpp>
#include <csignal>
#include <cstdio>
#include <exception>
#include <utility>

#include "logs/error_sink.h"
#include "platform/guard.h"
#include "service/startup.h"
#include "service/unit_files.h"

namespace quellor {

namespace {

Scheduler MakeScheduler(Context& ctx, Scheduler::Hooks hooks, std::function<void()> pass) {
  if (pass) return Scheduler(ctx, std::move(hooks), std::move(pass));
  return Scheduler(ctx, std::move(hooks));
}

}  // namespace

ServiceHost::ServiceHost(boost::asio::io_context& io, Context& ctx, EventLog& events,
                         ServiceManager& manager, HostOptions options)
    : io_(io),
      ctx_(ctx),
      options_(std::move(options)),
      watchdog_(ctx, manager),
      listener_(io, ctx, options_.status_port),
      window_(io, ctx, options_.window_port),
      scheduler_(MakeScheduler(
          ctx,
          Scheduler::Hooks{[this] { listener_.Listen(); }, [this] { watchdog_.KeepAlive_Timer(); }},
          options_.pass)),
      events_(events, [this] { Unload(); }),
      pass_timer_(io, options_.pass_interval, [this] { scheduler_.Timer1_Timer(); }),
      keepalive_timer_(io, options_.keepalive_interval, [this] { watchdog_.KeepAlive_Timer(); }),
      // Registered at once: a Stop that arrives during start-up waits for the loop.
      signals_(io, SIGTERM, SIGINT, SIGUSR1) {
  signals_.add(SIGUSR2);
  signals_.add(SIGHUP);
  // With SAFE_DELIVERY on, an error-log line that cannot be written goes to the journal.
  ctx_.journal = [&events](const std::string& line) { events.LogEvent(1, 0, line); };
}

int ServiceHost::Run() {
  Begin();
  // A handler that fails past its own error handling is reported and the loop goes on: the
  // service ends only by its Stop event.
  while (true) {
    try {
      io_.run();
      return 0;
    } catch (const std::exception& e) {
      std::fprintf(stderr, "%s: %s\n", kServiceName, e.what());
    }
  }
}

void ServiceHost::Begin() {
  // The timers run from the creation of the window; their first ticks come after start-up.
  pass_timer_.Start();
  keepalive_timer_.Start();
  WaitForSignal();

  Guard step(CarryOnSink(ctx_), "Quellor - Form_Load");
  step([&] { ctx_.component(); });
  LoadStartup(ctx_);
  // The window shows once it is loaded, and only when DEBUG did not hide it.
  step([&] { window_.Start(); });
  scheduler_.Command1_Click();

  // systemd delivers Start once the process has connected; here that is right after start-up.
  boost::asio::post(io_, [this] {
    bool started = false;
    events_.Start(started);
    if (options_.service_run) sd_notify(0, "READY=1");
  });
}

void ServiceHost::WaitForSignal() {
  signals_.async_wait([this](const boost::system::error_code& ec, int signal_number) {
    if (ec) return;
    // Waiting again first keeps Stop deliverable whatever this event's handler does; Unload
    // cancels the wait.
    WaitForSignal();
    OnSignal(signal_number);
  });
}

void ServiceHost::OnSignal(int signal_number) {
  bool success = false;
  switch (signal_number) {
    case SIGTERM:
    case SIGINT:
      events_.Stop();
      break;
    case SIGUSR1:
      events_.Pause(success);
      if (options_.service_run) sd_notify(0, "STATUS=Paused");
      break;
    case SIGUSR2:
      events_.Continue(success);
      if (options_.service_run) sd_notify(0, "STATUS=Running");
      break;
    default:
      events_.Control(signal_number);
      break;
  }
}

void ServiceHost::Unload() {
  // Nothing is saved: the window's state ends with the process. The loop returns once the
  // running handler has written its closing entry.
  if (options_.service_run) sd_notify(0, "STOPPING=1");
  pass_timer_.Cancel();
  keepalive_timer_.Cancel();
  listener_.Close();
  window_.Stop();
  signals_.cancel();
  io_.stop();
}

}  // namespace quellor
