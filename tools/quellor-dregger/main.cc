// quellor-dregger: the delivery service beside the filter (systemd unit Quellor_Dregger.service).
// Hands every complete LOCAL/ and OUT/ pair to Postfix through sendmail and deletes it once
// Postfix accepted it. Wakes on inotify events of both folders and rescans every second.
//
//   quellor-dregger [--config-dir DIR] [--sendmail PATH] [--null-sender ADDRESS]
//                   [--hostname NAME] [--once]
#include <poll.h>
#include <signal.h>
#include <sys/inotify.h>
#include <sys/signalfd.h>
#include <systemd/sd-daemon.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <ctime>
#include <iostream>
#include <string>

#include "bridge/dregger.h"
#include "core/context.h"

namespace {

std::string HostName() {
  char name[256] = {};
  if (gethostname(name, sizeof name - 1) != 0) return "localhost";
  return name;
}

int Usage() {
  std::cerr << "usage: quellor-dregger [--config-dir DIR] [--sendmail PATH] "
               "[--null-sender ADDRESS] [--hostname NAME] [--once]\n";
  return 2;
}

}  // namespace

int main(int argc, char** argv) {
  using namespace quellor::bridge;
  DreggerOptions options;
  options.root = quellor::RootFromEnvironment();
  options.hostname = HostName();
  std::string config_dir;
  std::string sendmail = "/usr/sbin/sendmail";
  std::string null_sender;
  bool once = false;
  for (int i = 1; i < argc; ++i) {
    const std::string arg = argv[i];
    if (arg == "--once") {
      once = true;
      continue;
    }
    if (i + 1 >= argc) return Usage();
    if (arg == "--config-dir") {
      config_dir = argv[++i];
    } else if (arg == "--sendmail") {
      sendmail = argv[++i];
    } else if (arg == "--null-sender") {
      null_sender = argv[++i];
    } else if (arg == "--hostname") {
      options.hostname = argv[++i];
    } else {
      return Usage();
    }
  }
  options.null_sender = null_sender.empty() ? "MAILER-DAEMON@" + options.hostname : null_sender;

  SendmailSubmitter submitter(sendmail, config_dir);
  Dregger dregger(options, submitter, [](const std::string& line) {
    std::cerr << "quellor-dregger: " << line << "\n";
  });
  if (once) {
    dregger.RunOnce(std::time(nullptr));
    return 0;
  }

  sigset_t stop;
  sigemptyset(&stop);
  sigaddset(&stop, SIGTERM);
  sigaddset(&stop, SIGINT);
  sigprocmask(SIG_BLOCK, &stop, nullptr);
  signal(SIGPIPE, SIG_IGN);
  const int signals = signalfd(-1, &stop, SFD_CLOEXEC);
  const int watch = inotify_init1(IN_CLOEXEC | IN_NONBLOCK);
  for (const char* folder : {"LOCAL", "OUT"}) {
    // A folder that cannot be watched is still rescanned every second.
    if (inotify_add_watch(watch, (options.root + folder).c_str(), IN_MOVED_TO | IN_CLOSE_WRITE) < 0)
      std::cerr << "quellor-dregger: cannot watch " << options.root << folder << "\n";
  }
  sd_notify(0, "READY=1");
  std::cerr << "quellor-dregger: handing " << options.root << "LOCAL/ and OUT/ to Postfix\n";

  constexpr int kRescanMs = 1000;
  for (;;) {
    dregger.RunOnce(std::time(nullptr));
    const long retry = dregger.SecondsToNextRetry(std::time(nullptr));
    const int timeout = retry < 0 ? kRescanMs : static_cast<int>(std::min(1000L * retry, 1000L));
    struct pollfd fds[2] = {{signals, POLLIN, 0}, {watch, POLLIN, 0}};
    if (poll(fds, 2, std::max(timeout, 1)) < 0) continue;
    if (fds[0].revents & POLLIN) break;
    if (fds[1].revents & POLLIN) {
      char buffer[4096];
      while (read(watch, buffer, sizeof buffer) > 0) {
      }
    }
  }
  sd_notify(0, "STOPPING=1");
  std::cerr << "quellor-dregger: stopped\n";
  return 0;
}
