#include "platform/fs.h"

#include <dirent.h>
#include <fcntl.h>
#include <linux/openat2.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cerrno>
#include <mutex>
#include <typeinfo>

#include "platform/side_by_side.h"

namespace quellor {

namespace {
FileSystem& Plain() {
  static FileSystem plain;
  return plain;
}
FileSystem* g_current = nullptr;

// The names of a folder (without "." and "..") with their d_type, one by one; -errno on failure.
int ReadFolder(const std::string& dir,
               const std::function<void(std::string_view name, unsigned char type)>& each) {
  DIR* d = ::opendir(dir.c_str());
  if (!d) return -errno;
  errno = 0;
  while (struct dirent* e = ::readdir(d)) {
    const char* n = e->d_name;
    if (n[0] == '.' && (n[1] == 0 || (n[1] == '.' && n[2] == 0))) continue;
    each(n, e->d_type);
    errno = 0;
  }
  const int err = errno;
  ::closedir(d);
  return err ? -err : 0;
}

// The plain seam itself, not a test's seam derived from it (which must see every call in turn).
bool IsPlain(const FileSystem& fs) {
  return typeid(fs) == typeid(FileSystem);
}

int Result(int r) {
  return r < 0 ? -errno : r;
}
long Result(long r) {
  return r < 0 ? -errno : r;
}
// The confined root ("/srv/q/", with its trailing slash) and a descriptor of it.
struct Confinement {
  std::mutex mutex;
  std::string root;
  int fd = -1;
  bool no_openat2 = false;
};
Confinement& Confined() {
  static Confinement c;
  return c;
}

// Opens `relative` below the folder `dirfd` without following any symlink on the way.
int OpenBeneath(Confinement& c, const std::string& relative, int flags, int mode) {
  if (!c.no_openat2) {
    struct open_how how {};
    how.flags = static_cast<uint64_t>(flags);
    how.mode = (flags & (O_CREAT | O_TMPFILE)) ? static_cast<uint64_t>(mode) : 0;
    how.resolve = RESOLVE_NO_SYMLINKS | RESOLVE_BENEATH;
    long r;
    do {
      r = ::syscall(SYS_openat2, c.fd, relative.c_str(), &how, sizeof how);
    } while (r < 0 && errno == EINTR);
    if (r >= 0 || (errno != ENOSYS && errno != EPERM)) return r < 0 ? -errno : static_cast<int>(r);
    c.no_openat2 = true;
  }
  // Without openat2: walk folder by folder, each opened without following a symlink.
  int dir = ::fcntl(c.fd, F_DUPFD_CLOEXEC, 0);
  if (dir < 0) return -errno;
  size_t start = 0;
  for (;;) {
    size_t slash = relative.find('/', start);
    if (slash == std::string::npos) break;
    std::string part = relative.substr(start, slash - start);
    start = slash + 1;
    if (part.empty()) continue;
    int next = ::openat(dir, part.c_str(), O_PATH | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC);
    int err = errno;
    ::close(dir);
    if (next < 0) return -err;
    dir = next;
  }
  int r = ::openat(dir, relative.c_str() + start, flags | O_NOFOLLOW, mode);
  int err = errno;
  ::close(dir);
  return r < 0 ? -err : r;
}

// The path relative to the confined root, or "" when the path is not below it.
std::string BelowRoot(Confinement& c, const std::string& path) {
  // A root made after the confinement was set (a fresh tree) is opened on first use.
  if (c.fd < 0 && !c.root.empty()) c.fd = ::open(c.root.c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC);
  if (c.fd < 0 || path.size() <= c.root.size() || path.compare(0, c.root.size(), c.root) != 0) {
    return "";
  }
  return path.substr(c.root.size());
}

// Opens the folder that holds `path` (below the root) without following symlinks, for the *at
// calls; `name` receives the last component. AT_FDCWD with the whole path when not below it.
int ParentOf(const std::string& path, std::string* name) {
  Confinement& c = Confined();
  std::lock_guard lock(c.mutex);
  std::string relative = BelowRoot(c, path);
  if (relative.empty()) {
    *name = path;
    return AT_FDCWD;
  }
  size_t slash = relative.find_last_of('/');
  *name = slash == std::string::npos ? relative : relative.substr(slash + 1);
  if (slash == std::string::npos) return ::fcntl(c.fd, F_DUPFD_CLOEXEC, 0);
  return OpenBeneath(c, relative.substr(0, slash), O_PATH | O_DIRECTORY | O_CLOEXEC, 0);
}

// Runs an *at call on the folder of `path`.
template <class Call>
int AtParent(const std::string& path, Call&& call) {
  std::string name;
  int dir = ParentOf(path, &name);
  if (dir < 0 && dir != AT_FDCWD) return dir;
  // The call returns -1 with errno set, or (a nested AtParent) the negative errno itself.
  int r = call(dir, name.c_str());
  int err = r == -1 ? errno : -r;
  if (dir != AT_FDCWD) ::close(dir);
  return r < 0 ? -err : r;
}

}  // namespace

void ConfineToRoot(const std::string& root) {
  Confinement& c = Confined();
  std::lock_guard lock(c.mutex);
  if (c.fd >= 0) ::close(c.fd);
  c.root = root;
  if (!c.root.empty() && c.root.back() != '/') c.root += '/';
  // The root itself may be a symlink (an administrator's choice); what lies below it may not.
  c.fd = ::open(c.root.c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC);
}

bool BelowConfinedRoot(const std::string& path) {
  Confinement& c = Confined();
  std::lock_guard lock(c.mutex);
  return !BelowRoot(c, path).empty();
}

FileSystem& Fs() {
  return g_current ? *g_current : Plain();
}

FileSystem* SetFileSystem(FileSystem* fs) {
  FileSystem* previous = g_current;
  g_current = fs;
  return previous;
}

int FileSystem::Open(const std::string& path, int flags, int mode) {
  // A FIFO must never hold the pass: it opens at once and is then refused as not a regular file.
  flags |= O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK;
  {
    Confinement& c = Confined();
    std::lock_guard lock(c.mutex);
    std::string relative = BelowRoot(c, path);
    if (!relative.empty()) return OpenBeneath(c, relative, flags, mode);
  }
  int r;
  do {
    r = ::open(path.c_str(), flags, mode);
  } while (r < 0 && errno == EINTR);
  return Result(r);
}

long FileSystem::Read(int fd, void* buf, size_t n) {
  long r;
  do {
    r = ::read(fd, buf, n);
  } while (r < 0 && errno == EINTR);
  return Result(r);
}

long FileSystem::Write(int fd, const void* buf, size_t n) {
  long r;
  do {
    r = ::write(fd, buf, n);
  } while (r < 0 && errno == EINTR);
  return Result(r);
}

long FileSystem::Pread(int fd, void* buf, size_t n, long offset) {
  long r;
  do {
    r = ::pread(fd, buf, n, offset);
  } while (r < 0 && errno == EINTR);
  return Result(r);
}

int FileSystem::Close(int fd) {
  return Result(::close(fd));
}
int FileSystem::Unlink(const std::string& path) {
  return AtParent(path, [](int dir, const char* name) { return ::unlinkat(dir, name, 0); });
}
int FileSystem::Rename(const std::string& from, const std::string& to) {
  return AtParent(from, [&](int from_dir, const char* from_name) {
    return AtParent(to, [&](int to_dir, const char* to_name) {
      return ::renameat(from_dir, from_name, to_dir, to_name);
    });
  });
}
int FileSystem::Link(const std::string& from, const std::string& to) {
  // A symlink is linked as itself (no AT_SYMLINK_FOLLOW), never its target.
  return AtParent(from, [&](int from_dir, const char* from_name) {
    return AtParent(to, [&](int to_dir, const char* to_name) {
      return ::linkat(from_dir, from_name, to_dir, to_name, 0);
    });
  });
}
int FileSystem::Stat(const std::string& path, struct stat* st) {
  return Result(::stat(path.c_str(), st));
}
int FileSystem::Lstat(const std::string& path, struct stat* st) {
  return Result(::lstat(path.c_str(), st));
}
int FileSystem::Fstat(int fd, struct stat* st) {
  return Result(::fstat(fd, st));
}
int FileSystem::Mkdir(const std::string& path, int mode) {
  return AtParent(path, [&](int dir, const char* name) {
    return ::mkdirat(dir, name, static_cast<mode_t>(mode));
  });
}
int FileSystem::Rmdir(const std::string& path) {
  return Result(::rmdir(path.c_str()));
}

int FileSystem::List(const std::string& dir, std::vector<std::string>* names,
                     std::vector<unsigned char>* types) {
  names->clear();
  if (types) types->clear();
  return ReadFolder(dir, [&](std::string_view name, unsigned char type) {
    names->emplace_back(name);
    if (types) types->push_back(type);
  });
}

int FileSystem::ListEach(
    const std::string& dir,
    const std::function<void(std::string_view name, unsigned char type)>& each) {
  if (!IsPlain(*this)) {
    std::vector<std::string> names;
    std::vector<unsigned char> types;
    if (int r = List(dir, &names, &types); r != 0) return r;
    for (size_t i = 0; i < names.size(); ++i) {
      each(names[i], i < types.size() ? types[i] : static_cast<unsigned char>(DT_UNKNOWN));
    }
    return 0;
  }
  return ReadFolder(dir, each);
}

int FileSystem::Fsync(int fd) {
  return Result(::fsync(fd));
}

int FileSystem::SyncDir(const std::string& dir) {
  int fd = FileSystem::Open(dir, O_RDONLY | O_DIRECTORY, 0);
  if (fd < 0) return fd;
  int r = ::fsync(fd);
  int err = errno;
  ::close(fd);
  return r < 0 ? -err : 0;
}

void FileSystem::SyncMany(std::vector<SyncJob>& jobs) {
  // A seam that watches or fails calls (tests) sees every flush, in order, on this thread.
  if (!IsPlain(*this)) {
    for (SyncJob& job : jobs) job.result = job.fd >= 0 ? Fsync(job.fd) : SyncDir(job.folder);
    return;
  }
  RunSideBySide(jobs.size(), [&](size_t i) {
    SyncJob& job = jobs[i];
    job.result = job.fd >= 0 ? FileSystem::Fsync(job.fd) : FileSystem::SyncDir(job.folder);
  });
}

// ---- FaultyFileSystem ----

void FaultyFileSystem::FailNth(FsOp op, int nth, int err, int times, std::string path_part) {
  rules_.push_back({op, std::move(path_part), nth - 1, times, err});
}

void FaultyFileSystem::FailAlways(FsOp op, int err, std::string path_part) {
  rules_.push_back({op, std::move(path_part), 0, -1, err});
}

void FaultyFileSystem::Clear() {
  rules_.clear();
  for (int& c : counts_) c = 0;
}

int FaultyFileSystem::calls(FsOp op) const {
  return counts_[static_cast<int>(op)];
}

int FaultyFileSystem::Check(FsOp op, const std::string& path) {
  ++counts_[static_cast<int>(op)];
  for (Rule& r : rules_) {
    if (r.op != op || r.times == 0) continue;
    // Calls on descriptors carry no path and match any rule of their kind.
    if (!path.empty() && !r.path_part.empty() && path.find(r.path_part) == std::string::npos) {
      continue;
    }
    if (r.remaining_skip > 0) {
      --r.remaining_skip;
      continue;
    }
    if (r.times > 0) --r.times;
    return r.err;
  }
  return 0;
}

#define QUELLOR_FAULT(op, path)    \
  if (int err = Check(op, path)) { \
    return -err;                   \
  }

int FaultyFileSystem::Open(const std::string& path, int flags, int mode) {
  QUELLOR_FAULT(FsOp::kOpen, path);
  return FileSystem::Open(path, flags, mode);
}
long FaultyFileSystem::Read(int fd, void* buf, size_t n) {
  QUELLOR_FAULT(FsOp::kRead, "");
  return FileSystem::Read(fd, buf, n);
}
long FaultyFileSystem::Write(int fd, const void* buf, size_t n) {
  QUELLOR_FAULT(FsOp::kWrite, "");
  return FileSystem::Write(fd, buf, n);
}
long FaultyFileSystem::Pread(int fd, void* buf, size_t n, long offset) {
  QUELLOR_FAULT(FsOp::kRead, "");
  return FileSystem::Pread(fd, buf, n, offset);
}
int FaultyFileSystem::Close(int fd) {
  if (int err = Check(FsOp::kClose, "")) {
    FileSystem::Close(fd);  // the descriptor is released even when the close reports an error
    return -err;
  }
  return FileSystem::Close(fd);
}
int FaultyFileSystem::Unlink(const std::string& path) {
  QUELLOR_FAULT(FsOp::kUnlink, path);
  return FileSystem::Unlink(path);
}
int FaultyFileSystem::Rename(const std::string& from, const std::string& to) {
  QUELLOR_FAULT(FsOp::kRename, from + "\n" + to);
  return FileSystem::Rename(from, to);
}
int FaultyFileSystem::Link(const std::string& from, const std::string& to) {
  QUELLOR_FAULT(FsOp::kRename, from + "\n" + to);
  return FileSystem::Link(from, to);
}
int FaultyFileSystem::Stat(const std::string& path, struct stat* st) {
  QUELLOR_FAULT(FsOp::kStat, path);
  return FileSystem::Stat(path, st);
}
int FaultyFileSystem::Lstat(const std::string& path, struct stat* st) {
  QUELLOR_FAULT(FsOp::kStat, path);
  return FileSystem::Lstat(path, st);
}
int FaultyFileSystem::Fstat(int fd, struct stat* st) {
  QUELLOR_FAULT(FsOp::kStat, "");
  return FileSystem::Fstat(fd, st);
}
int FaultyFileSystem::Mkdir(const std::string& path, int mode) {
  QUELLOR_FAULT(FsOp::kMkdir, path);
  return FileSystem::Mkdir(path, mode);
}
int FaultyFileSystem::List(const std::string& dir, std::vector<std::string>* names,
                           std::vector<unsigned char>* types) {
  QUELLOR_FAULT(FsOp::kList, dir);
  return FileSystem::List(dir, names, types);
}
int FaultyFileSystem::Fsync(int fd) {
  QUELLOR_FAULT(FsOp::kSync, "");
  return FileSystem::Fsync(fd);
}
int FaultyFileSystem::SyncDir(const std::string& dir) {
  QUELLOR_FAULT(FsOp::kSync, dir);
  return FileSystem::SyncDir(dir);
}

#undef QUELLOR_FAULT

}  // namespace quellor
