// Name indexes under our own changes and changes behind our back, unsafe paths, patterns and
// order, and the seam's fault rules.
#include "platform/names.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <functional>
#include <string>
#include <vector>

#include "platform/errors.h"
#include "platform/files.h"
#include "platform/fs.h"
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

struct timespec StampOf(const std::string& path) {
  struct stat st;
  EXPECT_EQ(::stat(path.c_str(), &st), 0) << path;
  return st.st_mtim;
}

// Sets a folder's stamp, as a change within one tick of the file system's clock leaves it.
void SetStamp(const std::string& path, const struct timespec& stamp) {
  struct timespec times[2] = {stamp, stamp};
  ASSERT_EQ(::utimensat(AT_FDCWD, path.c_str(), times, 0), 0) << path;
}

// An old stamp: an index built on it is not suspected of missing a change of the same tick.
void AgeStamp(const std::string& path) {
  struct timespec old = StampOf(path);
  old.tv_sec -= 60;
  SetStamp(path, old);
}

TEST(NameIndex, OurOwnChangesNeedNoRescan) {
  TempTree t;
  t.Write("IN/a.EML", "abc");
  AgeStamp(t.Path("IN"));
  AgeStamp(t.root());
  FaultyFileSystem counting;
  ScopedFileSystem scope(&counting);
  ASSERT_TRUE(OrdinaryFileExists(t.Path("in/A.eml")));  // scans the root and IN
  ASSERT_EQ(counting.calls(FsOp::kList), 2);

  TextFile::Open(t.Path("IN/New.WAI"), OpenMode::kOutput).Close();
  RenameFile(t.Path("in/new.wai"), t.Path("IN/Renamed.WAI"));
  CopyFileBytes(t.Path("IN/a.EML"), t.Path("IN/Copy.EML"));
  CopyFileBytes(t.Path("IN/a.EML"), t.Path("IN/Gone.EML"));
  RemoveFile(t.Path("in/GONE.eml"));
  MakeFolder(t.Path("IN/Sub"));
  struct Case {
    const char* asked;
    bool exists;
  } cases[] = {
      {"in/NEW.wai", false},  {"in/RENAMED.wai", true}, {"in/copy.eml", true},
      {"in/gone.eml", false}, {"in/SUB", true},         {"in/a.eml", true},
  };
  for (const auto& c : cases) EXPECT_EQ(PathExists(t.Path(c.asked)), c.exists) << c.asked;
  EXPECT_EQ(counting.calls(FsOp::kList), 2);
  EXPECT_EQ(t.List("IN"), (std::vector<std::string>{"Copy.EML", "Renamed.WAI", "Sub", "a.EML"}));
}

TEST(NameIndex, ChangesBehindOurBackWithinOneTickAreFound) {
  TempTree t;
  const std::string in = t.Path("IN");
  t.Write("IN/Old.TXT", "x");
  AgeStamp(in);
  const struct timespec aged = StampOf(in);
  ASSERT_TRUE(PathExists(t.Path("IN/old.txt")));
  // Renamed in another case without the stamp moving: the index names a file that is gone.
  ASSERT_EQ(::rename(t.Path("IN/Old.TXT").c_str(), t.Path("IN/OLD.txt").c_str()), 0);
  SetStamp(in, aged);
  EXPECT_EQ(ResolveExisting(t.Path("IN/old.Txt")), t.Path("IN/OLD.txt"));

  // An index built just after a change may miss a second change of the same tick.
  t.MakeFolder("LOCAL/fresh");
  const std::string fresh = t.Path("LOCAL/fresh");
  const struct timespec stamp = StampOf(fresh);
  ASSERT_FALSE(PathExists(fresh + "/late.txt"));
  t.Write("LOCAL/fresh/Late.TXT", "x");
  SetStamp(fresh, stamp);
  EXPECT_EQ(ResolveExisting(fresh + "/late.txt"), fresh + "/Late.TXT");
}

TEST(NameIndex, NamesThatDifferOnlyInCase) {
  TempTree t;
  t.Write("IN/a.txt", "lower");
  t.Write("IN/A.TXT", "upper");
  AgeStamp(t.Path("IN"));
  EXPECT_EQ(ResolveExisting(t.Path("IN/a.Txt")), t.Path("IN/A.TXT"));  // the lowest bytes win
  EXPECT_EQ(ListFiles(t.Path("IN"), "*.TXT"), (std::vector<std::string>{"A.TXT", "a.txt"}));
  RemoveFile(t.Path("IN/A.TXT"));
  EXPECT_EQ(ResolveExisting(t.Path("IN/a.Txt")), t.Path("IN/a.txt"));
  RemoveFile(t.Path("IN/a.TXT"));
  EXPECT_FALSE(PathExists(t.Path("IN/a.Txt")));
}

