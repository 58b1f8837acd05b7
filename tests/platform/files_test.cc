// Files as the program sees them: case-insensitive names, text files, copies, renames, whole-file
// replacement, the classic error numbers, and nothing opened through a symlink or as a FIFO.
#include "platform/files.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <filesystem>
#include <string>
#include <vector>

#include "platform/errors.h"
#include "platform/fs.h"
#include "platform/names.h"
#include "support/table.h"
#include "support/temp_tree.h"

namespace quellor {
namespace {

using testing::TempTree;

int ErrorOf(const std::function<void()>& f) {
  try {
    f();
  } catch (const RuntimeError& e) {
    return e.number();
  }
  return 0;
}

TEST(Names, CaseInsensitiveLookupHiddenFilesAndListing) {
  TempTree t;
  t.Write("Users/bob@x.org.CONF", "x");
  t.Write("Users/.hidden.WLT", "a");
  t.MakeFolder("WAIT/Bob@X.org");
  EXPECT_EQ(ResolveExisting(t.Path("users/Bob@X.org.Conf")), t.Path("Users/bob@x.org.CONF"));
  EXPECT_FALSE(ResolveExisting(t.Path("Users/bob@x.org.WLT")).has_value());
  // New names keep the case asked for; existing folders keep theirs.
  EXPECT_EQ(ResolveForCreate(t.Path("wait/BOB@x.org/1.WAI")), t.Path("WAIT/Bob@X.org/1.WAI"));
  EXPECT_FALSE(OrdinaryFileExists(t.Path("Users/.hidden.WLT")));
  EXPECT_TRUE(AnyFileExists(t.Path("Users/.hidden.WLT")));
  EXPECT_FALSE(OrdinaryFileExists(t.Path("Users")));
  EXPECT_TRUE(FolderExists(t.Path("users")));
  t.Remove("Users/bob@x.org.CONF");  // behind the program's back
  EXPECT_FALSE(OrdinaryFileExists(t.Path("users/BOB@x.org.conf")));

  for (const char* n : {"b.EML", "A.eml", ".d.EML", "a.EMLX"}) t.Write(std::string("IN/") + n, "");
  t.MakeFolder("IN/dir.EML");
  EXPECT_EQ(ListFiles(t.Path("in"), "*.EML"), (std::vector<std::string>{"A.eml", "b.EML"}));
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

TEST(TextFiles, WritingBlocksAndLength) {
  TempTree t;
  for (const char* name : {"LOG/a.log", "log/A.LOG"}) {
    TextFile f = TextFile::Open(t.Path(name), OpenMode::kAppend);
    f.WriteLine(name);
    f.Close();
  }
  EXPECT_EQ(t.Read("LOG/a.log"), "LOG/a.log\r\nlog/A.LOG\r\n");
  TextFile o = TextFile::Open(t.Path("LOG/a.log"), OpenMode::kOutput);
  o.WriteLine("three");
  o.Close();
  EXPECT_EQ(t.Read("LOG/a.log"), "three\r\n");

  t.Write("IN/m.EML", "0123456789");
  TextFile b = TextFile::Open(t.Path("in/M.eml"), OpenMode::kBinary);
  EXPECT_EQ(b.Length(), 10);
  EXPECT_EQ(b.ReadBlock(4), "0123");
  EXPECT_EQ(b.ReadBlock(100), "456789");
  EXPECT_EQ(b.ReadBlock(4), "");
  EXPECT_EQ(b.Position(), 10);
  EXPECT_TRUE(b.Eof());
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

// Whole-file replacement: the old file or the new one, never a mix, and no temporary file left.
TEST(AtomicReplace, LeavesOldOrNew) {
  const struct {
    FsOp fail;  // kList: none
    bool keep_existing;
    const char* expected;
  } cases[] = {{FsOp::kList, false, "new\r\n"},
               {FsOp::kWrite, false, "old\r\n"},
               {FsOp::kSync, false, "old\r\n"},
               {FsOp::kRename, false, "old\r\n"},
               {FsOp::kList, true, "old\r\n"}};
  for (const auto& c : cases) {
    TempTree tree;
    tree.Write("DOMAIN.LST", "old\r\n");
    FaultyFileSystem faulty;
    {
      ScopedFileSystem seam(&faulty);
      if (c.fail != FsOp::kList) faulty.FailAlways(c.fail, EIO);
      try {
        AtomicReplacement replacement(tree.Path("DOMAIN.LST"));
        replacement.file().WriteLine("new");
        replacement.Commit(c.keep_existing);
      } catch (const RuntimeError&) {
      }
    }
    ForgetNameIndexes();
    EXPECT_EQ(tree.Read("DOMAIN.LST"), c.expected) << static_cast<int>(c.fail);
    EXPECT_EQ(tree.List("").size(), 9u) << "a temporary file is left";
  }
}

// Below the root nothing is opened through a symlink or as a FIFO.
TEST(ConfinedOpenTest, RefusesSymlinksAndFifos) {
  TempTree tree;
  tree.Write("real.txt", "x\r\n");
  ASSERT_EQ(::symlink((tree.root() + "real.txt").c_str(), (tree.root() + "link.txt").c_str()), 0);
  ASSERT_EQ(::symlink((tree.root() + "IN").c_str(), (tree.root() + "LINKED").c_str()), 0);
  ASSERT_EQ(::mkfifo((tree.root() + "fifo.txt").c_str(), 0644), 0);
  tree.Write("IN/a.txt", "y\r\n");
  ForgetNameIndexes();
  EXPECT_FALSE(OrdinaryFileExists(tree.Path("link.txt")));
  EXPECT_FALSE(OrdinaryFileExists(tree.Path("fifo.txt")));
  EXPECT_FALSE(FolderExists(tree.Path("LINKED")));
  for (const char* name : {"link.txt", "fifo.txt", "LINKED/a.txt"}) {
    EXPECT_LT(OpenRegular(tree.Path(name), O_RDONLY, 0), 0) << name;
    EXPECT_THROW(TextFile::Open(tree.Path(name), OpenMode::kAppend), RuntimeError) << name;
  }
  EXPECT_EQ(tree.Read("real.txt"), "x\r\n");
  EXPECT_EQ(tree.Read("IN/a.txt"), "y\r\n");
}

}  // namespace
}  // namespace quellor
