#pragma once
// Files opened the way the procedures use them: text read line by line (CR or CR LF ends a line),
// lines written with CR LF, and binary blocks. Every call goes through the file-system seam and
// failures raise the classic run-time errors.

#include <cstdint>
#include <ctime>
#include <functional>
#include <memory>
#include <set>
#include <string>
#include <string_view>

namespace quellor {

// kCreateNew creates a file that must not exist yet (never truncates another writer's file).
enum class OpenMode { kInput, kAppend, kOutput, kBinary, kCreateNew };

// Opens through the seam without following a symlink and without blocking on a FIFO; anything
// that is not a regular file is refused (-EACCES, -EISDIR). Returns a descriptor or -errno.
int OpenRegular(const std::string& path, int flags, int mode);

// An open file, or an unopened one: every use of an unopened file raises
// "Bad file name or number", so the caller's next statement fails after a give-up.
class TextFile {
 public:
  TextFile() = default;
  ~TextFile();
  TextFile(TextFile&& other) noexcept;
  TextFile& operator=(TextFile&& other) noexcept;
  TextFile(const TextFile&) = delete;
  TextFile& operator=(const TextFile&) = delete;

  // Opens the file (case-insensitive for existing names); raises on failure.
  static TextFile Open(const std::string& path, OpenMode mode);

  bool is_open() const { return fd_ >= 0; }
  const std::string& path() const { return path_; }

  // True when no more input is left (reading an unopened file raises).
  bool Eof();
  // The next line without its end (CR or CR LF; a lone LF stays in the line).
  // Raises "Input past end of file" when nothing is left.
  std::string ReadLine();
  // Reads the next line like ReadLine but hands it to `take` in pieces of at most one read
  // block, so that a line as long as the file is never held whole.
  void ReadLinePieces(const std::function<void(std::string_view)>& take);
  // Writes the text and CR LF.
  void WriteLine(std::string_view text);
  // Writes bytes as they are.
  void Write(std::string_view bytes);
  // Binary mode: reads up to n bytes from the current position.
  std::string ReadBlock(size_t n);
  // Length of the open file in bytes.
  int64_t Length();
  // Current read position (bytes consumed so far).
  int64_t Position() const { return pos_; }
  // Flushes written data to the disk (fsync).
  void Sync();
  // Closes; harmless on an unopened file. Raises if pending writes cannot be written.
  void Close();

 private:
  void Fill();
  void Flush();
  void RequireOpen() const;
  friend class AtomicReplacement;

  int fd_ = -1;
  std::string path_;
  OpenMode mode_ = OpenMode::kInput;
  std::string in_;  // read buffer
  size_t in_pos_ = 0;
  bool at_end_ = false;
  std::string out_;  // write buffer
  int64_t pos_ = 0;
};

// Raw operations that raise the classic errors on failure (the retrying primitives wrap them).
void RemoveFile(const std::string& path);  // unlink an existing file
// Replaces `to`; with `exclusive`, `to` must not exist yet and is created exclusively.
void CopyFileBytes(const std::string& from, const std::string& to, bool exclusive = false);
// A copy of a file that is ours alone (a regular file of our user with one name, granting no
// permission a new file of ours would not), made by giving it a second name instead
// of copying its bytes: nothing may write it in place afterwards, only replace it whole. Any
// other source, or a folder where no link can be made, is copied byte by byte like
// CopyFileBytes. A target that already is the source (a second name given before a crash)
// counts as made.
void ShareOrCopyFile(const std::string& from, const std::string& to, bool exclusive = false);
void RenameFile(const std::string& from, const std::string& to);  // fails when `to` exists
void MakeFolder(const std::string& path);                         // one level
int64_t FileLength(const std::string& path);
std::time_t FileModified(const std::string& path);

// Whether two paths name one and the same file: a move (a link, then an unlink) cut short
// leaves a file under both names. False when either does not exist.
bool SameFile(const std::string& a, const std::string& b);

// True when the file's last line lacks its line end (neither CR nor LF ends it); false for a
// missing, empty or unreadable file.
bool LastLineUnended(const std::string& path);

// Flushes a file's data and a folder's entries to the disk.
void SyncFile(const std::string& path);
void SyncFolder(const std::string& path);
// Flushes files and folders as one batch, the flushes side by side. One -errno (0: flushed)
// per path, files first, then folders, in the order given; a path that no longer exists has
// nothing left to flush and counts as flushed.
std::vector<int> SyncTogether(const std::vector<std::string>& files,
                              const std::vector<std::string>& folders);

// Replaces a whole file so that a crash leaves the old or the new one, never a mix: the content
// goes to a hidden temporary file in the same folder, which is flushed and renamed over the
// target, and the folder is flushed. Not committed, the temporary file is removed.
class AtomicReplacement {
 public:
  explicit AtomicReplacement(const std::string& path, int mode = 0644);  // raises
  ~AtomicReplacement();
  AtomicReplacement(const AtomicReplacement&) = delete;
  AtomicReplacement& operator=(const AtomicReplacement&) = delete;

  // The temporary file, open for writing.
  TextFile& file() { return file_; }
  // The actual path that Commit replaces.
  const std::string& target() const { return target_; }
  // Flushes, renames over the target and flushes the folder; raises on failure. With
  // `keep_existing` a target that exists by then is kept ("File already exists") instead.
  void Commit(bool keep_existing = false);

 private:
  std::string target_;
  std::string temp_;
  TextFile file_;
  bool committed_ = false;
};
// While one lives, AtomicReplacement::Commit leaves the flush of its folder to the owner, who
// flushes every folder collected at once (Take) before anything relies on the new names: a
// folder that several replacements touch is flushed once.
class DeferredFolderSyncs {
 public:
  DeferredFolderSyncs();
  ~DeferredFolderSyncs();
  DeferredFolderSyncs(const DeferredFolderSyncs&) = delete;
  DeferredFolderSyncs& operator=(const DeferredFolderSyncs&) = delete;
  // The folders collected so far; the collection starts again empty.
  std::set<std::string> Take();

 private:
  friend class AtomicReplacement;
  std::set<std::string> folders_;
  DeferredFolderSyncs* previous_;
};

// The same for a content at hand.
void ReplaceWholeFile(const std::string& path, std::string_view bytes, int mode = 0644);

// Reads a whole small file (templates, lists in tests); raises on failure.
std::string ReadWholeFile(const std::string& path);

}  // namespace quellor