TEST(UnsafePaths, AreNeverResolvedNorCreated) {
  TempTree t;
  t.Write("IN/a.EML", "x");
  const std::string unsafe[] = {
      t.Path("IN/../IN/a.EML"),
      t.Path("IN/./a.EML"),
      t.Path("IN/.."),
      t.Path(std::string("IN/a.EML\0.x", 11)),
      t.Path(std::string("IN/\0", 4)),
  };
  for (const auto& p : unsafe) {
    SCOPED_TRACE(p);
    EXPECT_FALSE(ResolveExisting(p).has_value());
    EXPECT_FALSE(PathExists(p));
    EXPECT_FALSE(OrdinaryFileExists(p));
    EXPECT_EQ(ErrorOf([&] { ResolveForCreate(p); }), kErrBadFileNumber);
    EXPECT_EQ(ErrorOf([&] { TextFile::Open(p, OpenMode::kOutput); }), kErrBadFileNumber);
    EXPECT_EQ(ErrorOf([&] { TextFile::Open(p, OpenMode::kAppend); }), kErrBadFileNumber);
    EXPECT_EQ(ErrorOf([&] { CopyFileBytes(t.Path("IN/a.EML"), p); }), kErrBadFileNumber);
    EXPECT_EQ(ErrorOf([&] { RenameFile(t.Path("IN/a.EML"), p); }), kErrBadFileNumber);
    EXPECT_NE(ErrorOf([&] { RemoveFile(p); }), 0);
  }
  EXPECT_EQ(t.List("IN"), (std::vector<std::string>{"a.EML"}));
  EXPECT_EQ(t.Read("IN/a.EML"), "x");
}

TEST(Patterns, MatchCaseInsensitively) {
  struct Case {
    const char* name;
    const char* pattern;
    bool match;
  } cases[] = {
      {"20261116x.EML", "*.eml", true},
      {"a.EMLX", "*.EML", false},
      {"x.EML", "20261116*.EML", false},
      {"20261116.eml", "20261116*.EML", true},
      {"ab", "a?", true},
      {"a", "a?", false},
      {"abc", "a*c", true},
      {"ac", "a*c", true},
      {"aXbXc", "*b*c", true},
      {"abcb", "*b*c", false},
      {"", "*", true},
      {"", "?", false},
      {"\xC9T\xC9.txt", "\xE9t\xE9.*", true},  // Windows-1252 e-acute folds
  };
  for (const auto& c : cases) {
    EXPECT_EQ(MatchesPattern(c.name, c.pattern), c.match) << c.name << " ~ " << c.pattern;
  }
}

TEST(Patterns, NameOrderFoldsAsciiCaseOnly) {
  struct Case {
    const char* a;
    const char* b;
    bool less;
  } cases[] = {
      {"a", "B", true},      {"B", "a", false},   {"abc", "ABCD", true}, {"ABC", "abc", false},
      {"abc", "ABC", false}, {"a_x", "aB", true}, {"1", "a", true},      {"z", "\xC9", true},
  };
  for (const auto& c : cases) EXPECT_EQ(NameLess(c.a, c.b), c.less) << c.a << " < " << c.b;
}

// The listing's order is NameLess's, and names equal but for case come lowest bytes first.
TEST(Patterns, ListingOrderIsNameOrder) {
  TempTree t;
  const std::vector<std::string> sorted = {"1.eml",         "a.EML",        "a_x.eml", "aB.eml",
                                           "AbC.eml",       "abc.EML",      "abc.eml", "z.eml",
                                           "\xC9t\xE9.eml", "\xE9t\xE9.EML"};
  for (auto it = sorted.rbegin(); it != sorted.rend(); ++it) t.Write("IN/" + *it, "x");
  t.Write("IN/.hidden.eml", "x");
  EXPECT_EQ(ListFiles(t.Path("IN"), "*.EML"), sorted);
}

TEST(MissingPaths, GiveTheClassicNumbers) {
  TempTree t;
  struct Case {
    const char* what;
    std::function<void()> action;
    int number;
  } cases[] = {
      {"input", [&] { TextFile::Open(t.Path("IN/none"), OpenMode::kInput); }, kErrFileNotFound},
      {"input, no folder", [&] { TextFile::Open(t.Path("NO/x"), OpenMode::kInput); },
       kErrPathNotFound},
      {"remove", [&] { RemoveFile(t.Path("IN/none")); }, kErrFileNotFound},
      {"remove, no folder", [&] { RemoveFile(t.Path("NO/x")); }, kErrPathNotFound},
      {"length", [&] { FileLength(t.Path("IN/none")); }, kErrFileNotFound},
      {"rename", [&] { RenameFile(t.Path("IN/none"), t.Path("IN/x")); }, kErrFileNotFound},
      {"folder in missing folder", [&] { MakeFolder(t.Path("NO/x")); }, kErrPathNotFound},
  };
  for (const auto& c : cases) EXPECT_EQ(ErrorOf(c.action), c.number) << c.what;
}

