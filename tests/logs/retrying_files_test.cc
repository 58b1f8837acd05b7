#include "logs/retrying_files.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <functional>
#include <string>
#include <vector>

#include "platform/errors.h"
#include "platform/fs.h"
#include "platform/names.h"
#include "support/temp_tree.h"

namespace quellor {
namespace {

using testing::TempTree;

class PrimitivesTest : public ::testing::Test {
 protected:
  PrimitivesTest() { t.ctx.settings.debug = "ON"; }

  std::vector<std::string> RetryLog() const { return t.ReadLines("LOG/quellor/16-11-2026.iwr"); }
  const std::vector<std::string>& Warnings() const { return t.ctx.window.List3.items(); }

  TempTree t;
  FaultyFileSystem fs;
  ScopedFileSystem scope{&fs};
};

// One retrying primitive: how to prepare the tree, how to call it, which call to make fail, and
// the tag and details its lines carry.
struct RetryCase {
  const char* name;
  std::function<void(TempTree&)> setup;
  std::function<void(TempTree&)> call;
  FsOp op;
  const char* path_part;
  std::string what;  // relative to the root, completed in the test
};

std::vector<RetryCase> RetryCases() {
  return {
      {"DeleteFile", [](TempTree& t) { t.Write("IN/a.WAI", "x"); },
       [](TempTree& t) { DeleteFile(t.ctx, t.Path("IN/a.WAI")); }, FsOp::kUnlink, "a.WAI",
       "###KILL {IN/a.WAI}"},
      // The existence test of DeleteFile is retried like the delete.
      {"DeleteFile search", [](TempTree& t) { t.Write("IN/a.WAI", "x"); },
       [](TempTree& t) { DeleteFile(t.ctx, t.Path("IN/a.WAI")); }, FsOp::kStat, "a.WAI",
       "###KILL {IN/a.WAI}"},
      {"CopyFile", [](TempTree& t) { t.Write("IN/a.EML", "x"); },
       [](TempTree& t) { CopyFile(t.ctx, t.Path("IN/a.EML"), t.Path("LOCAL/b.EML")); }, FsOp::kOpen,
       "a.EML", "###COPY {IN/a.EML}-{LOCAL/b.EML}"},
      {"NameFile", [](TempTree& t) { t.Write("OUT/a.TMP", "x"); },
       [](TempTree& t) { NameFile(t.ctx, t.Path("OUT/a.TMP"), t.Path("OUT/a.EML")); },
       FsOp::kRename, "a.TMP", "###NAME {OUT/a.TMP}-{OUT/a.EML}"},
  };
}

// "{IN/a.WAI}" -> "<root>IN/a.WAI".
std::string Expand(const TempTree& t, std::string s) {
  for (size_t open; (open = s.find('{')) != std::string::npos;) {
    size_t close = s.find('}', open);
    s.replace(open, close - open + 1, t.Path(s.substr(open + 1, close - open - 1)));
  }
  return s;
}

// Success at once sleeps never and writes nothing; two failures then success log attempts 1 and
// 2; a lasting failure makes eight attempts, the last one logged as " RESUME NEXT ", and returns.
TEST_F(PrimitivesTest, FailuresAreLoggedRetriedAndGivenUpAfterEight) {
  for (int failures : {0, 2, 8}) {
    for (const RetryCase& c : RetryCases()) {
      SCOPED_TRACE(std::string(c.name) + " " + std::to_string(failures));
      TempTree tree;
      tree.ctx.settings.debug = "ON";
      c.setup(tree);
      fs.Clear();
      if (failures > 0) fs.FailNth(c.op, 1, EACCES, failures, c.path_part);
      c.call(tree);
      std::string what = Expand(tree, c.what);
      std::vector<std::string> log, warnings;
      for (int n = 1; n <= failures; ++n) {
        std::string tail = n == 8 ? " RESUME NEXT" : " Intento= " + std::to_string(n);
        log.push_back("10:00:00   " + what + tail);
        warnings.push_back("16/11/2026,10:00:00" + what + tail);
      }
      EXPECT_EQ(tree.sleeper.count(), failures);
      EXPECT_EQ(tree.sleeper.total(), std::chrono::milliseconds(100 * failures));
      EXPECT_EQ(tree.ReadLines("LOG/quellor/16-11-2026.iwr"), log);
      EXPECT_EQ(tree.ctx.window.List3.items(), warnings);
      if (failures == 0) {
        EXPECT_FALSE(tree.Exists("IN/a.WAI"));
        EXPECT_FALSE(tree.Exists("LOG/quellor/16-11-2026.iwr"));
        EXPECT_EQ(tree.Read("LOCAL/b.EML"), c.op == FsOp::kOpen ? "x" : "");
        EXPECT_EQ(tree.Exists("OUT/a.EML"), c.op == FsOp::kRename);
      }
    }
  }
}

TEST_F(PrimitivesTest, SwitchesMustReadExactlyOn) {
  struct Case {
    const char* log;
    const char* debug;
    bool retry_log;
    bool warnings;
  } cases[] = {
      {"ON", "ON", true, true},
      {"on", "ON", false, true},
      {" ON", "On", false, false},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(std::string(c.log) + "/" + c.debug);
    TempTree tree;
    tree.ctx.settings.log = c.log;
    tree.ctx.settings.debug = c.debug;
    fs.Clear();
    fs.FailNth(FsOp::kRename, 1, EBUSY, 1, "a.TMP");
    tree.Write("OUT/a.TMP", "x");
    NameFile(tree.ctx, tree.Path("OUT/a.TMP"), tree.Path("OUT/a.EML"));
    EXPECT_EQ(tree.sleeper.count(), 1);
    EXPECT_EQ(tree.Exists("LOG/quellor/16-11-2026.iwr"), c.retry_log);
    EXPECT_EQ(tree.ctx.window.List3.size(), c.warnings ? 1u : 0u);
    EXPECT_TRUE(tree.Exists("OUT/a.EML"));
  }
}

TEST_F(PrimitivesTest, GenuineFailuresAreRetriedToTheGiveUp) {
  // A missing source of CopyFile; an existing target of NameFile (both files stay).
  CopyFile(t.ctx, t.Path("IN/none.EML"), t.Path("LOCAL/x.EML"));
  EXPECT_EQ(t.sleeper.count(), 8);
  EXPECT_FALSE(t.Exists("LOCAL/x.EML"));
  EXPECT_EQ(RetryLog().back(), "10:00:00   ###COPY " + t.Path("IN/none.EML") + "-" +
                                   t.Path("LOCAL/x.EML") + " RESUME NEXT");

  t.sleeper.Reset();
  t.Write("OUT/a.TMP", "new");
  t.Write("OUT/a.EML", "old");
  ForgetNameIndexes();
  NameFile(t.ctx, t.Path("OUT/a.TMP"), t.Path("OUT/a.EML"));
  EXPECT_EQ(t.sleeper.count(), 8);
  EXPECT_EQ(t.Read("OUT/a.TMP"), "new");
  EXPECT_EQ(t.Read("OUT/a.EML"), "old");
  EXPECT_EQ(Warnings().size(), 16u);
}

TEST_F(PrimitivesTest, DeleteFileOfMissingOrHiddenFileIsSilentAndImmediate) {
  t.Write("IN/.hidden.WAI", "x");
  t.MakeFolder("IN/folder.WAI");
  for (const char* name : {"IN/none.WAI", "IN/.hidden.WAI", "IN/folder.WAI"}) {
    SCOPED_TRACE(name);
    DeleteFile(t.ctx, t.Path(name));
  }
  EXPECT_EQ(t.sleeper.count(), 0);
  EXPECT_TRUE(Warnings().empty());
  EXPECT_TRUE(t.Exists("IN/.hidden.WAI"));
  EXPECT_TRUE(t.Exists("IN/folder.WAI"));
  EXPECT_FALSE(t.Exists("LOG/quellor/16-11-2026.iwr"));
}

TEST_F(PrimitivesTest, OpenFileModesAnyCase) {
  t.Write("IN/a.txt", "one\r\n");
  ForgetNameIndexes();
  EXPECT_EQ(OpenFile(t.ctx, t.Path("IN/a.txt"), "input").ReadLine(), "one");
  struct Case {
    const char* mode;
    const char* after;
  } cases[] = {{"Append", "one\r\nx\r\n"}, {"OUTPUT", "x\r\n"}};
  for (const Case& c : cases) {
    TextFile f = OpenFile(t.ctx, t.Path("IN/a.txt"), c.mode);
    f.WriteLine("x");
    f.Close();
    EXPECT_EQ(t.Read("IN/a.txt"), c.after) << c.mode;
  }
  EXPECT_TRUE(OpenFile(t.ctx, t.Path("IN/b.bin"), "binary").is_open());
  EXPECT_EQ(t.sleeper.count(), 0);
}

TEST_F(PrimitivesTest, OpenFileWithAnUnknownModeOpensNothing) {
  t.Write("IN/a.txt", "one\r\n");
  ForgetNameIndexes();
  for (const char* mode : {"READ", "", "INPUT ", "random"}) {
    SCOPED_TRACE(mode);
    TextFile f = OpenFile(t.ctx, t.Path("IN/a.txt"), mode);
    EXPECT_FALSE(f.is_open());
  }
  EXPECT_EQ(fs.calls(FsOp::kOpen), 0);
  EXPECT_EQ(t.sleeper.count(), 0);
  EXPECT_FALSE(t.Exists("LOG/system.log"));
}

TEST_F(PrimitivesTest, OpenFileRetriesSilentlyAndLeavesTheFileUnopened) {
  t.ctx.settings.log = "ON";
  t.Write("IN/a.txt", "one\r\n");
  ForgetNameIndexes();
  fs.FailAlways(FsOp::kOpen, EACCES, "a.txt");
  TextFile f = OpenFile(t.ctx, t.Path("IN/a.txt"), "INPUT", 3);
  EXPECT_FALSE(f.is_open());
  EXPECT_EQ(t.sleeper.count(), 8);
  EXPECT_TRUE(Warnings().empty());
  EXPECT_FALSE(t.Exists("LOG/quellor/16-11-2026.iwr"));
  // The caller's next use fails in the caller.
  try {
    f.ReadLine();
    ADD_FAILURE() << "reading an unopened file must fail";
  } catch (const RuntimeError& e) {
    EXPECT_EQ(e.number(), kErrBadFileNumber);
  }

  // A missing input file is retried the same way; a later success ends the retries.
  fs.Clear();
  t.sleeper.Reset();
  EXPECT_FALSE(OpenFile(t.ctx, t.Path("IN/none.txt"), "INPUT").is_open());
  EXPECT_EQ(t.sleeper.count(), 8);
  t.sleeper.Reset();
  fs.FailNth(FsOp::kOpen, 1, EACCES, 3, "a.txt");
  EXPECT_TRUE(OpenFile(t.ctx, t.Path("IN/a.txt"), "INPUT").is_open());
  EXPECT_EQ(t.sleeper.count(), 3);
}

}  // namespace
}  // namespace quellor
