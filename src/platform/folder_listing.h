#pragma once
// The sorted listing of one folder's ordinary files that match a pattern ("*.EML" in IN/), kept
// current at the cost of what changed rather than of the folder's size: the kernel reports
// every name that appears in or vanishes from the folder (inotify), and only those names are
// looked at again. Without such reports (no inotify, a watch refused, events lost) every
// refresh scans the whole folder, as a plain listing would.

#include <cstdint>
#include <set>
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

  // What a refresh changed: either the whole listing is new (`whole`), or some names were
  // added and some removed.
  struct Changes {
    bool whole = false;
    std::vector<std::string> added;
    std::vector<std::string> removed;
  };

  // Brings the listing up to date with the folder. Returns false when the folder could not
  // be listed: the listing is then empty (a whole change) and the next refresh scans again.
  bool Refresh(Changes* changes);
  // The names in the order of "sorted by name" (NameLess, names equal but for case by bytes).
  std::vector<std::string> Names() const;
  size_t size() const { return names_.size(); }
  // Whether the kernel's reports keep the listing current (false: every refresh scans).
  bool watched() const { return wd_ >= 0; }
  // How many times a refresh found the listing changed: equal counts, equal listings.
  uint64_t changes() const { return changes_; }

 private:
  struct Before {
    bool operator()(const std::string& a, const std::string& b) const;
  };

  bool Scan(Changes* changes);
  void StartWatch();
  void StopWatch();
  // Reads the pending reports: each name reported once, with whether its last report says it
  // is gone. False when they cannot be trusted (reports lost, the folder itself removed or
  // moved): the caller scans instead.
  bool ReadEvents(std::vector<std::pair<std::string, bool>>* touched);

  std::string folder_;
  std::string pattern_;
  std::string watched_;  // the folder's actual path, as watched
  std::set<std::string, Before> names_;
  int fd_ = -1;  // the inotify instance
  int wd_ = -1;  // its watch on the folder
  bool scanned_ = false;
  uint64_t changes_ = 0;
};

}  // namespace quellor
