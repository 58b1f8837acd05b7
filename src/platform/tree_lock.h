#pragma once
// TreeLock: the one lock of an installation tree. A pass and every change an administrator
// makes to held mail take it, so a release never runs in the middle of a pass (and the
// reverse), whichever processes run them.

#include <functional>
#include <string>

namespace quellor {

class TreeLock {
 public:
  // Locks the file ".quellor.lock" in `root` (created when missing), waiting while another
  // process holds it; `on_wait` is called once before such a wait. When the file cannot be
  // opened or locked the lock is simply not held (see held()).
  explicit TreeLock(const std::string& root, const std::function<void()>& on_wait = {});
  ~TreeLock();
  TreeLock(const TreeLock&) = delete;
  TreeLock& operator=(const TreeLock&) = delete;

  bool held() const { return fd_ >= 0; }
  // Why the lock is not held ("" when it is).
  const std::string& error() const { return error_; }

 private:
  int fd_ = -1;
  std::string error_;
};

}  // namespace quellor
