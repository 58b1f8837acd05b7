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

TEST(Names, ExistingNamesAreFoundWhateverTheCase) {
  TempTree t;
  t.Write("Users/bob@x.org.CONF", "MODE=QUELLOR\r\n");
  t.MakeFolder("WAIT/Bob@X.org");
  struct Case {
    const char* asked;
    const char* actual;  // "" when nothing should be found
  } cases[] = {
      {"Users/bob@x.org.CONF", "Users/bob@x.org.CONF"},
      {"Users/BOB@X.ORG.conf", "Users/bob@x.org.CONF"},
      {"users/Bob@X.org.Conf", "Users/bob@x.org.CONF"},
      {"wait/bob@x.org", "WAIT/Bob@X.org"},
      {"Users/bob@x.org.WLT", ""},
      {"Users/../Users/bob@x.org.CONF", ""},
      {"Users/./bob@x.org.CONF", ""},
  };
  for (const auto& c : cases) {
    auto r = ResolveExisting(t.Path(c.asked));
    if (*c.actual) {
      ASSERT_TRUE(r.has_value()) << c.asked;
      EXPECT_EQ(*r, t.Path(c.actual)) << c.asked;
    } else {
      EXPECT_FALSE(r.has_value()) << c.asked;
    }
  }
  // New names keep the case asked for; existing folders keep theirs.
  EXPECT_EQ(ResolveForCreate(t.Path("wait/BOB@x.org/1.WAI")), t.Path("WAIT/Bob@X.org/1.WAI"));
  EXPECT_EQ(ErrorOf([&] { ResolveForCreate(t.Path("WAIT/../x")); }), kErrBadFileNumber);
}

TEST(Names, IndexFollowsChangesBehindOurBackAndOurOwn) {
  TempTree t;
  t.Write("IN/a.EML", "x");
  EXPECT_TRUE(OrdinaryFileExists(t.Path("in/A.eml")));
  t.Remove("IN/a.EML");  // behind the program's back
  EXPECT_FALSE(OrdinaryFileExists(t.Path("in/A.eml")));
  t.Write("IN/B.eml", "y");
  EXPECT_TRUE(OrdinaryFileExists(t.Path("IN/b.EML")));
  // Our own create and delete keep the index current.
  TextFile f = TextFile::Open(t.Path("IN/New.WAI"), OpenMode::kOutput);
  f.Close();
  EXPECT_TRUE(OrdinaryFileExists(t.Path("IN/NEW.wai")));
  RemoveFile(t.Path("in/new.wai"));
  EXPECT_FALSE(OrdinaryFileExists(t.Path("IN/New.WAI")));
  EXPECT_FALSE(t.Exists("IN/New.WAI"));
}

TEST(Names, OrdinaryHiddenAndFolders) {
  TempTree t;
  t.Write("Users/.hidden.WLT", "a");
  t.Write("Users/plain.WLT", "a");
  EXPECT_FALSE(OrdinaryFileExists(t.Path("Users/.hidden.WLT")));
  EXPECT_TRUE(AnyFileExists(t.Path("Users/.hidden.WLT")));
  EXPECT_TRUE(OrdinaryFileExists(t.Path("Users/PLAIN.wlt")));
  EXPECT_FALSE(OrdinaryFileExists(t.Path("Users")));
  EXPECT_TRUE(FolderExists(t.Path("users")));
  EXPECT_FALSE(FolderExists(t.Path("Users/plain.WLT")));
}

TEST(Names, PatternListingIsSortedAndCaseInsensitive) {
  TempTree t;
  for (const char* n : {"b.EML", "A.eml", "c.WAI", ".d.EML", "20261116x.EML", "a.EMLX"}) {
    t.Write(std::string("IN/") + n, "");
  }
  t.MakeFolder("IN/dir.EML");
  EXPECT_EQ(ListFiles(t.Path("in"), "*.EML"),
            (std::vector<std::string>{"20261116x.EML", "A.eml", "b.EML"}));
  EXPECT_EQ(ListFiles(t.Path("IN"), "20261116*.eml"), (std::vector<std::string>{"20261116x.EML"}));
  EXPECT_EQ(ListFiles(t.Path("IN"), "?.WAI"), (std::vector<std::string>{"c.WAI"}));
  EXPECT_TRUE(ListFiles(t.Path("NOPE"), "*").empty());
  EXPECT_TRUE(NameLess("a_x", "B"));  // case folded before comparing
  EXPECT_FALSE(SafeName(".."));
  EXPECT_FALSE(SafeName("a/b@x"));
  EXPECT_FALSE(SafeName(std::string("a\0b", 3)));
  EXPECT_TRUE(SafeName("u@x.org"));
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
      {"\r\n\r\n", {"", ""}},
      {"x\r\r\n", {"x", ""}},
  };
  TempTree t;
  for (const auto& c : cases) {
    t.Write("f.txt", c.bytes);
    TextFile f = TextFile::Open(t.Path("F.TXT"), OpenMode::kInput);
    std::vector<std::string> got;
    while (!f.Eof()) got.push_back(f.ReadLine());
    EXPECT_EQ(got, c.lines);
    EXPECT_EQ(ErrorOf([&] { f.ReadLine(); }), kErrPastEnd);
    f.Close();
  }
}

