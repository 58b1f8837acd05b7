#include "spool/lists.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <string>
#include <vector>

#include "platform/fs.h"
#include "platform/names.h"
#include "support/table.h"
#include "support/temp_tree.h"

namespace quellor {
namespace {

using testing::CheckTable;
using testing::TempTree;

TEST(Lists, Tables) {
  CheckTable("match_entry", [](const auto& f) { return MatchEntry(f[0], f[1]) ? "1" : "0"; });
  CheckTable("list_lookup", [](const auto& f) {
    TempTree t;
    t.Write("Users/u.WHITE", f[0]);
    ForgetNameIndexes();
    return buscaenlista(t.ctx, t.Path("Users/u.WHITE"), f[1]) ? "1" : "0";
  });
  CheckTable("add_list_entry", [](const auto& f) {
    TempTree t;
    t.Write("DOMAIN.LST", f[0]);
    ForgetNameIndexes();
    AddListEntry(t.ctx, t.Path("DOMAIN.LST"), f[1]);
    EXPECT_EQ(t.List("").size(), 9u) << "a work file is left";
    EXPECT_FALSE(t.Exists("LOG/system.log"));
    return t.Read("DOMAIN.LST");
  });
  CheckTable("scan_emails", [](const auto& f) {
    TempTree t;
    ScanEmailsinString(t.ctx, f[0], "");
    std::string tokens;
    for (const std::string& item : t.ctx.window.List1.items())
      tokens += (tokens.empty() ? "" : " ") + item;
    return tokens;
  });
}

class ListsTest : public ::testing::Test {
 protected:
  void Write(std::string_view relative, std::string_view bytes) {
    t.Write(relative, bytes);
    ForgetNameIndexes();
  }
  bool Find(std::string_view relative, const std::string& value) {
    return buscaenlista(t.ctx, t.Path(relative), value);
  }
  void Add(const std::string& entry) { AddListEntry(t.ctx, t.Path("DOMAIN.LST"), entry); }

  TempTree t;
};

TEST_F(ListsTest, LookupEdgeFiles) {
  Write(".hidden.LST", "u@d.x\r\n");
  t.MakeFolder("folder.LST");
  ForgetNameIndexes();
  EXPECT_FALSE(Find(".hidden.LST", "u@d.x"));
  EXPECT_FALSE(Find("folder.LST", "u@d.x"));
  EXPECT_FALSE(Find("missing.LST", "u@d.x"));
  EXPECT_EQ(t.sleeper.count(), 0);  // nothing that is missing was opened
  Write("domain.lst", "D.X\r\n");
  EXPECT_TRUE(Find("DOMAIN.LST", "d.x"));
}

TEST_F(ListsTest, UnreadableListIsLoggedAndFindsNothing) {
  Write("DOMAIN.LST", "d.x\r\n");
  FaultyFileSystem fs;
  ScopedFileSystem scope(&fs);
  fs.FailAlways(FsOp::kOpen, EACCES, "DOMAIN.LST");
  EXPECT_FALSE(Find("DOMAIN.LST", "d.x"));
  EXPECT_EQ(t.sleeper.count(), 8);
  std::vector<std::string> errors = t.ReadLines("LOG/system.log");
  ASSERT_EQ(errors.size(), 1u);
  EXPECT_EQ(errors[0],
            "16/11/2026 10:00:00 : Quellor - buscaenlista - # 52 - Bad file name or number");
}

TEST_F(ListsTest, AddToAMissingListCreatesIt) {
  Add("new.x");
  EXPECT_EQ(t.Read("DOMAIN.LST"), "new.x\r\n");
  EXPECT_FALSE(t.Exists("DOMAIN.TMP"));
  EXPECT_EQ(t.sleeper.count(), 0);
  EXPECT_FALSE(t.Exists("LOG/system.log"));
}

TEST_F(ListsTest, AStaleWorkFileIsNeverWrittenInto) {
  Write("DOMAIN.LST", "a.x\r\nz.x\r\n");
  Write("DOMAIN.TMP", "stale.x\r\n");
  Add("m.x");
  EXPECT_EQ(t.Read("DOMAIN.LST"), "a.x\r\nm.x\r\nz.x\r\n");
  EXPECT_EQ(t.Read("DOMAIN.TMP"), "stale.x\r\n");
}

TEST_F(ListsTest, AFailedRewriteLeavesTheList) {
  Write("DOMAIN.LST", "a.x\r\nz.x\r\n");
  FaultyFileSystem fs;
  ScopedFileSystem scope(&fs);
  // The work file cannot be made: the list stays as it was.
  fs.FailAlways(FsOp::kOpen, EACCES, ".part");
  Add("m.x");
  EXPECT_EQ(t.Read("DOMAIN.LST"), "a.x\r\nz.x\r\n");
  std::vector<std::string> errors = t.ReadLines("LOG/system.log");
  ASSERT_FALSE(errors.empty());
  EXPECT_EQ(errors[0], "16/11/2026 10:00:00 : Quellor - AddListEntry - # 70 - Permission denied");

  // A list that cannot be searched is not taken for a missing one and replaced.
  fs.Clear();
  fs.FailAlways(FsOp::kStat, EIO, "DOMAIN.LST");
  Add("m.x");
  fs.Clear();
  EXPECT_EQ(t.Read("DOMAIN.LST"), "a.x\r\nz.x\r\n");
  EXPECT_EQ(t.ReadLines("LOG/system.log").back(),
            "16/11/2026 10:00:00 : Quellor - AddListEntry - # 57 - Device I/O error");
}

}  // namespace
}  // namespace quellor
