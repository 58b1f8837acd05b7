// Whole-file replacement: the old file or the new one, never a mix, and no temporary file left.

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <filesystem>

#include "platform/errors.h"
#include "platform/files.h"
#include "platform/fs.h"
#include "platform/names.h"
#include "support/temp_tree.h"

namespace quellor::testing {
namespace {

struct ReplaceCase {
  const char* name;
  FsOp fail;  // the call that fails (kList: none)
  bool keep_existing;
  const char* expected;  // the file's content afterwards
};

const ReplaceCase kCases[] = {
    {"Replaces", FsOp::kList, false, "new\r\n"},
    {"WriteFails", FsOp::kWrite, false, "old\r\n"},
    {"FlushFails", FsOp::kSync, false, "old\r\n"},
    {"RenameFails", FsOp::kRename, false, "old\r\n"},
    {"KeepsExisting", FsOp::kList, true, "old\r\n"},
};

class AtomicReplaceTest : public ::testing::TestWithParam<ReplaceCase> {};

TEST_P(AtomicReplaceTest, LeavesOldOrNew) {
  const ReplaceCase& c = GetParam();
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
    faulty.Clear();
  }
  ForgetNameIndexes();
  EXPECT_EQ(tree.Read("DOMAIN.LST"), c.expected);
  for (const auto& e : std::filesystem::directory_iterator(tree.root())) {
    EXPECT_NE(e.path().filename().string().front(), '.') << e.path();
  }
}

INSTANTIATE_TEST_SUITE_P(Cases, AtomicReplaceTest, ::testing::ValuesIn(kCases),
                         [](const auto& info) { return std::string(info.param.name); });

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
}  // namespace quellor::testing
