#include "platform/files.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <string>
#include <vector>

#include "platform/errors.h"
#include "platform/fs.h"
#include "platform/names.h"
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

TEST(TextFiles, LinesEndAtCrOrCrLf) {
  struct Case {
    std::string bytes;
    std::vector<std::string> lines;
  } cases[] = {
      {"", {}},
      {"a\r\nb\r\n", {"a", "b"}},
      {"a\rb", {"a", "b"}},
      {"a\nb\r\nc", {"a\nb", "c"}},
      {"x\r\r\n", {"x", ""}},
      // A CR LF split across two read blocks is one line end.
      {std::string(64 * 1024 - 1, 'a') + "\r\nz", {std::string(64 * 1024 - 1, 'a'), "z"}},
  };
  TempTree t;
  for (const auto& c : cases) {
    t.Write("f.txt", c.bytes);
    TextFile f = TextFile::Open(t.Path("F.TXT"), OpenMode::kInput);
    std::vector<std::string> got;
    while (!f.Eof()) got.push_back(f.ReadLine());
    EXPECT_EQ(got, c.lines);
    EXPECT_EQ(ErrorOf([&] { f.ReadLine(); }), kErrPastEnd);
  }
}

TEST(TextFiles, WritingAppendsCrLfAndErrorsAreClassic) {
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

  TextFile unopened;
  EXPECT_EQ(ErrorOf([&] { unopened.ReadLine(); }), kErrBadFileNumber);
  EXPECT_EQ(ErrorOf([&] { unopened.WriteLine("x"); }), kErrBadFileNumber);
  EXPECT_NO_THROW(unopened.Close());
  EXPECT_EQ(ErrorOf([&] { TextFile::Open(t.Path("NOFOLDER/x"), OpenMode::kOutput); }),
            kErrPathNotFound);
}

TEST(FileOperations, CopyRenameAndTheirErrors) {
  TempTree t;
  t.Write("IN/m.EML", "body");
  t.Write("LOCAL/2.EML", "old and longer");
  CopyFileBytes(t.Path("in/M.eml"), t.Path("LOCAL/1.EML"));
  CopyFileBytes(t.Path("IN/m.EML"), t.Path("local/2.eml"));
  EXPECT_EQ(t.Read("LOCAL/2.EML"), "body");
  EXPECT_EQ(ErrorOf([&] { RenameFile(t.Path("LOCAL/1.EML"), t.Path("LOCAL/2.EML")); }),
            kErrFileExists);
  RenameFile(t.Path("local/1.eml"), t.Path("OUT/9.EML"));
  EXPECT_EQ(t.List("LOCAL"), std::vector<std::string>{"2.EML"});
  EXPECT_EQ(FileLength(t.Path("OUT/9.eml")), 4);
  MakeFolder(t.Path("WAIT/u@x"));
  EXPECT_EQ(ErrorOf([&] { MakeFolder(t.Path("wait/U@X")); }), kErrPathFileAccess);
}

TEST(FaultInjection, ChosenCallsFailWithClassicNumbers) {
  TempTree t;
  t.Write("IN/a.EML", "abc");
  FaultyFileSystem faulty;
  ScopedFileSystem scope(&faulty);
  struct Case {
    FsOp op;
    int err;
    int number;
    std::function<void()> action;
  } cases[] = {
      {FsOp::kOpen, ENOSPC, kErrDiskFull,
       [&] { TextFile::Open(t.Path("OUT/x"), OpenMode::kOutput); }},
      {FsOp::kRead, EIO, 57,
       [&] { TextFile::Open(t.Path("IN/a.EML"), OpenMode::kInput).ReadLine(); }},
      {FsOp::kWrite, ENOSPC, kErrDiskFull,
       [&] {
         TextFile f = TextFile::Open(t.Path("OUT/y"), OpenMode::kOutput);
         f.WriteLine("x");
         f.Close();
       }},
      {FsOp::kUnlink, EACCES, kErrPermission, [&] { RemoveFile(t.Path("IN/a.EML")); }},
  };
  for (const auto& c : cases) {
    faulty.Clear();
    faulty.FailNth(c.op, 1, c.err);
    EXPECT_EQ(ErrorOf(c.action), c.number) << static_cast<int>(c.op);
  }
}

}  // namespace
}  // namespace quellor
