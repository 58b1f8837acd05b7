// The spool's building blocks: addresses and aliases, reading envelopes and headers, identifiers,
// lists and the per-user statistics. Most cases are rows of tables in tests/data/tables.
#include <gtest/gtest.h>

#include <cerrno>
#include <string>
#include <vector>

#include "platform/fs.h"
#include "platform/names.h"
#include "spool/activity_log.h"
#include "spool/address.h"
#include "spool/header_line.h"
#include "spool/ids.h"
#include "spool/lists.h"
#include "spool/pass_run.h"
#include "spool/stages.h"
#include "support/table.h"
#include "support/temp_tree.h"

namespace quellor {
namespace {

using testing::CheckTable;
using testing::TempTree;

TEST(SpoolTables, TextAndFiles) {
  CheckTable("extract_address", [](const auto& f) { return ExtractAddress(f[0], f[1]); });
  CheckTable("replace_no_case", [](const auto& f) { return ReplaceNoCase(f[0], f[1], f[2]); });
  CheckTable("value_after", [](const auto& f) { return ValueAfter(f[0], f[1], f[2]); });
  CheckTable("id_from_subject", [](const auto& f) { return IdFromSubjectText(f[0]); });
  CheckTable("match_entry", [](const auto& f) { return MatchEntry(f[0], f[1]) ? "1" : "0"; });
  CheckTable("resolve_alias", [](const auto& f) {
    TempTree t;
    t.Write("Users/.hidden@x.org.ALS", "real@x.org\r\n");
    t.Write("Users/u@x.org.CONF", "");
    t.Write("real.ALS", "escaped\r\n");
    if (f[0] != "-") t.Write("Users/alias@x.org.ALS", f[0]);
    ForgetNameIndexes();
    const std::string got = ResolveAlias(t.ctx, f[1]);
    return got + " | sleeps " + std::to_string(t.sleeper.count()) + " | " +
           t.Read("LOG/system.log");
  });
  // A lone parenthesis fails under the pass's marker and keeps the earlier request address.
  CheckTable("recipient_line", [](const auto& f) {
    TempTree tree;
    tree.WriteLines("Users/alias@x.org.ALS", {"  box@x.org  ", "second@x.org"});
    PassRun p(tree.ctx);
    p.s.request_address = "earlier@x.org";
    p.Mark(7);
    ReadRecipientLine(p, f[0]);
    return p.s.recipient + " | " + p.s.user + " | " + p.s.request_address + " | " +
           tree.Read("LOG/system.log");
  });
  CheckTable("read_headers", [](const auto& f) {
    TempTree tree;
    if (f[0] != "-") tree.Write("IN/m.EML", f[0]);
    PassRun p(tree.ctx);
    p.s.message_file = "m.EML";
    p.s.wait_id = "left over";
    ReadHeaders(p);
    const bool copied = tree.Read("DEBUG/m.EML") == f[0] && tree.ctx.window.kelpo.text() == "1";
    const std::string now = tree.Read("IN/m.EML");
    EXPECT_FALSE(tree.Exists("IN/m.HDR"));
    return p.s.subject + " | " + p.s.wait_id + " | " + (copied ? "copied" : "") + " | " +
           (now == f[0] ? "=" : now) + " | " + std::to_string(p.s.errseek) + " " +
           tree.Read("LOG/system.log");
  });
  CheckTable("find_id", [](const auto& f) {
    TempTree tree;
    if (f[0] != "-") tree.Write("IN/m.EML", f[0]);
    std::string mail = "m.EML";
    const std::string id = findid(tree.ctx, mail);
    return id + " | " + tree.Read("LOG/system.log");
  });
}

TEST(ReadHeaders, LargeMessagesAndLeftoverCopies) {
  // Only the first block loses its envelope line; bare line feeds run across blocks.
  TempTree tree;
  std::string body;
  for (int i = 0; i < 3000; ++i) body += "line " + std::to_string(i) + "\n";
  const std::string rest = "Subject: big\r\n\r\n" + body;
  tree.Write("IN/m.EML", "From a@b Mon Nov 16 09:00:00 2026\r\n" + rest);
  PassRun p(tree.ctx);
  p.s.message_file = "m.EML";
  ReadHeaders(p);
  EXPECT_EQ(tree.Read("IN/m.EML"), rest);
  EXPECT_EQ(p.s.subject, " big");
  // A header copy left by an earlier pass is not appended to.
  tree.Write("IN/m.HDR", "half of an earlier copy");
  tree.Write("IN/m.EML", "From a@b Mon Nov 16 09:00:00 2026\r\nSubject: s\r\n\r\nb\r\n");
  ForgetNameIndexes();
  ReadHeaders(p);
  EXPECT_EQ(tree.Read("IN/m.EML"), "Subject: s\r\n\r\nb\r\n");

  // One line longer than any read block, without a subject header: a subject after a line feed
  // is still found, and a subject text is kept up to its limit only.
  const std::string filler(3 << 20, 'x');
  const struct {
    std::string message, subject, wait_id;
  } cases[] = {
      {filler + "\nSubject: Re: Request-ID: 77\nmore" + filler, ": Re: Request-ID: 77", "77"},
      {"To: u\nsubject: " + filler + filler, ": " + filler.substr(0, kMaxLineText - 2), ""},
      {filler, "", ""},
  };
  for (const auto& c : cases) {
    tree.Write("IN/m.EML", c.message);
    PassRun q(tree.ctx);
    q.s.message_file = "m.EML";
    ReadHeaders(q);
    EXPECT_EQ(q.s.subject, c.subject);
    EXPECT_EQ(q.s.wait_id, c.wait_id);
  }
}

// The facts of a line do not depend on how the line arrives in pieces.
TEST(LineFacts, SameWhateverThePieces) {
  const std::string lines[] = {
      "Subject: Re: hi",
      "From a@b Mon: x",
      "x\nsubJECT: :y\nz\nSubject: w",
      "\n\nSUBJECT:",
      "a \n b:\n",
      std::string(70000, 'a') + "\nSubject: " + std::string(70000, 'b') + "\nc",
  };
  const auto show = [](const LineFacts& f) {
    return f.kept.substr(0, 20) + "|" + std::to_string(f.length) + "|" +
           std::to_string(f.first_blank) + "|" + std::to_string(f.first_colon) + "|" +
           std::to_string(f.lf_subject) + "|" + f.lf_text.substr(0, 20);
  };
  for (const std::string& line : lines) {
    LineFacts whole;
    whole.Feed(line);
    for (size_t piece : {1, 2, 3, 7, 65536}) {
      LineFacts parts;
      for (size_t at = 0; at < line.size(); at += piece) parts.Feed(line.substr(at, piece));
      EXPECT_EQ(show(parts), show(whole)) << line.substr(0, 20) << " in pieces of " << piece;
      EXPECT_EQ(parts.kept, whole.kept);
    }
  }
  LineFacts facts;
  facts.Feed("x\nsubJECT: :y\nz\nSubject: w");
  EXPECT_EQ(show(facts), "x\n|26|11|10|2|: :y");
}

TEST(NextId, DateTimeAndANumberFromOneToAThousandDrawnAgainOnlyWhenAllNineFilesExist) {
  for (uint64_t seed = 1; seed <= 50; ++seed) {
    TempTree tree;
    tree.ctx.Seed(seed);
    const std::string id = nextid(tree.ctx);
    EXPECT_TRUE(id.size() > 14 && id.size() <= 18 && id.starts_with("20261116100000") &&
                id[14] != '0' && std::stoi(id.substr(14)) <= 1000)
        << id;
  }
  // Any one of the nine missing: the candidate is taken although eight files carry it. All
  // nine, whatever their case: another is drawn.
  TempTree first;
  first.ctx.Seed(7);
  const std::string id = nextid(first.ctx);
  for (int skip = -1; skip < 9; ++skip) {
    TempTree taken;
    int n = 0;
    for (const char* folder : {"IN/", "OUT/", "LOCAL/"}) {
      for (const char* ext : {".WAI", ".eml", ".TMP"}) {
        if (n++ != skip) taken.Write(std::string(folder) + id + ext, "x");
      }
    }
    taken.ctx.Seed(7);
    const std::string again = nextid(taken.ctx);
    EXPECT_EQ(again == id, skip >= 0) << "missing file " << skip;
    EXPECT_TRUE(again.starts_with("20261116100000")) << again;
  }
}

TEST(FindId2, RemovesATrailingCarriageReturnFromTheCallersText) {
  TempTree tree;
  std::string subject = "Rq:x // Request-ID: 42\r";
  EXPECT_EQ(findid2(tree.ctx, subject) + " | " + subject, "42 | Rq:x // Request-ID: 42");
}

// What a run left besides its result: retries and error log lines, when there were any.
std::string Traces(const TempTree& t) {
  const std::string log = t.Read("LOG/system.log");
  return (t.sleeper.count() ? " | sleeps " + std::to_string(t.sleeper.count()) : "") +
         (log.empty() ? "" : " | log " + log);
}

TEST(Lists, LookupAndAdd) {
  CheckTable("list_lookup", [](const auto& f) {
    TempTree t;
    if (f[0].ends_with("/")) t.MakeFolder(f[0]);
    if (!f[0].ends_with("/") && f[0] != "-") t.Write(f[0], f[1]);
    ForgetNameIndexes();
    FaultyFileSystem fs;
    ScopedFileSystem scope(&fs);
    if (f[4] != "-") fs.FailAlways(FsOp::kOpen, EACCES, f[4]);
    const bool found = buscaenlista(t.ctx, t.Path(f[2]), f[3]);
    return (found ? "1" : "0") + Traces(t);
  });
  CheckTable("add_list_entry", [](const auto& f) {
    TempTree t;
    if (f[0] != "-") t.Write("DOMAIN.LST", f[0]);
    if (f[1] != "-") t.Write("DOMAIN.TMP", f[1]);
    ForgetNameIndexes();
    {
      FaultyFileSystem fs;
      ScopedFileSystem scope(&fs);
      if (f.size() > 3)
        fs.FailAlways(f[3] == "stat" ? FsOp::kStat : FsOp::kOpen, f[3] == "stat" ? EIO : EACCES,
                      f[4]);
      AddListEntry(t.ctx, t.Path("DOMAIN.LST"), f[2]);
    }
    EXPECT_EQ(t.List("").size(), f[1] == "-" ? 9u : 10u) << "a work file is left";
    return t.Read("DOMAIN.LST") + (f[1] == "-" ? "" : " | work file " + t.Read("DOMAIN.TMP")) +
           Traces(t);
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

TEST(Stats, Table) {
  CheckTable("stats_log", [](const auto& f) {
    TempTree t;
    t.MakeFolder("WAIT/u@y");
    t.Write("Users/alias@y.ALS", "  u@y  \r\nignored\r\n");
    if (f[0] != "-") t.Write("WAIT/u@y/stats.log", f[0]);
    ForgetNameIndexes();
    Statuslog(t.ctx, f[1], 2, ".log");
    // Texts that name no countable user write no statistics anywhere.
    EXPECT_EQ(t.List("WAIT"), std::vector<std::string>{"u@y"});
    EXPECT_EQ(t.List("").size(), 8u);
    EXPECT_EQ(t.List("Users").size(), 1u);
    return (t.Exists("WAIT/u@y/stats.log") ? t.Read("WAIT/u@y/stats.log") : "-") + " | " +
           t.Read("LOG/system.log");
  });
}

}  // namespace
}  // namespace quellor
