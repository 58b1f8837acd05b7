// Name indexes under our own changes and changes behind our back, unsafe paths, and the order of
// listings.
#include "platform/names.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <ctime>
#include <string>
#include <vector>

#include "platform/errors.h"
#include "platform/files.h"
#include "platform/fs.h"
#include "platform/text.h"
#include "support/table.h"
#include "support/temp_tree.h"

namespace quellor {
namespace {

using testing::ErrorOf;
using testing::TempTree;

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

// Thousands of names made and removed by us: every answer still comes from the index (which
// grows, closes the gaps its removals leave, compacts its pool and shrinks) without a scan.
TEST(NameIndex, ManyNamesComeAndGo) {
  TempTree t;
  t.MakeFolder("IN");
  FaultyFileSystem counting;
  ScopedFileSystem scope(&counting);
  ASSERT_FALSE(PathExists(t.Path("IN/none")));
  const int lists = counting.calls(FsOp::kList);
  const auto name = [](int i) {
    return "Message-" + std::to_string(i * 7919 % 3000) + "-with-a-longer-name.EML";
  };
  for (int i = 0; i < 3000; ++i) TextFile::Open(t.Path("IN/" + name(i)), OpenMode::kOutput).Close();
  for (int i = 0; i < 3000; ++i) {
    if (i % 10 != 0) RemoveFile(t.Path("IN/" + name(i)));
  }
  int wrong = 0;
  for (int i = 0; i < 3000; ++i)
    wrong += PathExists(t.Path("in/" + UCase(name(i)))) != (i % 10 == 0);
  EXPECT_EQ(wrong, 0);
  EXPECT_EQ(ListFiles(t.Path("IN"), "*.eml").size(), 300u);
  EXPECT_EQ(counting.calls(FsOp::kList), lists);
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

  // An index built just after a change may miss a second change of the same tick. The folder's
  // stamp is set a little ahead, so the index counts as built within that tick however busy the
  // machine is.
  t.MakeFolder("LOCAL/fresh");
  const std::string fresh = t.Path("LOCAL/fresh");
  struct timespec stamp;
  clock_gettime(CLOCK_REALTIME, &stamp);
  stamp.tv_sec += 10;
  stamp.tv_nsec |= 1;  // not the stamp of a file system with whole seconds
  SetStamp(fresh, stamp);
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

// The listing's order is NameLess's, and names equal but for case come lowest bytes first; hidden
// names, folders and longer extensions are left out.
TEST(Patterns, ListingOrderIsNameOrder) {
  TempTree t;
  const std::vector<std::string> sorted = {"1.eml",         "a.EML",        "a_x.eml", "aB.eml",
                                           "AbC.eml",       "abc.EML",      "abc.eml", "z.eml",
                                           "\xC9t\xE9.eml", "\xE9t\xE9.EML"};
  for (auto it = sorted.rbegin(); it != sorted.rend(); ++it) t.Write("IN/" + *it, "x");
  t.Write("IN/.hidden.eml", "x");
  t.Write("IN/a.EMLX", "x");
  t.MakeFolder("IN/dir.EML");
  EXPECT_EQ(ListFiles(t.Path("IN"), "*.EML"), sorted);
}

}  // namespace
}  // namespace quellor
