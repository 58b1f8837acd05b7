// Files as the program sees them: case-insensitive names, text files, copies, renames and the
// classic error numbers. (Whole-file replacement is pinned through its users: message edits,
// list rewrites, init; symbolic links and FIFOs by the golden cases tests/data/spool/hostile-*.)
#include "platform/files.h"

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <functional>
#include <string>
#include <vector>

#include "platform/errors.h"
#include "platform/fs.h"
#include "platform/names.h"
#include "support/table.h"
#include "support/temp_tree.h"

namespace quellor {
namespace {

using testing::ErrorOf;
using testing::TempTree;

TEST(Names, HiddenFilesFoldersAndTheCaseOfNewNames) {
  TempTree t;
  t.Write("Users/.hidden.WLT", "a");
  t.MakeFolder("WAIT/Bob@X.org");
  // New names keep the case asked for; existing folders keep theirs.
  EXPECT_EQ(ResolveForCreate(t.Path("wait/BOB@x.org/1.WAI")), t.Path("WAIT/Bob@X.org/1.WAI"));
  EXPECT_FALSE(OrdinaryFileExists(t.Path("Users/.hidden.WLT")));
  EXPECT_TRUE(AnyFileExists(t.Path("Users/.hidden.WLT")));
  EXPECT_FALSE(OrdinaryFileExists(t.Path("Users")));
  EXPECT_TRUE(FolderExists(t.Path("users")));
}

// A text file's bytes -> its lines, each after "|"; a read past the end raises.
TEST(TextFiles, LinesEndAtCrOrCrLf) {
  testing::CheckTable("text_lines", [](const auto& f) {
    TempTree t;
    t.Write("f.txt", f[0] == "<64 KiB>" ? std::string(64 * 1024 - 1, 'a') + "\r\nz" : f[0]);
    TextFile file = TextFile::Open(t.Path("F.TXT"), OpenMode::kInput);
    std::string lines;
    while (!file.Eof()) lines += "|" + file.ReadLine().substr(0, 20);
    EXPECT_EQ(ErrorOf([&] { file.ReadLine(); }), kErrPastEnd);
    return lines;
  });
}

// Every failure raises its classic number; a failed write or close leaves the file closed.
TEST(FileOperations, ErrorsHaveTheClassicNumbers) {
  TempTree t;
  t.Write("IN/a.EML", "abc");
  t.Write("LOCAL/2.EML", "x");
  FaultyFileSystem faulty;
  ScopedFileSystem scope(&faulty);
  TextFile unopened, failed = TextFile::Open(t.Path("OUT/x.EML"), OpenMode::kAppend);
  struct Case {
    const char* what;
    FsOp op;  // kList: no fault
    int err;
    std::function<void()> action;
    int number;
  } cases[] = {
      {"input", FsOp::kList, 0, [&] { TextFile::Open(t.Path("IN/none"), OpenMode::kInput); },
       kErrFileNotFound},
      {"input, no folder", FsOp::kList, 0,
       [&] { TextFile::Open(t.Path("NO/x"), OpenMode::kInput); }, kErrPathNotFound},
      {"output, no folder", FsOp::kList, 0,
       [&] { TextFile::Open(t.Path("NO/x"), OpenMode::kOutput); }, kErrPathNotFound},
      {"remove", FsOp::kList, 0, [&] { RemoveFile(t.Path("IN/none")); }, kErrFileNotFound},
      {"remove, no folder", FsOp::kList, 0, [&] { RemoveFile(t.Path("NO/x")); }, kErrPathNotFound},
      {"length", FsOp::kList, 0, [&] { FileLength(t.Path("IN/none")); }, kErrFileNotFound},
      {"rename", FsOp::kList, 0, [&] { RenameFile(t.Path("IN/none"), t.Path("IN/x")); },
       kErrFileNotFound},
      {"rename onto a file", FsOp::kList, 0,
       [&] { RenameFile(t.Path("IN/a.EML"), t.Path("local/2.eml")); }, kErrFileExists},
      {"folder in missing folder", FsOp::kList, 0, [&] { MakeFolder(t.Path("NO/x")); },
       kErrPathNotFound},
      {"folder that exists", FsOp::kList, 0, [&] { MakeFolder(t.Path("local")); },
       kErrPathFileAccess},
      {"unopened read", FsOp::kList, 0, [&] { unopened.ReadLine(); }, kErrBadFileNumber},
      {"unopened write", FsOp::kList, 0, [&] { unopened.WriteLine("x"); }, kErrBadFileNumber},
      {"open", FsOp::kOpen, ENOSPC, [&] { TextFile::Open(t.Path("OUT/x"), OpenMode::kOutput); },
       kErrDiskFull},
      {"read", FsOp::kRead, EIO,
       [&] { TextFile::Open(t.Path("IN/a.EML"), OpenMode::kInput).ReadLine(); }, 57},
      {"buffered write at close", FsOp::kWrite, ENOSPC,
       [&] {
         failed.WriteLine("line");
         failed.Close();
       },
       kErrDiskFull},
      {"write after a failed close", FsOp::kList, 0, [&] { failed.WriteLine("x"); },
       kErrBadFileNumber},
      {"length after a failed close", FsOp::kList, 0, [&] { failed.Length(); }, kErrBadFileNumber},
      {"unlink", FsOp::kUnlink, EACCES, [&] { RemoveFile(t.Path("IN/a.EML")); }, kErrPermission},
  };
  for (const auto& c : cases) {
    faulty.Clear();
    if (c.op != FsOp::kList) faulty.FailAlways(c.op, c.err);
    EXPECT_EQ(ErrorOf(c.action), c.number) << c.what;
  }
  EXPECT_NO_THROW(unopened.Close());
}

TEST(FileOperations, CopiesAndRenames) {
  TempTree t;
  t.Write("IN/m.EML", "body");
  t.Write("LOCAL/2.EML", "old and longer");
  CopyFileBytes(t.Path("in/M.eml"), t.Path("LOCAL/1.EML"));
  CopyFileBytes(t.Path("IN/m.EML"), t.Path("local/2.eml"));
  EXPECT_EQ(t.Read("LOCAL/2.EML"), "body");
  RenameFile(t.Path("local/1.eml"), t.Path("OUT/9.EML"));
  EXPECT_EQ(t.List("LOCAL"), std::vector<std::string>{"2.EML"});
  EXPECT_EQ(FileLength(t.Path("OUT/9.eml")), 4);

  // A copy onto itself, under another case or through a hard link, is refused.
  ASSERT_EQ(::link(t.Path("IN/m.EML").c_str(), t.Path("IN/b.EML").c_str()), 0);
  for (const char* target : {"in/M.eml", "IN/B.EML"}) {
    EXPECT_EQ(ErrorOf([&] { CopyFileBytes(t.Path("IN/m.EML"), t.Path(target)); }), kErrPermission);
  }
  EXPECT_EQ(t.Read("IN/m.EML"), "body");

  // A copy cut off leaves no file under the target's name, not even an old one.
  const std::string big(200 * 1024, 'x');
  t.Write("IN/big.EML", big);
  FaultyFileSystem faulty;
  ScopedFileSystem scope(&faulty);
  struct Case {
    const char* target;
    FsOp op;
    int nth;
    int err;
    int number;
  } cases[] = {
      {"LOCAL/new.EML", FsOp::kWrite, 2, ENOSPC, kErrDiskFull},
      {"LOCAL/2.EML", FsOp::kWrite, 1, ENOSPC, kErrDiskFull},
      {"LOCAL/new.EML", FsOp::kRead, 3, EIO, 57},
      {"LOCAL/new.EML", FsOp::kClose, 2, EIO, 57},  // the target's close comes second
  };
  for (const auto& c : cases) {
    faulty.Clear();
    faulty.FailNth(c.op, c.nth, c.err);
    EXPECT_EQ(ErrorOf([&] { CopyFileBytes(t.Path("IN/big.EML"), t.Path(c.target)); }), c.number);
    EXPECT_FALSE(t.Exists(c.target) || PathExists(t.Path(c.target))) << c.target;
  }
  faulty.Clear();
  CopyFileBytes(t.Path("IN/big.EML"), t.Path("LOCAL/new.EML"));
  EXPECT_EQ(t.Read("LOCAL/new.EML"), big);
}

// A copy of a file that is ours alone is a second name for it; anything else is copied.
TEST(FileOperations, SharedCopies) {
  struct Case {
    const char* what;
    mode_t mode;
    bool second_name;  // the source already has another name
    bool link_fails;
    bool shared;
  } cases[] = {
      {"ours alone", 0644, false, false, true},
      {"narrower than a new file", 0640, false, false, true},
      {"writable by its group", 0664, false, false, false},
      {"with another name", 0644, true, false, false},
      {"no link to be had", 0644, false, true, false},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.what);
    TempTree t;
    t.Write("IN/m.EML", "body");
    ASSERT_EQ(::chmod(t.Path("IN/m.EML").c_str(), c.mode), 0);
    if (c.second_name) {
      ASSERT_EQ(::link(t.Path("IN/m.EML").c_str(), t.Path("IN/n").c_str()), 0);
    }
    FaultyFileSystem faulty;
    if (c.link_fails) faulty.FailAlways(FsOp::kRename, EXDEV);
    {
      ScopedFileSystem scope(&faulty);
      ShareOrCopyFile(t.Path("in/m.eml"), t.Path("LOCAL/1.TMP"), true);
    }
    EXPECT_EQ(t.Read("LOCAL/1.TMP"), "body");
    EXPECT_EQ(SameFile(t.Path("IN/m.EML"), t.Path("LOCAL/1.TMP")), c.shared);
  }
  // A target that already is the source (a second name given before a crash) counts as made;
  // another file in its place is refused or replaced as for a copy.
  TempTree t;
  t.Write("IN/m.EML", "body");
  ShareOrCopyFile(t.Path("IN/m.EML"), t.Path("WAIT/m.EML"));
  EXPECT_NO_THROW(ShareOrCopyFile(t.Path("IN/m.EML"), t.Path("wait/M.eml"), true));
  t.Write("LOCAL/2.EML", "other");
  EXPECT_EQ(ErrorOf([&] { ShareOrCopyFile(t.Path("IN/m.EML"), t.Path("LOCAL/2.EML"), true); }),
            kErrFileExists);
  ShareOrCopyFile(t.Path("WAIT/m.EML"), t.Path("LOCAL/2.EML"));
  EXPECT_EQ(t.Read("LOCAL/2.EML"), "body");
}

}  // namespace
}  // namespace quellor
