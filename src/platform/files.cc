#include "platform/files.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>

#include "platform/errors.h"
#include "platform/fs.h"
#include "platform/names.h"

namespace quellor {

namespace {

constexpr size_t kBlock = 64 * 1024;

// A failed create in a missing folder reads as "Path not found".
[[noreturn]] void RaiseCreate(int err) {
  if (err == ENOENT) Raise(kErrPathNotFound);
  RaiseErrno(err);
}

// The error for a path that names nothing: "Path not found" when its folder is missing as well.
[[noreturn]] void RaiseMissing(const std::string& path) {
  size_t slash = path.find_last_of('/');
  if (slash != std::string::npos && slash > 0 && !FolderExists(path.substr(0, slash))) {
    Raise(kErrPathNotFound);
  }
  Raise(kErrFileNotFound);
}

std::string ExistingOrRaise(const std::string& path) {
  auto actual = ResolveExisting(path);
  if (!actual) RaiseMissing(path);
  return *actual;
}

void WriteAll(int fd, const char* data, size_t n) {
  while (n > 0) {
    long w = Fs().Write(fd, data, n);
    if (w < 0) RaiseErrno(static_cast<int>(-w));
    if (w == 0) Raise(kErrDiskFull);
    data += w;
    n -= static_cast<size_t>(w);
  }
}

}  // namespace

int OpenRegular(const std::string& path, int flags, int mode) {
  int fd = Fs().Open(path, flags, mode);
  // A symlink (ELOOP) or a FIFO without a reader (ENXIO) is refused like any other non-file.
  if (fd == -ELOOP || fd == -ENXIO) return -EACCES;
  if (fd < 0) return fd;
  // A file this very call created is a regular file.
  if ((flags & (O_CREAT | O_EXCL)) == (O_CREAT | O_EXCL)) return fd;
  // Straight to the system: a test's failing stat of some path must not hit this descriptor.
  struct stat st;
  int r = ::fstat(fd, &st) == 0 ? 0 : -errno;
  if (r == 0 && !S_ISREG(st.st_mode)) r = S_ISDIR(st.st_mode) ? -EISDIR : -EACCES;
  if (r != 0) {
    Fs().Close(fd);
    return r;
  }
  return fd;
}

TextFile::~TextFile() {
  if (fd_ >= 0) {
    try {
      Flush();
    } catch (...) {
      // A destructor cannot report; Close() is the place where a failed write is seen.
    }
    Fs().Close(fd_);
  }
}

TextFile::TextFile(TextFile&& other) noexcept {
  *this = std::move(other);
}

TextFile& TextFile::operator=(TextFile&& other) noexcept {
  if (this != &other) {
    if (fd_ >= 0) {
      try {
        Flush();
      } catch (...) {
      }
      Fs().Close(fd_);
    }
    fd_ = other.fd_;
    path_ = std::move(other.path_);
    mode_ = other.mode_;
    in_ = std::move(other.in_);
    in_pos_ = other.in_pos_;
    at_end_ = other.at_end_;
    out_ = std::move(other.out_);
    pos_ = other.pos_;
    other.fd_ = -1;
  }
  return *this;
}

TextFile TextFile::Open(const std::string& path, OpenMode mode) {
  TextFile f;
  f.mode_ = mode;
  auto existing = ResolveExisting(path);
  if (mode == OpenMode::kInput) {
    if (!existing) RaiseMissing(path);
    int fd = OpenRegular(*existing, O_RDONLY, 0);
    if (fd < 0) RaiseErrno(-fd);
    f.fd_ = fd;
    f.path_ = *existing;
    return f;
  }
  int flags = O_CREAT;
  switch (mode) {
    case OpenMode::kAppend:
      flags |= O_WRONLY | O_APPEND;
      break;
    case OpenMode::kOutput:
      flags |= O_WRONLY | O_TRUNC;
      break;
    case OpenMode::kCreateNew:
      if (existing) Raise(kErrFileExists);
      flags |= O_WRONLY | O_EXCL;
      break;
    default:
      flags |= O_RDWR;
      break;
  }
  std::string target = existing ? *existing : ResolveForCreate(path);
  struct timespec before = FolderStamp(target);
  int fd = OpenRegular(target, flags, 0644);
  if (fd < 0) RaiseCreate(-fd);
  if (!existing) NoteCreatedFile(target, before);
  f.fd_ = fd;
  f.path_ = target;
  return f;
}

void TextFile::RequireOpen() const {
  if (fd_ < 0) Raise(kErrBadFileNumber);
}

void TextFile::Fill() {
  if (at_end_) return;
  if (in_pos_ > 0) {
    in_.erase(0, in_pos_);
    in_pos_ = 0;
  }
  size_t old = in_.size();
  in_.resize(old + kBlock);
  long r = Fs().Read(fd_, in_.data() + old, kBlock);
  if (r < 0) {
    in_.resize(old);
    RaiseErrno(static_cast<int>(-r));
  }
  in_.resize(old + static_cast<size_t>(r));
  if (r == 0) at_end_ = true;
}

bool TextFile::Eof() {
  RequireOpen();
  if (mode_ != OpenMode::kInput && mode_ != OpenMode::kBinary) Raise(54);
  if (in_pos_ < in_.size()) return false;
  Fill();
  return in_pos_ >= in_.size();
}

std::string TextFile::ReadLine() {
  RequireOpen();
  if (mode_ != OpenMode::kInput) Raise(54);
  if (Eof()) Raise(kErrPastEnd);
  size_t searched = in_pos_;
  while (true) {
    size_t cr = in_.find('\r', searched);
    if (cr != std::string::npos) {
      std::string line = in_.substr(in_pos_, cr - in_pos_);
      size_t consumed = cr + 1 - in_pos_;
      in_pos_ = cr + 1;
      if (in_pos_ >= in_.size()) Fill();  // the LF of CR LF may sit in the next block
      if (in_pos_ < in_.size() && in_[in_pos_] == '\n') {
        ++in_pos_;
        ++consumed;
      }
      pos_ += static_cast<int64_t>(consumed);
      return line;
    }
    size_t before = in_.size() - in_pos_;
    searched = in_.size();
    Fill();
    if (in_.size() - in_pos_ == before) {  // end of file: the last line lacks its end
      std::string line = in_.substr(in_pos_);
      pos_ += static_cast<int64_t>(line.size());
      in_pos_ = in_.size();
      return line;
    }
    searched = in_pos_ + before;
  }
}

void TextFile::ReadLinePieces(const std::function<void(std::string_view)>& take) {
  RequireOpen();
  if (mode_ != OpenMode::kInput) Raise(54);
  if (Eof()) Raise(kErrPastEnd);
  for (;;) {
    if (in_pos_ >= in_.size()) {
      Fill();
      if (in_pos_ >= in_.size()) return;  // end of file: the last line lacks its end
    }
    const size_t cr = in_.find('\r', in_pos_);
    const size_t end = cr == std::string::npos ? in_.size() : cr;
    take(std::string_view(in_).substr(in_pos_, end - in_pos_));
    pos_ += static_cast<int64_t>(end - in_pos_);
    in_pos_ = end;
    if (cr != std::string::npos) {
      ++in_pos_;
      ++pos_;
      if (in_pos_ >= in_.size()) Fill();  // the LF of CR LF may sit in the next block
      if (in_pos_ < in_.size() && in_[in_pos_] == '\n') {
        ++in_pos_;
        ++pos_;
      }
      return;
    }
  }
}

void TextFile::Flush() {
  if (out_.empty() || fd_ < 0) return;
  // Emptied even when the write fails, so nothing is written twice; emptied in place, so the
  // buffer keeps its room for the next block instead of being allocated again.
  struct Emptied {
    std::string& buffer;
    ~Emptied() { buffer.clear(); }
  } emptied{out_};
  WriteAll(fd_, out_.data(), out_.size());
}

void TextFile::WriteLine(std::string_view text) {
  Write(text);
  Write("\r\n");
}

void TextFile::Write(std::string_view bytes) {
  RequireOpen();
  if (mode_ == OpenMode::kInput) Raise(54);
  out_.append(bytes);
  pos_ += static_cast<int64_t>(bytes.size());
  if (out_.size() >= kBlock) Flush();
}

std::string TextFile::ReadBlock(size_t n) {
  RequireOpen();
  if (mode_ != OpenMode::kBinary) Raise(54);
  std::string block;
  while (block.size() < n) {
    if (in_pos_ >= in_.size()) {
      Fill();
      if (in_pos_ >= in_.size()) break;
    }
    size_t take = std::min(n - block.size(), in_.size() - in_pos_);
    block.append(in_, in_pos_, take);
    in_pos_ += take;
  }
  pos_ += static_cast<int64_t>(block.size());
  return block;
}

int64_t TextFile::Length() {
  RequireOpen();
  struct stat st;
  int r = Fs().Fstat(fd_, &st);
  if (r != 0) RaiseErrno(-r);
  return static_cast<int64_t>(st.st_size) + static_cast<int64_t>(out_.size());
}

void TextFile::Sync() {
  RequireOpen();
  Flush();
  int r = Fs().Fsync(fd_);
  if (r != 0) RaiseErrno(-r);
}

void TextFile::Close() {
  if (fd_ < 0) return;
  int fd = fd_;
  fd_ = -1;
  int err = 0;
  try {
    std::string pending;
    pending.swap(out_);
    WriteAll(fd, pending.data(), pending.size());
  } catch (const RuntimeError&) {
    Fs().Close(fd);
    throw;
  }
  int r = Fs().Close(fd);
  if (r < 0) err = -r;
  if (err) RaiseErrno(err);
}

void RemoveFile(const std::string& path) {
  std::string actual = ExistingOrRaise(path);
  struct timespec before = FolderStamp(actual);
  int r = Fs().Unlink(actual);
  if (r != 0) RaiseErrno(-r);
  NoteRemoved(actual, before);
}

void CopyFileBytes(const std::string& from, const std::string& to, bool exclusive) {
  std::string source = ExistingOrRaise(from);
  auto existing = ResolveExisting(to);
  if (existing && exclusive) Raise(kErrFileExists);
  std::string target = existing ? *existing : ResolveForCreate(to);
  int in = OpenRegular(source, O_RDONLY, 0);
  if (in < 0) RaiseErrno(-in);
  if (existing) {
    // Copying a file onto itself (another spelling, or another link) would empty it first.
    struct stat s, t;
    if (Fs().Fstat(in, &s) == 0 && Fs().Stat(target, &t) == 0 && s.st_dev == t.st_dev &&
        s.st_ino == t.st_ino) {
      Fs().Close(in);
      Raise(kErrPermission);
    }
  }
  struct timespec before = FolderStamp(target);
  int out = OpenRegular(target, O_WRONLY | O_CREAT | (exclusive ? O_EXCL : O_TRUNC), 0644);
  if (out < 0) {
    Fs().Close(in);
    RaiseCreate(-out);
  }
  if (!existing) NoteCreatedFile(target, before);
  std::string buf(kBlock, '\0');
  int err = 0;
  try {
    while (true) {
      long r = Fs().Read(in, buf.data(), buf.size());
      if (r < 0) RaiseErrno(static_cast<int>(-r));
      if (r == 0) break;
      WriteAll(out, buf.data(), static_cast<size_t>(r));
    }
  } catch (const RuntimeError& e) {
    err = e.number();
  }
  Fs().Close(in);
  int r = Fs().Close(out);
  if (err == 0 && r < 0) err = ErrorNumberFromErrno(-r);
  if (err != 0) {
    // A cut-off copy must not pass for the whole file: the caller copies again or gives up.
    before = FolderStamp(target);
    if (Fs().Unlink(target) == 0) NoteRemoved(target, before);
    Raise(err);
  }
}

namespace {

// The mode bits a file we create with 0644 gets: the process's umask applies.
mode_t NewFileMode() {
  static const mode_t mode = [] {
    mode_t mask = 022;
    if (FILE* status = std::fopen("/proc/self/status", "re")) {
      char line[256];
      while (std::fgets(line, sizeof line, status)) {
        unsigned value = 0;
        if (std::sscanf(line, "Umask: %o", &value) == 1) {
          mask = static_cast<mode_t>(value);
          break;
        }
      }
      std::fclose(status);
    }
    return static_cast<mode_t>(0644 & ~mask);
  }();
  return mode;
}

// A file of ours with no other name, that grants nobody more than a new file of ours would
// (the host bridge writes 0640): a second name for it is as good as a copy, as long as it is
// only ever replaced whole.
bool OursAlone(const struct stat& st) {
  return S_ISREG(st.st_mode) && st.st_nlink == 1 && st.st_uid == ::geteuid() &&
         (st.st_mode & 07777 & ~NewFileMode()) == 0;
}

}  // namespace

void ShareOrCopyFile(const std::string& from, const std::string& to, bool exclusive) {
  const std::string source = ExistingOrRaise(from);
  struct stat s;
  if (Fs().Lstat(source, &s) == 0 && S_ISREG(s.st_mode)) {
    if (const auto existing = ResolveExisting(to)) {
      struct stat t;
      if (Fs().Lstat(*existing, &t) == 0 && t.st_dev == s.st_dev && t.st_ino == s.st_ino) return;
    } else if (OursAlone(s)) {
      const std::string target = ResolveForCreate(to);
      const struct timespec before = FolderStamp(target);
      if (Fs().Link(source, target) == 0) {
        NoteCreatedFile(target, before);
        return;
      }
    }
  }
  CopyFileBytes(from, to, exclusive);
}

void RenameFile(const std::string& from, const std::string& to) {
  std::string source = ExistingOrRaise(from);
  if (ResolveExisting(to)) Raise(kErrFileExists);
  std::string target = ResolveForCreate(to);
  // Our own change keeps each folder's index current when it was current just before.
  struct timespec target_before = FolderStamp(target);
  struct timespec source_before = FolderStamp(source);
  // A link refuses an existing target, so a file that appeared meanwhile is never replaced.
  int r = Fs().Link(source, target);
  if (r == -EPERM || r == -EOPNOTSUPP || r == -ENOTSUP) {
    // No hard links here (or a folder): one rename changes both folders at once.
    r = Fs().Rename(source, target);
    if (r != 0) RaiseErrno(-r);
    NoteCreated(target, target_before);
    NoteRemoved(source, source_before);
    return;
  }
  if (r != 0) RaiseErrno(-r);
  NoteCreated(target, target_before);
  source_before = FolderStamp(source);
  int u = Fs().Unlink(source);
  if (u != 0) {
    struct timespec before = FolderStamp(target);
    if (Fs().Unlink(target) == 0) NoteRemoved(target, before);
    RaiseErrno(-u);
  }
  NoteRemoved(source, source_before);
}

void MakeFolder(const std::string& path) {
  if (ResolveExisting(path)) Raise(kErrPathFileAccess);
  std::string target = ResolveForCreate(path);
  struct timespec before = FolderStamp(target);
  int r = Fs().Mkdir(target, 0755);
  if (r != 0) {
    if (r == -ENOENT) Raise(kErrPathNotFound);
    RaiseErrno(-r);
  }
  NoteCreated(target, before);
}

int64_t FileLength(const std::string& path) {
  std::string actual = ExistingOrRaise(path);
  struct stat st;
  int r = Fs().Stat(actual, &st);
  if (r != 0) RaiseErrno(-r);
  return static_cast<int64_t>(st.st_size);
}

std::time_t FileModified(const std::string& path) {
  std::string actual = ExistingOrRaise(path);
  struct stat st;
  int r = Fs().Stat(actual, &st);
  if (r != 0) RaiseErrno(-r);
  return st.st_mtime;
}

void SyncFile(const std::string& path) {
  std::string actual = ExistingOrRaise(path);
  int fd = OpenRegular(actual, O_RDONLY, 0);
  if (fd < 0) RaiseErrno(-fd);
  int r = Fs().Fsync(fd);
  Fs().Close(fd);
  if (r != 0) RaiseErrno(-r);
}

void SyncFolder(const std::string& path) {
  auto actual = ResolveExisting(path);
  if (!actual) Raise(kErrPathNotFound);
  int r = Fs().SyncDir(*actual);
  if (r != 0) RaiseErrno(-r);
}

std::vector<int> SyncTogether(const std::vector<std::string>& files,
                              const std::vector<std::string>& folders) {
  std::vector<int> results(files.size() + folders.size(), 0);
  std::vector<SyncJob> jobs;
  std::vector<size_t> where;
  // Opened here, one after the other: only the flushes run side by side.
  for (size_t i = 0; i < files.size(); ++i) {
    const auto actual = ResolveExisting(files[i]);
    if (!actual) continue;
    const int fd = OpenRegular(*actual, O_RDONLY, 0);
    if (fd < 0) {
      results[i] = fd;
      continue;
    }
    jobs.push_back({fd, "", 0});
    where.push_back(i);
  }
  for (size_t i = 0; i < folders.size(); ++i) {
    const auto actual = ResolveExisting(folders[i]);
    if (!actual) continue;
    jobs.push_back({-1, *actual, 0});
    where.push_back(files.size() + i);
  }
  Fs().SyncMany(jobs);
  for (size_t j = 0; j < jobs.size(); ++j) {
    if (jobs[j].fd >= 0) Fs().Close(jobs[j].fd);
    results[where[j]] = jobs[j].result;
  }
  return results;
}

std::string ReadWholeFile(const std::string& path) {
  // Read-only: a missing file is an error, never created empty.
  std::string actual = ExistingOrRaise(path);
  int fd = OpenRegular(actual, O_RDONLY, 0);
  if (fd < 0) RaiseErrno(-fd);
  std::string all;
  std::string buf(kBlock, '\0');
  while (true) {
    long r = Fs().Read(fd, buf.data(), buf.size());
    if (r < 0) {
      Fs().Close(fd);
      RaiseErrno(static_cast<int>(-r));
    }
    if (r == 0) break;
    all.append(buf, 0, static_cast<size_t>(r));
  }
  Fs().Close(fd);
  return all;
}

}  // namespace quellor

