#pragma once
// Reading the kernel's reports of folder changes (inotify), shared by the folder listings and
// the name indexes.

#include <sys/inotify.h>

#include <functional>

namespace quellor {

// Reads every report queued on the non-blocking inotify descriptor `fd` and hands each to
// `each`, which returns false to stop reading. False when reading failed (other than "nothing
// more queued"); true otherwise, also when `each` stopped it.
bool ReadInotifyReports(int fd, const std::function<bool(const struct inotify_event&)>& each);

}  // namespace quellor
