#include "platform/tree_lock.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

namespace quellor {

TreeLock::TreeLock(const std::string& root, const std::function<void()>& on_wait) {
  std::string path = root;
  if (!path.empty() && path.back() != '/') path += '/';
  path += ".quellor.lock";
  // Read-only is enough for flock, so the service's account can lock a file that root made.
  const int fd = ::open(path.c_str(), O_RDONLY | O_CREAT | O_CLOEXEC | O_NOFOLLOW, 0644);
  if (fd < 0) {
    error_ = path + ": " + std::strerror(errno);
    return;
  }
  // Against a restrictive umask of its creator: every account of the tree must open it.
  (void)!::fchmod(fd, 0644);
  int rc = ::flock(fd, LOCK_EX | LOCK_NB);
  if (rc != 0 && errno == EWOULDBLOCK) {
    if (on_wait) on_wait();
    do {
      rc = ::flock(fd, LOCK_EX);
    } while (rc != 0 && errno == EINTR);
  }
  if (rc != 0) {
    error_ = path + ": " + std::strerror(errno);
    ::close(fd);
    return;
  }
  fd_ = fd;
}

TreeLock::~TreeLock() {
  if (fd_ >= 0) ::close(fd_);
}

}  // namespace quellor
