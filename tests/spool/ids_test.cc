#include "spool/ids.h"

#include <gtest/gtest.h>

#include <string>

#include "support/table.h"
#include "support/temp_tree.h"

namespace quellor {
namespace {

using testing::CheckTable;
using testing::TempTree;

// The name nextid gives first for a seed, taken in a tree where no file exists.
std::string FirstCandidate(uint64_t seed) {
  TempTree tree;
  tree.ctx.Seed(seed);
  return nextid(tree.ctx);
}

TEST(NextId, DateTimeAndANumberFromOneToAThousand) {
  TempTree tree;
  for (uint64_t seed = 1; seed <= 50; ++seed) {
    tree.ctx.Seed(seed);
    const std::string id = nextid(tree.ctx);
    ASSERT_EQ(id.substr(0, 14), "20261116100000");
    const std::string number = id.substr(14);
    ASSERT_FALSE(number.empty());
    EXPECT_NE(number[0], '0') << id;
    EXPECT_GE(std::stoi(number), 1);
    EXPECT_LE(std::stoi(number), 1000);
    EXPECT_GE(id.size(), 15u);
    EXPECT_LE(id.size(), 18u);
  }
}

void CreateNine(const TempTree& tree, const std::string& id, int skip) {
  int n = 0;
  for (const char* folder : {"IN/", "OUT/", "LOCAL/"}) {
    for (const char* ext : {".WAI", ".EML", ".TMP"}) {
      if (n++ != skip) tree.Write(std::string(folder) + id + ext, "x");
    }
  }
}

TEST(NextId, DrawsAgainOnlyWhenAllNineFilesExist) {
  const std::string first = FirstCandidate(7);
  // Any one of the nine missing: the candidate is returned although eight files carry it.
  for (int skip = 0; skip < 9; ++skip) {
    TempTree tree;
    CreateNine(tree, first, skip);
    tree.ctx.Seed(7);
    EXPECT_EQ(nextid(tree.ctx), first) << "missing file " << skip;
  }
  TempTree tree;
  CreateNine(tree, first, -1);
  tree.ctx.Seed(7);
  const std::string again = nextid(tree.ctx);
  EXPECT_NE(again, first);
  EXPECT_EQ(again.substr(0, 14), "20261116100000");
}

TEST(NextId, NineFilesAreFoundWhateverTheirCase) {
  const std::string first = FirstCandidate(11);
  TempTree tree;
  int n = 0;
  for (const char* folder : {"IN/", "OUT/", "LOCAL/"}) {
    for (const char* ext : {".wai", ".eml", ".tmp"})
      tree.Write(std::string(folder) + first + ext, std::to_string(n++));
  }
  tree.ctx.Seed(11);
  EXPECT_NE(nextid(tree.ctx), first);
}

TEST(Ids, SubjectAndFileTables) {
  CheckTable("id_from_subject", [](const auto& f) { return IdFromSubjectText(f[0]); });
  CheckTable("find_id", [](const auto& f) {
    TempTree tree;
    tree.Write("IN/m.EML", f[0]);
    std::string mail = "m.EML";
    return findid(tree.ctx, mail);
  });
}

TEST(FindId2, RemovesATrailingCarriageReturnFromTheCallersText) {
  TempTree tree;
  std::string subject = "Rq:x // Request-ID: 42\r";
  EXPECT_EQ(findid2(tree.ctx, subject), "42");
  EXPECT_EQ(subject, "Rq:x // Request-ID: 42");
  std::string plain = "no marker";
  EXPECT_EQ(findid2(tree.ctx, plain), "");
  EXPECT_EQ(plain, "no marker");
}

TEST(FindId, MissingFileLogsUnderItsLabelAndReturnsNothing) {
  TempTree tree;
  std::string mail = "absent.EML";
  EXPECT_EQ(findid(tree.ctx, mail), "");
  const std::string errors = tree.Read("LOG/system.log");
  EXPECT_NE(errors.find(" : Quellor - findid - # 52 - Bad file name or number\r\n"),
            std::string::npos)
      << errors;
}

}  // namespace
}  // namespace quellor