namespace quellor {

namespace {
// The collection of folder flushes in force, if any.
DeferredFolderSyncs* g_deferred_syncs = nullptr;

// Hidden, so no listing of ordinary files sees it, and unique, so a work file left by a crash is
// never written into again.
std::string TemporaryName(const std::string& target, int attempt) {
  const size_t slash = target.rfind('/');
  const std::string folder = slash == std::string::npos ? "" : target.substr(0, slash + 1);
  const std::string base = target.substr(slash == std::string::npos ? 0 : slash + 1).substr(0, 200);
  static unsigned counter = 0;
  return folder + "." + base + "." + std::to_string(::getpid()) + "." + std::to_string(++counter) +
         "." + std::to_string(attempt) + ".part";
}
}  // namespace

AtomicReplacement::AtomicReplacement(const std::string& path, int mode)
    : target_(ResolveForCreate(path)) {
  for (int attempt = 0;; ++attempt) {
    temp_ = TemporaryName(target_, attempt);
    struct timespec before = FolderStamp(temp_);
    int fd = OpenRegular(temp_, O_WRONLY | O_CREAT | O_EXCL, mode);
    if (fd >= 0) {
      NoteCreated(temp_, before);
      file_.fd_ = fd;
      file_.path_ = temp_;
      file_.mode_ = OpenMode::kOutput;
      return;
    }
    if (fd != -EEXIST || attempt >= 100) RaiseCreate(-fd);
  }
}

AtomicReplacement::~AtomicReplacement() {
  if (committed_ || temp_.empty()) return;
  try {
    file_.Close();
  } catch (...) {
  }
  struct timespec before = FolderStamp(temp_);
  if (Fs().Unlink(temp_) == 0) NoteRemoved(temp_, before);
}

void AtomicReplacement::Commit(bool keep_existing) {
  file_.Sync();
  file_.Close();
  const bool existed = ResolveExisting(target_).has_value();
  if (existed && keep_existing) RaiseErrno(EEXIST);
  struct timespec before = FolderStamp(target_);
  // A link never replaces a file that appeared meanwhile; the temporary name goes after it.
  int r = keep_existing ? Fs().Link(temp_, target_) : Fs().Rename(temp_, target_);
  if (r != 0) RaiseErrno(-r);
  if (keep_existing) Fs().Unlink(temp_);
  committed_ = true;
  NoteRemoved(temp_, before);
  if (!existed) NoteCreated(target_, before);
  const size_t slash = target_.rfind('/');
  const std::string folder = slash == std::string::npos ? "."
                             : slash == 0               ? "/"
                                                        : target_.substr(0, slash);
  // The new name is in place; making the folder entry durable as well, now or with the others.
  if (g_deferred_syncs) {
    g_deferred_syncs->folders_.insert(folder);
    return;
  }
  r = Fs().SyncDir(folder);
  if (r != 0) RaiseErrno(-r);
}

DeferredFolderSyncs::DeferredFolderSyncs() : previous_(g_deferred_syncs) {
  g_deferred_syncs = this;
}

DeferredFolderSyncs::~DeferredFolderSyncs() {
  // Whatever was not taken is flushed here, so nothing collected is left unflushed.
  for (const std::string& folder : folders_) Fs().SyncDir(folder);
  g_deferred_syncs = previous_;
}

std::set<std::string> DeferredFolderSyncs::Take() {
  std::set<std::string> taken;
  taken.swap(folders_);
  return taken;
}

void ReplaceWholeFile(const std::string& path, std::string_view bytes, int mode) {
  AtomicReplacement replacement(path, mode);
  replacement.file().Write(bytes);
  replacement.Commit();
}

bool LastLineUnended(const std::string& path) {
  const auto actual = ResolveExisting(path);
  if (!actual) return false;
  const int fd = Fs().Open(*actual, O_RDONLY | O_CLOEXEC, 0);
  if (fd < 0) return false;
  struct stat st {};
  char last = '\n';
  if (Fs().Fstat(fd, &st) == 0 && st.st_size > 0 &&
      Fs().Pread(fd, &last, 1, static_cast<long>(st.st_size - 1)) != 1) {
    last = '\n';
  }
  Fs().Close(fd);
  return last != '\n' && last != '\r';
}

bool SameFile(const std::string& a, const std::string& b) {
  const auto first = ResolveExisting(a);
  const auto second = ResolveExisting(b);
  struct stat s {};
  struct stat t {};
  return first && second && Fs().Lstat(*first, &s) == 0 && Fs().Lstat(*second, &t) == 0 &&
         s.st_dev == t.st_dev && s.st_ino == t.st_ino;
}

}  // namespace quellor
