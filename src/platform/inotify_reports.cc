#include "platform/inotify_reports.h"

#include <limits.h>
#include <unistd.h>

#include <cerrno>
#include <cstddef>

namespace quellor {

namespace {
// The largest report the kernel writes: a read that leaves at least this much of the buffer
// free has taken every report queued at that moment.
constexpr size_t kLargestEvent = sizeof(struct inotify_event) + NAME_MAX + 1;
}  // namespace

bool ReadInotifyReports(int fd, const std::function<bool(const struct inotify_event&)>& each) {
  alignas(struct inotify_event) char buffer[64 * 1024];
  for (;;) {
    const ssize_t n = ::read(fd, buffer, sizeof buffer);
    if (n < 0 && errno == EINTR) continue;
    if (n < 0) return errno == EAGAIN;
    if (n == 0) return true;
    for (ssize_t at = 0; at < n;) {
      const auto* event = reinterpret_cast<const struct inotify_event*>(buffer + at);
      at += static_cast<ssize_t>(sizeof(struct inotify_event) + event->len);
      if (!each(*event)) return true;
    }
    if (static_cast<size_t>(n) + kLargestEvent <= sizeof buffer) return true;
  }
}

}  // namespace quellor
