#include "platform/folder_listing.h"

#include <fcntl.h>
#include <limits.h>
#include <sys/inotify.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <unordered_map>

#include "platform/inotify_reports.h"
#include "platform/names.h"

namespace quellor {

namespace {

constexpr uint32_t kWatchMask = IN_CREATE | IN_DELETE | IN_MOVED_FROM | IN_MOVED_TO |
                                IN_DELETE_SELF | IN_MOVE_SELF | IN_ONLYDIR | IN_DONT_FOLLOW;

}  // namespace

FolderListing::FolderListing(std::string folder, std::string pattern)
    : folder_(std::move(folder)), pattern_(std::move(pattern)) {}

FolderListing::~FolderListing() {
  if (fd_ >= 0) ::close(fd_);
}

void FolderListing::StartWatch() {
  if (fd_ < 0) fd_ = ::inotify_init1(IN_NONBLOCK | IN_CLOEXEC);
  if (fd_ < 0) return;
  const auto actual = ResolveExisting(folder_);
  if (!actual) return;
  wd_ = ::inotify_add_watch(fd_, actual->c_str(), kWatchMask);
  watched_ = *actual;
}

void FolderListing::StopWatch() {
  // Closing the instance drops the watch and every report still queued on it.
  if (fd_ >= 0) ::close(fd_);
  fd_ = -1;
  wd_ = -1;
}

bool FolderListing::Rescan(Changes* changes) {
  *changes = Changes{};
  // Watched before the listing: a name that changes meanwhile is reported afterwards and
  // looked at again, so nothing the listing saw half-way is kept.
  if (wd_ < 0) StartWatch();
  const bool ok = ListFilesOrFail(folder_, pattern_, &changes->names);
  changes->whole = true;
  scanned_ = ok;
  return ok;
}

bool FolderListing::ReadEvents(std::vector<std::pair<std::string, bool>>* touched) {
  // The last report of each name says whether it is gone (deleted, moved away) or may be
  // there (created, moved in), in which case its entry is looked at.
  std::unordered_map<std::string, size_t> at_index;
  bool trusted = true;
  const bool read = ReadInotifyReports(fd_, [&](const struct inotify_event& event) {
    if (event.mask & (IN_Q_OVERFLOW | IN_IGNORED | IN_DELETE_SELF | IN_MOVE_SELF | IN_UNMOUNT)) {
      return trusted = false;
    }
    if (event.wd != wd_ || event.len == 0) return true;
    std::string name(event.name, ::strnlen(event.name, event.len));
    if (name.empty() || name[0] == '.' || !MatchesPattern(name, pattern_)) return true;
    // A folder is never listed, whatever its name.
    const bool gone = (event.mask & (IN_DELETE | IN_MOVED_FROM | IN_ISDIR)) != 0;
    auto [it, fresh] = at_index.try_emplace(name, touched->size());
    if (fresh) {
      touched->emplace_back(std::move(name), gone);
    } else {
      (*touched)[it->second].second = gone;
    }
    return true;
  });
  return read && trusted;
}

bool FolderListing::Refresh(Changes* changes) {
  if (!scanned_ || wd_ < 0) return Rescan(changes);
  *changes = Changes{};
  if (!ReadEvents(&changes->touched)) {
    StopWatch();
    return Rescan(changes);
  }
  for (auto& [name, listed] : changes->touched) {
    // The report says gone, or may be there: then the entry tells, as a listing would see it
    // (a regular file, never a symlink).
    const bool gone = listed;
    listed = false;
    if (gone) continue;
    struct stat st;
    const std::string path = watched_ + "/" + name;
    if (::fstatat(AT_FDCWD, path.c_str(), &st, AT_SYMLINK_NOFOLLOW) == 0) {
      listed = S_ISREG(st.st_mode);
    } else if (errno != ENOENT) {
      // Not known either way: the whole folder is listed instead.
      return Rescan(changes);
    }
  }
  return true;
}

}  // namespace quellor
