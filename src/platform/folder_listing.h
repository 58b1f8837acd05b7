#pragma once
// The changes of one folder's ordinary files that match a pattern ("*.EML" in IN/), told at the
// cost of what changed rather than of the folder's size: the kernel reports every name that
// appears in or vanishes from the folder (inotify), and only those names are looked at again.
// Without such reports (no inotify, a watch refused, reports lost) a refresh lists the whole
// folder, as a plain listing would. The listing itself is kept by the caller.

#include <string>
#include <utility>
#include <vector>

namespace quellor {

class FolderListing {
 public:
  FolderListing(std::string folder, std::string pattern);
  ~FolderListing();
  FolderListing(const FolderListing&) = delete;
  FolderListing& operator=(const FolderListing&) = delete;

  // What a refresh found: either the whole listing (`whole`: every name, sorted by name), or
  // the names that changed since the previous refresh, each with whether it is listed now.
  struct Changes {
    bool whole = false;
    std::vector<std::string> names;
    std::vector<std::pair<std::string, bool>> touched;
  };

  // The changes since the previous refresh. False when the folder could not be listed: the
  // whole listing is then empty, and the next refresh lists again.
  bool Refresh(Changes* changes);
  // The whole listing, listed afresh.
  bool Rescan(Changes* changes);
  // Whether the kernel's reports keep the changes (false: every refresh lists the folder).
  bool watched() const { return wd_ >= 0; }

 private:
  void StartWatch();
  void StopWatch();
  // Reads the pending reports: each name reported once, with whether its last report says it
  // is gone. False when they cannot be trusted (reports lost, the folder itself removed or
  // moved): the caller lists the folder instead.
  bool ReadEvents(std::vector<std::pair<std::string, bool>>* touched);

  std::string folder_;
  std::string pattern_;
  std::string watched_;  // the folder's actual path, as watched
  int fd_ = -1;          // the inotify instance
  int wd_ = -1;          // its watch on the folder
  bool scanned_ = false;
};

}  // namespace quellor