TEST(TextFiles, CrLfSplitAcrossReadBlocksIsOneLineEnd) {
  TempTree t;
  std::string first(64 * 1024 - 1, 'a');
  t.Write("big.txt", first + "\r\nsecond");
  TextFile f = TextFile::Open(t.Path("big.txt"), OpenMode::kInput);
  EXPECT_EQ(f.ReadLine().size(), first.size());
  EXPECT_EQ(f.ReadLine(), "second");
  EXPECT_TRUE(f.Eof());
}

TEST(TextFiles, WritingAppendsCrLfAndModesBehave) {
  TempTree t;
  {
    TextFile f = TextFile::Open(t.Path("LOG/a.log"), OpenMode::kAppend);
    f.WriteLine("one");
    f.Close();
    TextFile g = TextFile::Open(t.Path("log/A.LOG"), OpenMode::kAppend);
    g.WriteLine("two");
    g.Close();
  }
  EXPECT_EQ(t.Read("LOG/a.log"), "one\r\ntwo\r\n");
  TextFile o = TextFile::Open(t.Path("LOG/a.log"), OpenMode::kOutput);
  o.WriteLine("three");
  o.Close();
  EXPECT_EQ(t.Read("LOG/a.log"), "three\r\n");

  TextFile unopened;
  EXPECT_EQ(ErrorOf([&] { unopened.ReadLine(); }), kErrBadFileNumber);
  EXPECT_EQ(ErrorOf([&] { unopened.WriteLine("x"); }), kErrBadFileNumber);
  EXPECT_EQ(ErrorOf([&] { unopened.Eof(); }), kErrBadFileNumber);
  EXPECT_NO_THROW(unopened.Close());
  EXPECT_EQ(ErrorOf([&] { TextFile::Open(t.Path("IN/none"), OpenMode::kInput); }),
            kErrFileNotFound);
  EXPECT_EQ(ErrorOf([&] { TextFile::Open(t.Path("NOFOLDER/x"), OpenMode::kOutput); }),
            kErrPathNotFound);
}

TEST(FileOperations, CopyRenameRemoveAndTheirErrors) {
  TempTree t;
  t.Write("IN/m.EML", "body");
  CopyFileBytes(t.Path("in/M.eml"), t.Path("LOCAL/1.EML"));
  EXPECT_EQ(t.Read("LOCAL/1.EML"), "body");
  t.Write("LOCAL/2.EML", "old and longer");
  CopyFileBytes(t.Path("IN/m.EML"), t.Path("local/2.eml"));
  EXPECT_EQ(t.Read("LOCAL/2.EML"), "body");
  EXPECT_EQ(ErrorOf([&] { RenameFile(t.Path("LOCAL/1.EML"), t.Path("LOCAL/2.EML")); }),
            kErrFileExists);
  RenameFile(t.Path("local/1.eml"), t.Path("OUT/9.EML"));
  EXPECT_FALSE(t.Exists("LOCAL/1.EML"));
  EXPECT_EQ(t.Read("OUT/9.EML"), "body");
  EXPECT_EQ(ErrorOf([&] { CopyFileBytes(t.Path("IN/none"), t.Path("OUT/x")); }), kErrFileNotFound);
  EXPECT_EQ(ErrorOf([&] { RemoveFile(t.Path("IN/none")); }), kErrFileNotFound);
  MakeFolder(t.Path("WAIT/u@x"));
  EXPECT_EQ(ErrorOf([&] { MakeFolder(t.Path("wait/U@X")); }), kErrPathFileAccess);
  EXPECT_EQ(FileLength(t.Path("OUT/9.eml")), 4);
  EXPECT_NO_THROW(SyncFile(t.Path("OUT/9.EML")));
  EXPECT_NO_THROW(SyncFolder(t.Path("OUT")));
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
      {FsOp::kOpen, EACCES, kErrPermission,
       [&] { TextFile::Open(t.Path("IN/a.EML"), OpenMode::kInput); }},
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
  // The Nth call: the first open passes, the second fails, the third passes again.
  faulty.Clear();
  faulty.FailNth(FsOp::kOpen, 2, EIO, 1, "IN/a.EML");
  EXPECT_EQ(ErrorOf([&] { TextFile::Open(t.Path("IN/a.EML"), OpenMode::kInput); }), 0);
  EXPECT_EQ(ErrorOf([&] { TextFile::Open(t.Path("IN/a.EML"), OpenMode::kInput); }), 57);
  EXPECT_EQ(ErrorOf([&] { TextFile::Open(t.Path("IN/a.EML"), OpenMode::kInput); }), 0);
  EXPECT_EQ(faulty.calls(FsOp::kOpen), 3);
}

}  // namespace
}  // namespace quellor
