// quellor: the Spam Quellor service. "-install" and "-uninstall" register it with systemd,
// "-debug" runs it in the foreground, and an empty command line is the service run.

#include <boost/asio/io_context.hpp>
#include <csignal>
#include <cstdio>
#include <string>
#include <vector>

#include "core/context.h"
#include "platform/clock.h"
#include "service/command_line.h"
#include "service/event_log.h"
#include "service/service_host.h"
#include "service/service_manager.h"
#include "service/unit_files.h"

int main(int argc, char** argv) {
  using namespace quellor;
  const RunMode mode = ParseCommandLine(std::vector<std::string>(argv + 1, argv + argc));
  switch (mode) {
    case RunMode::kInvalid:
      std::fprintf(stderr, "%s\n", kInvalidOptionText);
      return kInvalidOptionStatus;
    case RunMode::kInstall: {
      // Nothing is printed either way; the exit status tells whether the unit was written.
      const std::string unit_dir = UnitDirFromEnvironment();
      const bool installed =
          InstallUnit(unit_dir, RootFromEnvironment(), ProgramPath(), ServiceUserIfPresent());
      if (installed) ReloadSystemd();
      return installed ? 0 : 1;
    }
    case RunMode::kUninstall: {
      const bool removed = UninstallUnit(UnitDirFromEnvironment());
      ReloadSystemd();
      return removed ? 0 : 1;
    }
    case RunMode::kService:
    case RunMode::kDebug:
      break;
  }

  // A status client that goes away mid-reply must not end the service.
  std::signal(SIGPIPE, SIG_IGN);
  SystemClock clock;
  RealSleeper sleeper;
  Context ctx(RootFromEnvironment(), clock, sleeper);
  JournalEventLog events(mode == RunMode::kDebug);
  SystemdServiceManager manager;
  boost::asio::io_context io;
  HostOptions options;
  options.service_run = mode == RunMode::kService;
  options.status_port = StatusPortFromEnvironment();
  options.window_port = WindowPortFromEnvironment();
  ServiceHost host(io, ctx, events, manager, options);
  return host.Run();
}
