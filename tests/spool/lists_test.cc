#include "spool/lists.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <string>
#include <vector>

#include "platform/fs.h"
#include "platform/names.h"
#include "support/temp_tree.h"

namespace quellor {
namespace {

using testing::TempTree;

TEST(MatchEntry, PatternsWithStars) {
  struct Case {
    const char* entry;
    const char* value;
    bool match;
  } cases[] = {
      {"*@d.x", "U@D.X", true},
      {"*@d.x", "u@d.x.y", false},
      {"u@*", "U@anything", true},
      {"u@*", "xu@anything", false},
      {"a*c", "abc", false},  // a star inside joins the halves
      {"a*c", "ac", true},
      {"abc", "abcabc", true},  // the anchors look at different occurrences
      {"abc", "abcxabc", true},
      {"abc", "abcx", false},
      {"abc", "xabc", false},
      {"*", "", true},
      {"***", "anything", true},
      {"", "", false},
      {"", "x", false},
      {"*mid*", "a mid b", true},
      {"*mid*", "a mi d", false},
      {"U@D.X", "u@d.x", true},
      {"u@d.x", " u@d.x", false},  // the value is not trimmed
      {"\tu@d.x", "u@d.x", false},
      {"<u@d.x>", "u@d.x", false},
      {"caf\xE9", "CAF\xC9", true},  // Windows-1252 upper-casing
  };
  for (const Case& c : cases) {
    EXPECT_EQ(MatchEntry(c.entry, c.value), c.match) << c.entry << " / " << c.value;
  }
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

TEST_F(ListsTest, LookupReadsEveryLineAsAnEntry) {
  Write("Users/u.WHITE", "  friend@x.org  \r\n\r\n   \r\n*@trusted.org\rlast@x.org");
  struct Case {
    const char* value;
    bool found;
  } cases[] = {
      {"friend@x.org", true},
      {"FRIEND@X.ORG", true},
      {"a@trusted.org", true},
      {"last@x.org", true},
      {"", false},
      {"other@x.org", false},
  };
  for (const Case& c : cases) {
    EXPECT_EQ(Find("Users/u.WHITE", c.value), c.found) << c.value;
  }
  EXPECT_EQ(t.sleeper.count(), 0);
  EXPECT_FALSE(t.Exists("LOG/system.log"));
}

TEST_F(ListsTest, LookupEdgeFiles) {
  Write("blank.LST", "   \r\n\r\n  \r\n");
  Write("tab.LST", "\tu@d.x\r\n");
  Write("lf.LST", "a@x\nb@x\n");  // a lone LF does not end a line
  Write(".hidden.LST", "u@d.x\r\n");
  t.MakeFolder("folder.LST");
  ForgetNameIndexes();
  EXPECT_FALSE(Find("blank.LST", ""));
  EXPECT_FALSE(Find("blank.LST", "u@d.x"));
  EXPECT_FALSE(Find("tab.LST", "u@d.x"));
  EXPECT_FALSE(Find("lf.LST", "a@x"));
  EXPECT_TRUE(Find("lf.LST", "a@x\nb@x\n"));
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

TEST_F(ListsTest, AddKeepsOrderAndSkipsDuplicates) {
  struct Case {
    const char* name;
    std::string before;
    std::string entry;
    std::string after;
  } cases[] = {
      {"middle", "a.x\r\nz.x\r\n", "m.x", "a.x\r\nm.x\r\nz.x\r\n"},
      {"front", "b.x\r\n", "a.x", "a.x\r\nb.x\r\n"},
      {"end", "a.x\r\nb.x\r\n", "c.x", "a.x\r\nb.x\r\nc.x\r\n"},
      {"duplicate, trimmed and any case", "a.x\r\n  d.x \r\n", " D.X ", "a.x\r\n  d.x \r\n"},
      {"case of the new entry kept", "a.x\r\n", "B.x", "a.x\r\nB.x\r\n"},
      {"lines copied as read", "  a.x\r\n\r\nz.x", "m.x", "  a.x\r\n\r\nm.x\r\nz.x\r\n"},
      {"unsorted list: before the first line at or after it", "q.x\r\nb.x\r\n", "m.x",
       "m.x\r\nq.x\r\nb.x\r\n"},
      {"a longer name sorts after its prefix", "ab.x\r\n", "a.x", "a.x\r\nab.x\r\n"},
      {"blank entry", "a.x\r\n", "   ", "a.x\r\n"},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    Write("DOMAIN.LST", c.before);
    Add(c.entry);
    EXPECT_EQ(t.Read("DOMAIN.LST"), c.after);
    EXPECT_FALSE(t.Exists("DOMAIN.TMP"));
  }
  EXPECT_EQ(t.sleeper.count(), 0);
  EXPECT_FALSE(t.Exists("LOG/system.log"));
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

TEST(ScanEmailsinString, TokensInTextOrder) {
  struct Case {
    std::string text;
    std::vector<std::string> want;
  } cases[] = {
      {"a@x.y, *.z.y b@w.y", {"a@x.y", "*.z.y", "b@w.y"}},
      {"*.z.y;a@x.y", {"*.z.y", "a@x.y"}},
      {"x*y@z", {"x*y@z"}},  // one token with both marks is an address
      {"postmaster@x.org", {"postmaster@x.org"}},
      {"", {}},
      {"no tokens here", {}},
      {"a@b a@b", {"a@b", "a@b"}},
      {"<a@b>,(c@d)", {"a@b", "c@d"}},
  };
  for (const Case& c : cases) {
    TempTree t;
    t.ctx.window.List1.Add("kept");
    ScanEmailsinString(t.ctx, c.text, "");
    std::vector<std::string> want = c.want;
    want.insert(want.begin(), "kept");
    EXPECT_EQ(t.ctx.window.List1.items(), want) << c.text;
  }
}

}  // namespace
}  // namespace quellor
