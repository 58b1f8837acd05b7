#include "platform/names.h"

#include <dirent.h>
#include <limits.h>
#include <pthread.h>
#include <sys/inotify.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <cstring>
#include <memory>
#include <mutex>
#include <unordered_map>
#include <unordered_set>

#include "platform/errors.h"
#include "platform/fs.h"
#include "platform/inotify_reports.h"
#include "platform/text.h"

namespace quellor {

namespace {

// The names of one folder, found without regard to case, each with its type. The bytes of all
// names share one pool of chunks that never move, and the table holds 8 bytes a name (open
// addressing, linear probing), so that a folder of a few hundred thousand names costs little
// memory.
class NameSet {
 public:
  struct Slot {
    uint32_t offset = 0;  // chunk number * 65536 + place in the chunk
    uint16_t length = 0;
    mutable unsigned char type = 0;
    unsigned char tag = 0;  // 0: an empty place; otherwise 1-255 from the name's hash
  };

  const Slot* Find(std::string_view name) const {
    if (count_ == 0) return nullptr;
    const uint64_t h = HashOf(name);
    const unsigned char tag = TagOf(h);
    for (size_t i = h & mask_;; i = (i + 1) & mask_) {
      const Slot& slot = table_[i];
      if (slot.tag == 0) return nullptr;
      if (slot.tag == tag && slot.length == name.size() && SameFolded(NameOf(slot), name)) {
        return &slot;
      }
    }
  }
  std::string_view NameOf(const Slot& slot) const {
    return {pool_[slot.offset >> 16].data() + (slot.offset & 0xFFFF), slot.length};
  }
  // Adds a name that Find does not find.
  void Insert(std::string_view name, unsigned char type) {
    // At most seven eighths full: the 8-bit tags keep the longer probe runs cheap.
    if ((count_ + 1) * 8 > table_.size() * 7) Grow(table_.empty() ? 16 : table_.size() * 2);
    const uint64_t h = HashOf(name);
    size_t i = h & mask_;
    while (table_[i].tag != 0) i = (i + 1) & mask_;
    table_[i] = Slot{Append(pool_, name), static_cast<uint16_t>(name.size()), type, TagOf(h)};
    bytes_ += name.size();
    ++count_;
  }
  void Erase(const Slot* slot) {
    garbage_ += slot->length;
    // Removal by shifting back the names after it in its run, so no place is left marked.
    size_t hole = static_cast<size_t>(slot - table_.data());
    table_[hole] = Slot{};
    --count_;
    for (size_t i = (hole + 1) & mask_; table_[i].tag != 0; i = (i + 1) & mask_) {
      const size_t home = HashOf(NameOf(table_[i])) & mask_;
      // The name may move into the hole when its home is not between the hole and its place.
      if (((i - home) & mask_) >= ((i - hole) & mask_)) {
        table_[hole] = table_[i];
        table_[i] = Slot{};
        hole = i;
      }
    }
    // Every name made and removed (a temporary file's, say) leaves garbage in the pool: the
    // pool is copied afresh once it holds more garbage than names, and the table halves once it
    // is an eighth full, so that a folder costs what it holds now, not what it once held.
    if (garbage_ > 512 && garbage_ * 2 > bytes_) Compact();
    if (table_.size() > 64 && count_ * 8 < table_.size()) Grow(table_.size() / 2);
  }
  void Clear() {
    table_.clear();
    table_.shrink_to_fit();
    mask_ = 0;
    count_ = 0;
    pool_.clear();
    bytes_ = 0;
    garbage_ = 0;
  }
  void Reserve(size_t names) {
    size_t size = 16;
    while (size * 7 < names * 8) size *= 2;
    if (size > table_.size()) Grow(size);
  }
  template <class F>
  void ForEach(F&& f) const {
    for (const Slot& slot : table_) {
      if (slot.tag != 0) f(slot);
    }
  }

