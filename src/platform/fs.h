#pragma once
// The thin seam through which every file-system call passes, so that tests can make a given
// call, or the Nth call, fail with an errno of their choice.

#include <sys/stat.h>

#include <cstddef>
#include <functional>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

namespace quellor {

// The kinds of call that pass through the seam.
enum class FsOp { kOpen, kRead, kWrite, kClose, kUnlink, kRename, kStat, kMkdir, kList, kSync };

// One flush of a batch: an open descriptor, or (fd < 0) a folder to open and flush; `result`
// receives 0 or -errno.
struct SyncJob {
  int fd = -1;
  std::string folder;
  int result = 0;
};

class FileSystem {
 public:
  virtual ~FileSystem() = default;
  // Each returns 0 (or a descriptor / byte count) on success and -errno on failure.
  virtual int Open(const std::string& path, int flags, int mode);
  virtual long Read(int fd, void* buf, size_t n);
  virtual long Write(int fd, const void* buf, size_t n);
  virtual long Pread(int fd, void* buf, size_t n, long offset);
  virtual int Close(int fd);
  virtual int Unlink(const std::string& path);
  virtual int Rename(const std::string& from, const std::string& to);
  virtual int Link(const std::string& from, const std::string& to);
  virtual int Stat(const std::string& path, struct stat* st);
  // Like Stat, but a symlink is reported as itself, never followed.
  virtual int Lstat(const std::string& path, struct stat* st);
  virtual int Fstat(int fd, struct stat* st);
  virtual int Mkdir(const std::string& path, int mode);
  virtual int Rmdir(const std::string& path);
  // The names in a folder (without "." and ".."), unsorted; `types` receives the d_type of each
  // name when given (DT_UNKNOWN where the file system does not tell).
  virtual int List(const std::string& dir, std::vector<std::string>* names,
                   std::vector<unsigned char>* types = nullptr);
  // Calls `each` with every name in a folder (without "." and "..") and its d_type, without
  // holding them all; -errno on failure. A seam of another kind answers through its List.
  int ListEach(const std::string& dir,
               const std::function<void(std::string_view name, unsigned char type)>& each);
  virtual int Fsync(int fd);
  virtual int SyncDir(const std::string& dir);
  // Flushes every job of a batch, side by side so that the disk serves them together (a seam
  // of another kind gets each job's Fsync or SyncDir in turn).
  virtual void SyncMany(std::vector<SyncJob>& jobs);
};

// Confines the plain seam to an installation root: below it no symlink is ever followed, neither
// as the last component of a path nor as a folder on the way (the root itself may be one). Opens
// never follow a final symlink anywhere and never block on a FIFO.
void ConfineToRoot(const std::string& root);
// Whether `path` lies strictly below the confined root.
bool BelowConfinedRoot(const std::string& path);

// The seam in force for the process (a plain FileSystem unless a test installs another).
FileSystem& Fs();
// Installs a seam; returns the previous one. Passing nullptr restores the plain one.
FileSystem* SetFileSystem(FileSystem* fs);

// A seam for tests that makes chosen calls fail.
class FaultyFileSystem : public FileSystem {
 public:
  // Fails the nth (1-based, counted from now) call of `op` whose path contains `path_part`
  // (empty: any path; calls on descriptors match any part), `times` times in a row.
  void FailNth(FsOp op, int nth, int err, int times = 1, std::string path_part = "");
  // Fails every call of `op` whose path contains `path_part` until Clear().
  void FailAlways(FsOp op, int err, std::string path_part = "");
  void Clear();
  // How many calls of `op` passed through the seam since the last Clear().
  int calls(FsOp op) const;

  int Open(const std::string& path, int flags, int mode) override;
  long Read(int fd, void* buf, size_t n) override;
  long Write(int fd, const void* buf, size_t n) override;
  long Pread(int fd, void* buf, size_t n, long offset) override;
  int Close(int fd) override;
  int Unlink(const std::string& path) override;
  int Rename(const std::string& from, const std::string& to) override;
  int Link(const std::string& from, const std::string& to) override;
  int Stat(const std::string& path, struct stat* st) override;
  int Lstat(const std::string& path, struct stat* st) override;
  int Fstat(int fd, struct stat* st) override;
  int Mkdir(const std::string& path, int mode) override;
  int List(const std::string& dir, std::vector<std::string>* names,
           std::vector<unsigned char>* types = nullptr) override;
  int Fsync(int fd) override;
  int SyncDir(const std::string& dir) override;

 private:
  struct Rule {
    FsOp op;
    std::string path_part;
    int remaining_skip;  // calls to let pass first
    int times;           // failures left; -1 = always
    int err;
  };
  // Returns the errno to fail with, or 0.
  int Check(FsOp op, const std::string& path);
  std::vector<Rule> rules_;
  int counts_[10] = {};
};

// Installs a seam for the lifetime of a scope.
class ScopedFileSystem {
 public:
  explicit ScopedFileSystem(FileSystem* fs) : previous_(SetFileSystem(fs)) {}
  ~ScopedFileSystem() { SetFileSystem(previous_); }
  ScopedFileSystem(const ScopedFileSystem&) = delete;
  ScopedFileSystem& operator=(const ScopedFileSystem&) = delete;

 private:
  FileSystem* previous_;
};

}  // namespace quellor
