#include "spool/header_line.h"

#include <gtest/gtest.h>

#include <string>

#include "spool/pass_run.h"
#include "spool/stages.h"
#include "support/temp_tree.h"

namespace quellor {
namespace {

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
  for (const std::string& line : lines) {
    LineFacts whole;
    whole.Feed(line);
    for (size_t piece : {1, 2, 3, 7, 65536}) {
      LineFacts parts;
      for (size_t at = 0; at < line.size(); at += piece) parts.Feed(line.substr(at, piece));
      EXPECT_EQ(parts.kept, whole.kept) << line.substr(0, 20) << " in pieces of " << piece;
      EXPECT_EQ(parts.length, line.size());
      EXPECT_EQ(parts.first_blank, whole.first_blank);
      EXPECT_EQ(parts.first_colon, whole.first_colon);
      EXPECT_EQ(parts.lf_subject, whole.lf_subject);
      EXPECT_EQ(parts.lf_text, whole.lf_text);
    }
  }
  LineFacts facts;
  facts.Feed("x\nsubJECT: :y\nz\nSubject: w");
  EXPECT_EQ(facts.kept, "x\n");
  EXPECT_EQ(facts.first_blank, 11u);
  EXPECT_EQ(facts.first_colon, 10u);
  EXPECT_EQ(facts.lf_subject, 2u);
  EXPECT_EQ(facts.lf_text, ": :y");
}

// A message of one line longer than any read block, without a subject header: its subject after
// a line feed is still found, and a subject text is kept up to its limit only.
TEST(ReadHeaders, LineLessMessages) {
  const std::string filler(3 << 20, 'x');
  const struct {
    std::string message;
    std::string subject;
    std::string wait_id;
  } cases[] = {
      {filler + "\nSubject: Re: Request-ID: 77\nmore" + filler, ": Re: Request-ID: 77", "77"},
      {"To: u\nsubject: " + filler + filler, ": " + filler.substr(0, kMaxLineText - 2), ""},
      {filler, "", ""},
  };
  for (const auto& c : cases) {
    testing::TempTree tree;
    tree.Write("IN/m.EML", c.message);
    PassRun p(tree.ctx);
    p.s.message_file = "m.EML";
    ReadHeaders(p);
    EXPECT_EQ(p.s.subject, c.subject);
    EXPECT_EQ(p.s.wait_id, c.wait_id);
  }
}

}  // namespace
}  // namespace quellor
