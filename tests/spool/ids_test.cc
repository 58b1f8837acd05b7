#include "spool/ids.h"

#include <gtest/gtest.h>

#include <string>

#include "support/temp_tree.h"

namespace quellor {
namespace {

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

struct SubjectCase {
  const char* subject;
  const char* id;
};

TEST(IdFromSubjectText, Table) {
  const SubjectCase cases[] = {
      {"Re: Rq:Hello // Request-ID: 2004051217340587", "2004051217340587"},
      {"RE: rq: x // request-id:123abc", "123"},
      {"a subject without the marker", ""},
      {"Request-ID: x12", ""},
      {"Request-ID: 12 34", "1234"},
      {"Request-ID:\t5\t6 7]", "567"},
      {"Rq:x // Request-ID:", ""},
      {"Rq:x // REQUEST - ID: 9", "9"},  // blanks go before the marker is looked for
      {"Request-ID: 12\r34", "12"},      // the value ends at the first carriage return
      {"x Request-ID: 1 Request-ID: 2", "1"},
      {"", ""},
  };
  for (const auto& c : cases) EXPECT_EQ(IdFromSubjectText(c.subject), c.id) << c.subject;
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

struct FileCase {
  const char* name;
  const char* bytes;
  const char* id;
};

TEST(FindId, Table) {
  const FileCase cases[] = {
      {"own subject",
       "From: a@b\r\nSubject: Re: Rq:x // Request-ID: 2026111610000012\r\n\r\nbody\r\n",
       "2026111610000012"},
      {"quoted request in the body",
       "From: postmaster@b\r\nSubject: Undeliverable\r\n\r\nYour message:\r\nsubject: Rq:hi // "
       "Request-ID: 77\r\n",
       "77"},
      {"no identifier anywhere", "Subject: hello\r\n\r\nSubject: still nothing\r\n", ""},
      {"folded subject, blank continuation",
       "Subject: Rq:long subject //\r\n   Request-ID: 42\r\nTo: x\r\n", "42"},
      {"folded subject, tab continuation", "Subject: Rq:x // Request-\r\n\tID: 43\r\n\r\n", "43"},
      {"identifier split by a fold", "Subject: Rq:x // Request-ID: 12\r\n 34\r\n\r\n", "1234"},
      {"bare line feeds, subject not first",
       "From: a@b\nSubject: Re: Rq:x // Request-ID: 55\nTo: c\n\nbody\n", "55"},
      {"bare line feeds, subject first", "Subject: Request-ID: 56\nTo: c\n", "56"},
      {"subject header without text", "Subject:\r\n\r\nbody\r\n", ""},
      {"the line ending the fold is not examined", "Subject: a\r\nSubject: Request-ID: 9\r\n", ""},
      {"empty file", "", ""},
  };
  for (const auto& c : cases) {
    TempTree tree;
    tree.Write("IN/m.EML", c.bytes);
    std::string mail = "m.EML";
    EXPECT_EQ(findid(tree.ctx, mail), c.id) << c.name;
  }
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
