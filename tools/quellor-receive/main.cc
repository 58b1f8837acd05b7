// quellor-receive: Postfix's pipe(8) transport into Quellor. Writes the message on standard input
// as one IN/ pair and exits 0 only once the pair is on disk; 75 (try again) on any failure, so
// that Postfix keeps the mail in its queue.
//
//   quellor-receive [--root DIR] [--null-sender ADDRESS] [--] SENDER RECIPIENT
#include <unistd.h>

#include <cerrno>
#include <ctime>
#include <iostream>
#include <string>
#include <vector>

#include "bridge/in_pair.h"
#include "bridge/receive.h"
#include "core/context.h"

namespace {

std::string HostName() {
  char name[256] = {};
  if (gethostname(name, sizeof name - 1) != 0) return "localhost";
  return name;
}

bool ReadAll(int fd, std::string* out) {
  char buffer[65536];
  for (;;) {
    const ssize_t n = read(fd, buffer, sizeof buffer);
    if (n < 0 && errno == EINTR) continue;
    if (n < 0) return false;
    if (n == 0) return true;
    out->append(buffer, static_cast<size_t>(n));
  }
}

}  // namespace

int main(int argc, char** argv) {
  using namespace quellor::bridge;
  ReceiveOptions options;
  std::string root = quellor::RootFromEnvironment();
  options.null_sender = "MAILER-DAEMON@" + HostName();
  std::vector<std::string> positional;
  bool options_done = false;
  for (int i = 1; i < argc; ++i) {
    const std::string arg = argv[i];
    if (!options_done && arg == "--") {
      options_done = true;
    } else if (!options_done && (arg == "--root" || arg == "--null-sender") && i + 1 < argc) {
      (arg == "--root" ? root : options.null_sender) = argv[++i];
    } else if (!options_done && arg.size() > 1 && arg[0] == '-') {
      std::cerr << "quellor-receive: unknown option " << arg << "\n";
      return kExitTryAgain;
    } else {
      positional.push_back(arg);
    }
  }
  if (positional.size() != 2) {
    std::cerr << "usage: quellor-receive [--root DIR] [--null-sender ADDRESS] [--] SENDER "
                 "RECIPIENT < message\n";
    return kExitTryAgain;
  }
  options.in_folder = quellor::WithTrailingSlash(root) + "IN/";
  std::string message;
  if (!ReadAll(0, &message)) {
    std::cerr << "quellor-receive: cannot read the message\n";
    return kExitTryAgain;
  }
  struct timespec now {};
  clock_gettime(CLOCK_REALTIME, &now);
  std::string error;
  const int status = Receive(options, positional[0], positional[1], message, StemAt(now), &error);
  if (status != kExitDelivered) std::cerr << "quellor-receive: " << error << "\n";
  return status;
}
