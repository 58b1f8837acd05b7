#pragma once
// The service's one event loop: start-up, the pass timer (10 s), the watchdog timer (60 s), the
// status listener, the window page and the service events delivered as signals (SIGTERM and SIGINT
// Stop, SIGUSR1 Pause, SIGUSR2 Continue, SIGHUP Control). Every handler runs to its end on the one
// thread, so a pass is never interrupted and a Stop that arrives during a pass is served after it.

#include <boost/asio/io_context.hpp>
#include <boost/asio/signal_set.hpp>
#include <chrono>
#include <functional>

#include "core/context.h"
#include "service/event_log.h"
#include "service/periodic_timer.h"
#include "service/scheduler.h"
#include "service/service_events.h"
#include "service/service_manager.h"
#include "service/watchdog.h"
#include "status/status_listener.h"
#include "status/window_page.h"

namespace quellor {

struct HostOptions {
  // A service run tells systemd when it is ready and when it stops (sd_notify); -debug does not.
  bool service_run = false;
  std::chrono::milliseconds pass_interval{10000};
  std::chrono::milliseconds keepalive_interval{60000};
  // The status port (all addresses) and the window page's port (127.0.0.1 only).
  uint16_t status_port = kDefaultStatusPort;
  uint16_t window_port = kDefaultWindowPort;
  // Replaces the processing pass (tests); empty for the real pass.
  std::function<void()> pass;
};

class ServiceHost {
 public:
  ServiceHost(boost::asio::io_context& io, Context& ctx, EventLog& events, ServiceManager& manager,
              HostOptions options);
  ServiceHost(const ServiceHost&) = delete;
  ServiceHost& operator=(const ServiceHost&) = delete;

  // Start-up and the event loop until the Stop event. Returns the exit status.
  int Run();
  // Start-up alone: the timers start, the configuration and the queue are read, the Start
  // command is given, and the Start event and the readiness report are queued on the loop.
  void Begin();

  Scheduler& scheduler() { return scheduler_; }

 private:
  void WaitForSignal();
  void OnSignal(int signal_number);
  void Unload();

  boost::asio::io_context& io_;
  Context& ctx_;
  HostOptions options_;
  Watchdog watchdog_;
  StatusListener listener_;
  WindowServer window_;
  Scheduler scheduler_;
  ServiceEvents events_;
  PeriodicTimer pass_timer_;
  PeriodicTimer keepalive_timer_;
  boost::asio::signal_set signals_;
};

}  // namespace quellor
