#include "platform/fs.h"

#include <dirent.h>
#include <fcntl.h>
#include <unistd.h>

#include <cerrno>

namespace quellor {

namespace {
FileSystem& Plain() {
  static FileSystem plain;
  return plain;
}
FileSystem* g_current = nullptr;

int Result(int r) {
  return r < 0 ? -errno : r;
}
long Result(long r) {
  return r < 0 ? -errno : r;
}
}  // namespace

FileSystem& Fs() {
  return g_current ? *g_current : Plain();
}

FileSystem* SetFileSystem(FileSystem* fs) {
  FileSystem* previous = g_current;
  g_current = fs;
  return previous;
}

int FileSystem::Open(const std::string& path, int flags, int mode) {
  int r;
  do {
    r = ::open(path.c_str(), flags | O_CLOEXEC, mode);
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
  return Result(::unlink(path.c_str()));
}
int FileSystem::Rename(const std::string& from, const std::string& to) {
  return Result(::rename(from.c_str(), to.c_str()));
}
int FileSystem::Link(const std::string& from, const std::string& to) {
  return Result(::link(from.c_str(), to.c_str()));
}
int FileSystem::Stat(const std::string& path, struct stat* st) {
  return Result(::stat(path.c_str(), st));
}
int FileSystem::Fstat(int fd, struct stat* st) {
  return Result(::fstat(fd, st));
}
int FileSystem::Mkdir(const std::string& path, int mode) {
  return Result(::mkdir(path.c_str(), static_cast<mode_t>(mode)));
}
int FileSystem::Rmdir(const std::string& path) {
  return Result(::rmdir(path.c_str()));
}

int FileSystem::List(const std::string& dir, std::vector<std::string>* names,
                     std::vector<unsigned char>* types) {
  DIR* d = ::opendir(dir.c_str());
  if (!d) return -errno;
  names->clear();
  if (types) types->clear();
  errno = 0;
  while (struct dirent* e = ::readdir(d)) {
    const char* n = e->d_name;
    if (n[0] == '.' && (n[1] == 0 || (n[1] == '.' && n[2] == 0))) continue;
    names->emplace_back(n);
    if (types) types->push_back(e->d_type);
  }
  int err = errno;
  ::closedir(d);
  return err ? -err : 0;
}

int FileSystem::Fsync(int fd) {
  return Result(::fsync(fd));
}

int FileSystem::SyncDir(const std::string& dir) {
  int fd = ::open(dir.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
  if (fd < 0) return -errno;
  int r = ::fsync(fd);
  int err = errno;
  ::close(fd);
  return r < 0 ? -err : 0;
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