 private:
  static uint64_t HashOf(std::string_view name) {
    uint64_t h = 1469598103934665603ull;
    for (char c : name) h = (h ^ static_cast<unsigned char>(LowerChar(c))) * 1099511628211ull;
    return h ^ (h >> 29);
  }
  static unsigned char TagOf(uint64_t h) {
    const auto tag = static_cast<unsigned char>(h >> 56);
    return tag == 0 ? 1 : tag;
  }
  static bool SameFolded(std::string_view x, std::string_view y) {
    for (size_t i = 0; i < x.size(); ++i) {
      if (LowerChar(x[i]) != LowerChar(y[i])) return false;
    }
    return true;
  }
  // Chunks grow from 1 KiB to 64 KiB, so that a small folder costs little; a chunk is reserved
  // whole when it is started and never moves.
  using Pool = std::vector<std::vector<char>>;
  static uint32_t Append(Pool& pool, std::string_view name) {
    if (pool.empty() || pool.back().size() + name.size() > pool.back().capacity()) {
      pool.emplace_back().reserve(
          std::min<size_t>(size_t{1024} << std::min<size_t>(pool.size(), 6), size_t{65536}));
    }
    std::vector<char>& chunk = pool.back();
    const auto offset = static_cast<uint32_t>(((pool.size() - 1) << 16) | chunk.size());
    chunk.insert(chunk.end(), name.begin(), name.end());
    return offset;
  }
  void Grow(size_t size) {
    std::vector<Slot> old;
    old.swap(table_);
    table_.assign(size, Slot{});
    mask_ = size - 1;
    for (const Slot& slot : old) {
      if (slot.tag == 0) continue;
      size_t i = HashOf(NameOf(slot)) & mask_;
      while (table_[i].tag != 0) i = (i + 1) & mask_;
      table_[i] = slot;
    }
  }
  // Copies the names still in the set into a fresh pool; their places in the table stay, since
  // the hash reads the bytes, not where they are.
  void Compact() {
    Pool pool;
    for (Slot& slot : table_) {
      if (slot.tag != 0) slot.offset = Append(pool, NameOf(slot));
    }
    pool_.swap(pool);
    bytes_ -= garbage_;
    garbage_ = 0;
  }