TEST(Copies, OntoItselfIsRefusedAndCutOffCopiesVanish) {
  TempTree t;
  t.Write("IN/a.EML", "keep me");
  ASSERT_EQ(::link(t.Path("IN/a.EML").c_str(), t.Path("IN/b.EML").c_str()), 0);
  EXPECT_EQ(ErrorOf([&] { CopyFileBytes(t.Path("IN/a.EML"), t.Path("in/A.eml")); }),
            kErrPermission);
  EXPECT_EQ(ErrorOf([&] { CopyFileBytes(t.Path("IN/a.EML"), t.Path("IN/B.EML")); }),
            kErrPermission);
  EXPECT_EQ(t.Read("IN/a.EML"), "keep me");

  const std::string big(200 * 1024, 'x');
  t.Write("IN/big.EML", big);
  t.Write("LOCAL/old.EML", "old");
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
      {"LOCAL/old.EML", FsOp::kWrite, 1, ENOSPC, kErrDiskFull},
      {"LOCAL/new.EML", FsOp::kRead, 3, EIO, 57},
      {"LOCAL/new.EML", FsOp::kClose, 2, EIO, 57},  // the target's close comes second
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.target);
    faulty.Clear();
    faulty.FailNth(c.op, c.nth, c.err);
    EXPECT_EQ(ErrorOf([&] { CopyFileBytes(t.Path("IN/big.EML"), t.Path(c.target)); }), c.number);
    EXPECT_FALSE(t.Exists(c.target));
    EXPECT_FALSE(PathExists(t.Path(c.target)));
  }
  faulty.Clear();
  CopyFileBytes(t.Path("IN/big.EML"), t.Path("LOCAL/new.EML"));
  EXPECT_EQ(t.Read("LOCAL/new.EML"), big);
}

TEST(TextFiles, BlocksLengthAndFailedClose) {
  TempTree t;
  t.Write("IN/m.EML", "0123456789");
  TextFile b = TextFile::Open(t.Path("in/M.eml"), OpenMode::kBinary);
  EXPECT_EQ(b.Length(), 10);
  EXPECT_EQ(b.ReadBlock(4), "0123");
  EXPECT_EQ(b.ReadBlock(100), "456789");
  EXPECT_EQ(b.Position(), 10);
  EXPECT_EQ(b.ReadBlock(4), "");
  EXPECT_TRUE(b.Eof());
  b.Close();

  FaultyFileSystem faulty;
  ScopedFileSystem scope(&faulty);
  faulty.FailAlways(FsOp::kWrite, ENOSPC);
  TextFile f = TextFile::Open(t.Path("OUT/x.EML"), OpenMode::kAppend);
  f.WriteLine("line");  // buffered
  EXPECT_EQ(ErrorOf([&] { f.Close(); }), kErrDiskFull);
  EXPECT_FALSE(f.is_open());
  EXPECT_EQ(ErrorOf([&] { f.WriteLine("again"); }), kErrBadFileNumber);
  EXPECT_EQ(ErrorOf([&] { f.ReadBlock(1); }), kErrBadFileNumber);
  EXPECT_EQ(ErrorOf([&] { f.Length(); }), kErrBadFileNumber);
}

TEST(FaultySeam, RulesCountMatchingCallsOnly) {
  TempTree t;
  t.Write("IN/x", "");
  t.Write("IN/y", "");
  FaultyFileSystem faulty;
  // The second open of a path holding "x" fails twice in a row; opens of "y" do not count.
  faulty.FailNth(FsOp::kOpen, 2, EIO, 2, "IN/x");
  struct Step {
    const char* name;
    int err;  // 0: succeeds
  } steps[] = {{"IN/y", 0},   {"IN/x", 0}, {"IN/y", 0}, {"IN/x", EIO},
               {"IN/x", EIO}, {"IN/x", 0}, {"IN/x", 0}};
  for (const auto& s : steps) {
    int fd = faulty.Open(t.Path(s.name), O_RDONLY, 0);
    if (s.err) {
      EXPECT_EQ(fd, -s.err) << s.name;
    } else {
      ASSERT_GE(fd, 0) << s.name;
      // Calls on descriptors carry no path and meet only rules of their own kind.
      char c;
      EXPECT_EQ(faulty.Read(fd, &c, 1), 0);
      faulty.Close(fd);
    }
  }
  EXPECT_EQ(faulty.calls(FsOp::kOpen), 7);
  EXPECT_EQ(faulty.calls(FsOp::kRead), 5);

  faulty.FailAlways(FsOp::kUnlink, EACCES, "IN/y");
  for (int i = 0; i < 3; ++i) EXPECT_EQ(faulty.Unlink(t.Path("IN/y")), -EACCES);
  EXPECT_EQ(faulty.Unlink(t.Path("IN/none")), -ENOENT);  // not matched: the real answer
  faulty.Clear();
  EXPECT_EQ(faulty.calls(FsOp::kUnlink), 0);
  EXPECT_EQ(faulty.Unlink(t.Path("IN/y")), 0);
  {
    ScopedFileSystem scope(&faulty);
    EXPECT_EQ(&Fs(), &faulty);
  }
  EXPECT_NE(&Fs(), &faulty);
}

}  // namespace
}  // namespace quellor