  std::vector<Slot> table_;
  size_t mask_ = 0;
  size_t count_ = 0;
  Pool pool_;
  size_t bytes_ = 0;  // of the names in the pool, removed ones included
  size_t garbage_ = 0;
};

// The names of one folder, valid while the kernel reports the folder's changes (`wd`) or, for
// a folder not watched, while the folder's stamp is unchanged.
struct FolderIndex {
  struct timespec stamp {};
  // The scan happened so soon after the folder's last change that a further change within the
  // same clock tick would leave the stamp as it is: a miss is confirmed by a fresh scan.
  bool racy = false;
  // Two names differ only in case; removing one of them must not hide the other.
  bool ambiguous = false;
  // The names as they exist, each with its type as the scan or a look at the entry told it
  // (DT_UNKNOWN until known), found without regard to case.
  NameSet by_folded;
  // Watched: the kernel reports every name that appears or vanishes (and the folder's own
  // removal or move), so the index is current without a look at the folder's stamp.
  int wd = -1;
  // Watched, but a report could not be applied (reports lost, a removal among names that
  // differ only in case): the next lookup scans.
  bool stale = false;
};

// The one inotify instance of the process; its watches belong to the indexes of folders at or
// below the installation root (each folder's ancestors up to the root are watched as well, so
// that a folder renamed or removed above an index drops it).
struct Watcher {
  int fd = -1;
  std::unordered_map<int, std::string> folders;  // watch -> folder
  bool forked = false;  // set in a child process: the state is the parent's
};

std::mutex& IndexMutex() {
  static std::mutex m;
  return m;
}

std::unordered_map<std::string, FolderIndex>& Indexes() {
  static std::unordered_map<std::string, FolderIndex> indexes;
  return indexes;
}

Watcher& TheWatcher() {
  static Watcher watcher;
  return watcher;
}

bool SameStamp(const struct timespec& a, const struct timespec& b) {
  return a.tv_sec == b.tv_sec && a.tv_nsec == b.tv_nsec;
}

int64_t Nanoseconds(const struct timespec& t) {
  return static_cast<int64_t>(t.tv_sec) * 1000000000 + t.tv_nsec;
}

// Whether a folder stamped `stamp` may still change without its stamp moving. File systems
// stamp with a coarse clock (one kernel tick, at most 10 ms); one with whole-second stamps
// shows tv_nsec 0.
bool RacyStamp(const struct timespec& stamp) {
  struct timespec now;
  clock_gettime(CLOCK_REALTIME, &now);
  const int64_t margin = stamp.tv_nsec == 0 ? 2000000000 : 20000000;
  return Nanoseconds(now) - Nanoseconds(stamp) < margin;
}

// Folder part and name part of a path ("/a/b" -> "/a", "b"; "b" -> ".", "b").
std::pair<std::string, std::string> Split(const std::string& path) {
  size_t slash = path.find_last_of('/');
  if (slash == std::string::npos) return {".", path};
  if (slash == 0) return {"/", path.substr(1)};
  return {path.substr(0, slash), path.substr(slash + 1)};
}

std::string Join(const std::string& folder, const std::string& name) {
  if (folder == "/") return "/" + name;
  return folder + "/" + name;
}

// One spelling per path, so that one folder has one index: no repeated or trailing "/".
std::string Clean(const std::string& raw) {
  std::string path;
  if (raw.find("//") == std::string::npos) {
    path = raw;
  } else {
    path.reserve(raw.size());
    for (char c : raw) {
      if (c == '/' && !path.empty() && path.back() == '/') continue;
      path.push_back(c);
    }
  }
  while (path.size() > 1 && path.back() == '/') path.pop_back();
  return path;
}

// A path that could step out of its folder, or that the system cannot hold.
bool Unsafe(const std::string& path) {
  if (path.find('\0') != std::string::npos) return true;
  size_t start = 0;
  while (start <= path.size()) {
    size_t end = path.find('/', start);
    if (end == std::string::npos) end = path.size();
    std::string_view part(path.data() + start, end - start);
    if (part == "." || part == "..") return true;
    start = end + 1;
  }
  return false;
}

bool ReadStamp(const std::string& folder, struct timespec* stamp) {
  struct stat st;
  if (Fs().Stat(folder, &st) != 0 || !S_ISDIR(st.st_mode)) return false;
  *stamp = st.st_mtim;
  return true;
}

// Adds one name found by a scan. Of names that differ only in case the lowest wins, whatever
// order the scan gave.
void AddScanned(FolderIndex& index, std::string_view name, unsigned char type) {
  const NameSet::Slot* hit = index.by_folded.Find(name);
  if (!hit) {
    index.by_folded.Insert(name, type);
    return;
  }
  index.ambiguous = true;
  if (name < index.by_folded.NameOf(*hit)) {
    const std::string kept(name);
    index.by_folded.Erase(hit);
    index.by_folded.Insert(kept, type);
  }
}

// Refills an index from a scan of its folder; `stamp` was read before the scan, so a change
// during the scan leaves the index older than the folder and the next lookup scans again.
void Rebuild(FolderIndex& index, const struct timespec& stamp,
             const std::vector<std::string>& names, const std::vector<unsigned char>& types) {
  index.by_folded.Clear();
  index.by_folded.Reserve(names.size());
  index.ambiguous = false;
  for (size_t i = 0; i < names.size(); ++i) {
    AddScanned(index, names[i],
               i < types.size() ? types[i] : static_cast<unsigned char>(DT_UNKNOWN));
  }
  index.stamp = stamp;
  index.racy = RacyStamp(stamp);
}

// Scans `folder` into its index, name by name, so that a large folder is never held twice; 0,
// or the errno when the folder cannot be read (the index is then half filled: the caller drops
// it).
int Scan(const std::string& folder, FolderIndex& index) {
  struct stat st;
  if (int r = Fs().Stat(folder, &st); r != 0) return -r;
  if (!S_ISDIR(st.st_mode)) return ENOTDIR;
  const struct timespec stamp = st.st_mtim;
  index.by_folded.Clear();
  index.ambiguous = false;
  const int r = Fs().ListEach(
      folder, [&](std::string_view name, unsigned char type) { AddScanned(index, name, type); });
  if (r != 0) return -r;
  index.stamp = stamp;
  index.racy = RacyStamp(stamp);
  return 0;
}

// The entry itself: below the installation root a symlink is reported as a symlink (so it is
// neither an ordinary file nor a folder); the root and the folders above it are followed.
int EntryStat(const std::string& path, struct stat* st) {
  if (BelowConfinedRoot(path)) return Fs().Lstat(path, st);
  return Fs().Stat(path, st);
}

// A failed call (-errno) that says something else than "no such entry": the search failed.
bool SearchFailed(int r) {
  return r != 0 && r != -ENOENT && r != -ENOTDIR;
}

// Applies one name that appeared (`created`) or vanished; false when the index can no longer
// tell (a name removed while another that differs only in case may remain).
bool ApplyName(FolderIndex& index, const std::string& name, bool created,
               unsigned char type = DT_UNKNOWN, bool replaced = false) {
  const NameSet::Slot* hit = index.by_folded.Find(name);
  if (created) {
    if (!hit) {
      index.by_folded.Insert(name, type);
    } else if (index.by_folded.NameOf(*hit) != name) {
      index.ambiguous = true;
      if (name < index.by_folded.NameOf(*hit)) {
        index.by_folded.Erase(hit);
        index.by_folded.Insert(name, type);
      }
    } else if (replaced || type != DT_UNKNOWN) {
      // The same name again: a file renamed over it is looked at anew.
      hit->type = type;
    }
    return true;
  }
  if (!hit || index.by_folded.NameOf(*hit) != name) return !index.ambiguous;
  index.by_folded.Erase(hit);
  return !index.ambiguous;
}

constexpr uint32_t kWatchMask = IN_CREATE | IN_DELETE | IN_MOVED_FROM | IN_MOVED_TO |
                                IN_DELETE_SELF | IN_MOVE_SELF | IN_ONLYDIR | IN_DONT_FOLLOW;

void MarkForked() {
  TheWatcher().forked = true;
}

// A folder whose index may be watched: the installation root and the folders below it.
bool Watchable(const std::string& folder) {
  return BelowConfinedRoot(folder) || (folder != "/" && BelowConfinedRoot(folder + "/x"));
}

// Drops the index of `folder` and those of the folders below it, with their watches.
void DropIndexes(const std::string& folder) {
  Watcher& w = TheWatcher();
  const std::string below = folder == "/" ? "/" : folder + "/";
  auto& indexes = Indexes();
  for (auto it = indexes.begin(); it != indexes.end();) {
    if (it->first == folder || it->first.compare(0, below.size(), below) == 0) {
      if (it->second.wd >= 0) {
        ::inotify_rm_watch(w.fd, it->second.wd);
        w.folders.erase(it->second.wd);
      }
      it = indexes.erase(it);
    } else {
      ++it;
    }
  }
}

// Applies the reports queued since the last call to the watched indexes. A child process
// first lets go of the parent's watches: it must not take the parent's reports.
void Drain() {
  Watcher& w = TheWatcher();
  if (w.forked) {
    if (w.fd >= 0) ::close(w.fd);
    w.fd = -1;
    w.folders.clear();
    w.forked = false;
    Indexes().clear();
  }
  if (w.fd < 0) return;
  // Reading stops quietly on a failure, as when nothing more is queued.
  ReadInotifyReports(w.fd, [&](const struct inotify_event& event) {
    if (event.mask & IN_Q_OVERFLOW) {
      for (auto& entry : Indexes()) entry.second.stale = entry.second.wd >= 0;
      return true;
    }
    const auto watched = w.folders.find(event.wd);
    if (watched == w.folders.end()) return true;
    const std::string folder = watched->second;
    if (event.mask & (IN_IGNORED | IN_DELETE_SELF | IN_MOVE_SELF | IN_UNMOUNT)) {
      DropIndexes(folder);
      return true;
    }
    if (event.len == 0) return true;
    const std::string name(event.name, ::strnlen(event.name, event.len));
    const bool created = (event.mask & (IN_CREATE | IN_MOVED_TO)) != 0;
    const bool is_folder = (event.mask & IN_ISDIR) != 0;
    // A folder that went away, or another that took its name, takes the indexes below along.
    if (is_folder) DropIndexes(Join(folder, name));
    auto it = Indexes().find(folder);
    if (it != Indexes().end() &&
        !ApplyName(it->second, name, created, is_folder ? DT_DIR : DT_UNKNOWN,
                   (event.mask & IN_MOVED_TO) != 0)) {
      it->second.stale = true;
    }
    return true;
  });
}

// Starts the reports of a folder before the scan that fills its index, so that no change
// between the two is missed; -1 when no watch can be had (the stamps serve then).
int StartWatch(const std::string& folder) {
  Watcher& w = TheWatcher();
  if (w.fd < 0) {
    static const bool registered = ::pthread_atfork(nullptr, nullptr, MarkForked) == 0;
    (void)registered;
    w.fd = ::inotify_init1(IN_NONBLOCK | IN_CLOEXEC);
    if (w.fd < 0) return -1;
  }
  const int wd = ::inotify_add_watch(w.fd, folder.c_str(), kWatchMask);
  if (wd >= 0) w.folders[wd] = folder;
  return wd;
}

// Watches `folder` (and its ancestors up to the root), scanning it into a watched index.
void EnsureWatched(const std::string& folder) {
  auto& indexes = Indexes();
  auto it = indexes.find(folder);
  if (it != indexes.end() && it->second.wd >= 0) return;
  if (BelowConfinedRoot(folder)) EnsureWatched(Split(folder).first);
  const int wd = StartWatch(folder);
  if (wd < 0) return;
  FolderIndex index;
  if (Scan(folder, index) != 0) {
    ::inotify_rm_watch(TheWatcher().fd, wd);
    TheWatcher().folders.erase(wd);
    return;
  }
  index.wd = wd;
  indexes.insert_or_assign(folder, std::move(index));
}

// The answer of a watched index for `name` in the actual folder `folder`; nullopt when the
// folder has none (the caller goes the way of stamps). The index lock is held.
std::optional<std::optional<std::string>> WatchedAnswer(const std::string& folder,
                                                        const std::string& name, struct stat* st,
                                                        int* err) {
  auto it = Indexes().find(folder);
  if (it == Indexes().end() || it->second.wd < 0) return std::nullopt;
  FolderIndex& index = it->second;
  if (index.stale) {
    if (int e = Scan(folder, index); e != 0) {
      DropIndexes(folder);
      if (err && SearchFailed(-e)) *err = e;
      return std::optional<std::string>();
    }
    index.stale = false;
  }
  const NameSet::Slot* hit = index.by_folded.Find(name);
  if (!hit) return std::optional<std::string>();
  std::string full = Join(folder, std::string(index.by_folded.NameOf(*hit)));
  // A file's type never changes under its name: a file told by its type needs no look. A
  // folder is looked at, for the stamp that an index of its own may need.
  const unsigned char type = hit->type;
  // A folder with a watched index of its own needs no stamp either.
  const bool watched_folder = type == DT_DIR && [&] {
    auto own = Indexes().find(full);
    return own != Indexes().end() && own->second.wd >= 0 && !own->second.stale;
  }();
  if (type != DT_UNKNOWN && (type != DT_DIR || watched_folder)) {
    *st = {};
    st->st_mode = DTTOIF(type);
    return std::optional<std::string>(std::move(full));
  }
  const int r = EntryStat(full, st);
  if (r == 0) hit->type = IFTODT(st->st_mode);
  if (r == 0) return std::optional<std::string>(std::move(full));
  // Gone since the reports were read: its removal is on its way.
  if (err && SearchFailed(r)) *err = -r;
  return std::optional<std::string>();
}

// The answer for a clean path whose folder has a watched index, without any look at the
// folder; nullopt when the folder has none.
std::optional<std::optional<std::string>> WatchedLookUp(const std::string& path, struct stat* st,
                                                        int* err) {
  auto [folder, name] = Split(path);
  if (name.empty()) return std::nullopt;
  std::lock_guard lock(IndexMutex());
  Drain();
  if (auto answer = WatchedAnswer(folder, name, st, err)) return answer;
  // A folder below the root is watched from its first lookup on.
  if (!Watchable(folder)) return std::nullopt;
  EnsureWatched(folder);
  return WatchedAnswer(folder, name, st, err);
}

// The actual path of `name` in the existing actual folder `folder` (whose stamp is `stamp`),
// matched without regard to case; fills `st`. When `err` is given it receives the errno of a
// search that failed (rather than found nothing).
std::optional<std::string> LookUp(const std::string& folder, const struct timespec& stamp,
                                  const std::string& name, struct stat* st, int* err) {
  std::lock_guard lock(IndexMutex());
  Drain();
  if (auto answer = WatchedAnswer(folder, name, st, err)) return *answer;
  if (Watchable(folder)) {
    EnsureWatched(folder);
    if (auto answer = WatchedAnswer(folder, name, st, err)) return *answer;
  }
  auto& indexes = Indexes();
  auto it = indexes.find(folder);
  bool fresh = false;
  if (it == indexes.end() || !SameStamp(it->second.stamp, stamp)) {
    FolderIndex index;
    if (int e = Scan(folder, index); e != 0) {
      if (err && SearchFailed(-e)) *err = e;
      return std::nullopt;
    }
    it = indexes.insert_or_assign(folder, std::move(index)).first;
    fresh = true;
  }
  for (;;) {
    FolderIndex& index = it->second;
    const NameSet::Slot* hit = index.by_folded.Find(name);
    if (hit) {
      std::string full = Join(folder, std::string(index.by_folded.NameOf(*hit)));
      int r = EntryStat(full, st);
      if (r == 0) return full;
      if (err && SearchFailed(r)) {
        *err = -r;
        return std::nullopt;
      }
    } else if (!index.racy) {
      return std::nullopt;
    }
    // A name the index holds is gone, or a racy index misses: the folder changed within the
    // tick of its stamp. One fresh scan settles it.
    if (fresh) return std::nullopt;
    if (int e = Scan(folder, index); e != 0) {
      indexes.erase(it);
      if (err && SearchFailed(-e)) *err = e;
      return std::nullopt;
    }
    fresh = true;
  }
}

// ResolveExisting on a clean, safe path; fills `st` for the entry found.
std::optional<std::string> ResolveClean(const std::string& path, struct stat* st,
                                        int* err = nullptr) {
  if (auto answer = WatchedLookUp(path, st, err)) return *answer;
  int r = EntryStat(path, st);
  if (r == 0) return path;
  if (err && SearchFailed(r)) {
    *err = -r;
    return std::nullopt;
  }
  auto [folder, name] = Split(path);
  if (name.empty()) return std::nullopt;
  struct stat folder_st;
  auto actual_folder = ResolveClean(folder, &folder_st, err);
  if (!actual_folder || !S_ISDIR(folder_st.st_mode)) return std::nullopt;
  return LookUp(*actual_folder, folder_st.st_mtim, name, st, err);
}

std::optional<std::string> Resolve(const std::string& raw, struct stat* st, int* err = nullptr) {
  if (raw.empty() || Unsafe(raw)) return std::nullopt;
  return ResolveClean(Clean(raw), st, err);
}

bool IsHiddenName(std::string_view name) {
  return !name.empty() && name[0] == '.';
}

}  // namespace

std::optional<std::string> ResolveExisting(const std::string& path) {
  struct stat st;
  return Resolve(path, &st);
}

std::string ResolveForCreate(const std::string& raw) {
  if (raw.empty() || Unsafe(raw)) Raise(kErrBadFileNumber);
  std::string path = Clean(raw);
  struct stat st;
  if (auto existing = ResolveClean(path, &st)) return *existing;
  auto [folder, name] = Split(path);
  if (folder == "/" || folder == ".") return path;
  {
    // A watched folder is there under this very name.
    std::lock_guard lock(IndexMutex());
    auto it = Indexes().find(folder);
    if (it != Indexes().end() && it->second.wd >= 0) return Join(folder, name);
  }
  if (auto actual_folder = ResolveClean(folder, &st)) return Join(*actual_folder, name);
  return Join(ResolveForCreate(folder), name);
}

struct timespec FolderStamp(const std::string& path) {
  struct timespec stamp {};
  const std::string folder = Split(Clean(path)).first;
  {
    // A watched folder needs no stamp: the reports keep its index current.
    std::lock_guard lock(IndexMutex());
    auto it = Indexes().find(folder);
    if (it != Indexes().end() && it->second.wd >= 0) return stamp;
  }
  ReadStamp(folder, &stamp);
  return stamp;
}

namespace {
void Note(const std::string& raw_path, const struct timespec* before, bool created,
          unsigned char type = DT_UNKNOWN) {
  const std::string actual_path = Clean(raw_path);
  auto [folder, name] = Split(actual_path);
  std::lock_guard lock(IndexMutex());
  auto& indexes = Indexes();
  auto it = indexes.find(folder);
  if (it == indexes.end()) return;
  FolderIndex& index = it->second;
  // Another name that differs only in case may still exist after a removal: a scan finds it.
  const bool exact = ApplyName(index, name, created, type);
  if (index.wd >= 0) {
    // Watched: the report of our change comes as well, and agrees.
    if (!exact) index.stale = true;
    return;
  }
  const bool keeps_stamp = before && SameStamp(index.stamp, *before) && exact;
  // When the index was current just before our own change, it is current after it as well.
  struct timespec now;
  if (keeps_stamp && ReadStamp(folder, &now)) index.stamp = now;
}
}  // namespace

void NoteCreated(const std::string& actual_path) {
  Note(actual_path, nullptr, true);
}
void NoteRemoved(const std::string& actual_path) {
  Note(actual_path, nullptr, false);
}
void NoteCreated(const std::string& actual_path, const struct timespec& before) {
  Note(actual_path, &before, true);
}
void NoteCreatedFile(const std::string& actual_path, const struct timespec& before) {
  Note(actual_path, &before, true, DT_REG);
}
void NoteRemoved(const std::string& actual_path, const struct timespec& before) {
  Note(actual_path, &before, false);
}

void ForgetNameIndexes() {
  std::lock_guard lock(IndexMutex());
  Indexes().clear();
  Watcher& w = TheWatcher();
  if (w.fd >= 0) ::close(w.fd);
  w.fd = -1;
  w.folders.clear();
  w.forked = false;
}

bool OrdinaryFileExists(const std::string& path) {
  struct stat st;
  auto actual = Resolve(path, &st);
  return actual && S_ISREG(st.st_mode) && !IsHiddenName(Split(*actual).second);
}

bool FindOrdinaryFile(const std::string& path) {
  struct stat st;
  int err = 0;
  auto actual = Resolve(path, &st, &err);
  if (err != 0) RaiseErrno(err);
  if (!actual) return false;
  // A search looks at the entry itself, even where the index knows it: it is the search that
  // can fail.
  if (int r = EntryStat(*actual, &st); r != 0) {
    if (SearchFailed(r)) RaiseErrno(-r);
    return false;
  }
  return S_ISREG(st.st_mode) && !IsHiddenName(Split(*actual).second);
}

bool AnyFileExists(const std::string& path) {
  struct stat st;
  return Resolve(path, &st) && !S_ISDIR(st.st_mode);
}

bool FolderExists(const std::string& path) {
  struct stat st;
  return Resolve(path, &st) && S_ISDIR(st.st_mode);
}

bool PathExists(const std::string& path) {
  struct stat st;
  return Resolve(path, &st).has_value();
}

bool MatchesPattern(std::string_view name, std::string_view pattern) {
  // "*.EML" and the like, asked of every name of a large folder: the end of the name decides.
  if (!pattern.empty() && pattern[0] == '*' &&
      pattern.find_first_of("*?", 1) == std::string_view::npos) {
    const std::string_view end = pattern.substr(1);
    if (name.size() < end.size()) return false;
    const std::string_view tail = name.substr(name.size() - end.size());
    for (size_t i = 0; i < end.size(); ++i) {
      if (LowerChar(tail[i]) != LowerChar(end[i])) return false;
    }
    return true;
  }
  // Iterative wildcard match with backtracking to the last "*".
  size_t n = 0, p = 0, star = std::string_view::npos, mark = 0;
  while (n < name.size()) {
    if (p < pattern.size() && (pattern[p] == '?' || LowerChar(pattern[p]) == LowerChar(name[n]))) {
      ++n;
      ++p;
    } else if (p < pattern.size() && pattern[p] == '*') {
      star = p++;
      mark = n;
    } else if (star != std::string_view::npos) {
      p = star + 1;
      n = ++mark;
    } else {
      return false;
    }
  }
  while (p < pattern.size() && pattern[p] == '*') ++p;
  return p == pattern.size();
}

bool NameLess(std::string_view a, std::string_view b) {
  size_t n = std::min(a.size(), b.size());
  for (size_t i = 0; i < n; ++i) {
    unsigned char x = static_cast<unsigned char>(a[i]);
    unsigned char y = static_cast<unsigned char>(b[i]);
    if (x >= 'A' && x <= 'Z') x += 32;
    if (y >= 'A' && y <= 'Z') y += 32;
    if (x != y) return x < y;
  }
  return a.size() < b.size();
}

std::string AsciiFolded(std::string_view name) {
  std::string out(name);
  for (char& c : out) {
    if (c >= 'A' && c <= 'Z') c = static_cast<char>(c + 32);
  }
  return out;
}

bool ListedBefore(std::string_view a, std::string_view b) {
  if (NameLess(a, b)) return true;
  if (NameLess(b, a)) return false;
  return a < b;  // names equal but for letter case: a fixed order all the same
}

std::vector<std::string> ListFiles(const std::string& folder, std::string_view pattern) {
  std::vector<std::string> result;
  ListFilesOrFail(folder, pattern, &result);
  return result;
}

bool ListFilesOrFail(const std::string& folder, std::string_view pattern,
                     std::vector<std::string>* listed) {
  std::vector<std::string>& result = *listed;
  result.clear();
  auto actual = ResolveExisting(folder);
  if (!actual) return false;
  const auto by_name = [](const std::string& a, const std::string& b) {
    return ListedBefore(a, b);
  };
  {
    // A watched index holds the folder's names as they are: no scan. (Names that differ only
    // in case share one entry, so such a folder is scanned.)
    std::lock_guard lock(IndexMutex());
    Drain();
    // A folder below the root is watched from its first listing on, like from a lookup.
    if (Watchable(*actual)) EnsureWatched(*actual);
    auto it = Indexes().find(*actual);
    if (it != Indexes().end() && it->second.wd >= 0 && !it->second.stale && !it->second.ambiguous) {
      const NameSet& names = it->second.by_folded;
      // Counted first, so that a listing of a large folder is held once, without spare room.
      size_t matching = 0;
      names.ForEach([&](const NameSet::Slot& slot) {
        const std::string_view name = names.NameOf(slot);
        if (!IsHiddenName(name) && MatchesPattern(name, pattern)) ++matching;
      });
      result.reserve(matching);
      names.ForEach([&](const NameSet::Slot& slot) {
        const std::string_view name = names.NameOf(slot);
        if (IsHiddenName(name) || !MatchesPattern(name, pattern)) return;
        if (slot.type == DT_UNKNOWN) {
          struct stat st;
          if (Fs().Lstat(Join(*actual, std::string(name)), &st) == 0) {
            slot.type = IFTODT(st.st_mode);
          }
        }
        // A symlink is never listed, whatever it points at.
        if (slot.type == DT_REG) result.emplace_back(name);
      });
      std::sort(result.begin(), result.end(), by_name);
      return true;
    }
  }
  struct timespec stamp;
  bool stamped = ReadStamp(*actual, &stamp);
  std::vector<std::string> names;
  std::vector<unsigned char> types;
  if (Fs().List(*actual, &names, &types) != 0) return false;
  // The scan refreshes the folder's index when it is behind. A folder that lookups never
  // needed an index for (the input queue, whose names are asked for in their own case) gets
  // none: its first lookup that needs one scans for itself.
  if (stamped) {
    std::lock_guard lock(IndexMutex());
    auto it = Indexes().find(*actual);
    if (it != Indexes().end()) {
      FolderIndex& index = it->second;
      if (index.wd >= 0 ? index.stale : index.racy || !SameStamp(index.stamp, stamp)) {
        Rebuild(index, stamp, names, types);
        index.stale = false;
      }
    }
  }
  for (size_t i = 0; i < names.size(); ++i) {
    const std::string& n = names[i];
    if (IsHiddenName(n) || !MatchesPattern(n, pattern)) continue;
    // A symlink is never listed, whatever it points at.
    bool regular = types[i] == DT_REG;
    if (types[i] == DT_UNKNOWN) {
      struct stat st;
      regular = Fs().Lstat(Join(*actual, n), &st) == 0 && S_ISREG(st.st_mode);
    }
    if (regular) result.push_back(std::move(names[i]));
  }
  // The order of NameLess; names equal but for case keep one order (their bytes) whatever the
  // scan gave.
  std::sort(result.begin(), result.end(), by_name);
  return true;
}

bool SafeName(std::string_view name) {
  if (name.empty() || name == "." || name == "..") return false;
  return name.find('/') == std::string_view::npos && name.find('\0') == std::string_view::npos;
}

}  // namespace quellor
