#include <gtest/gtest.h>

#include <string>

#include "spool/pass_run.h"
#include "spool/stages.h"
#include "support/temp_tree.h"

namespace quellor {
namespace {

using testing::TempTree;

struct RecipientCase {
  const char* line;
  const char* recipient;
  const char* user;
  const char* request;
};

TEST(ReadRecipientLine, EnvelopeForms) {
  const RecipientCase cases[] = {
      {"u@x.org", "u@x.org", "u@x.org", "u@x.org"},
      {"<u@x.org>", "u@x.org", "u@x.org", "u@x.org"},
      {"  u@x.org  ", "u@x.org", "u@x.org", "u@x.org"},
      {"u@x.org (V@Y.org)", "u@x.org", "u@x.org", "V@Y.org"},
      {"u@x.org ()", "u@x.org", "u@x.org", ""},
      {"a@b c@d", "a@b", "a@b", "a@b"},
      {"no address here", "", "", ""},
      {"alias@x.org", "alias@x.org", "box@x.org", "alias@x.org"},
  };
  for (const auto& c : cases) {
    TempTree tree;
    tree.WriteLines("Users/alias@x.org.ALS", {"  box@x.org  ", "second@x.org"});
    PassRun p(tree.ctx);
    ReadRecipientLine(p, c.line);
    EXPECT_EQ(p.s.recipient, c.recipient) << c.line;
    EXPECT_EQ(p.s.user, c.user) << c.line;
    EXPECT_EQ(p.s.request_address, c.request) << c.line;
  }
}

TEST(ReadRecipientLine, ALoneParenthesisFailsUnderTheMarkerAndKeepsTheOldRequestAddress) {
  TempTree tree;
  PassRun p(tree.ctx);
  p.s.request_address = "earlier@x.org";
  p.Mark(7);
  ReadRecipientLine(p, ")");
  EXPECT_EQ(p.s.recipient, "");
  EXPECT_EQ(p.s.request_address, "earlier@x.org");
  EXPECT_NE(
      tree.Read("LOG/system.log")
          .find(" : Quellor - quellor - errseek =7 - # 5 - Invalid procedure call or argument\r\n"),
      std::string::npos);
}

// Header reading of IN/m.EML for a pass state that knows the message file.
struct Reading {
  explicit Reading(TempTree& tree) : p(tree.ctx) { p.s.message_file = "m.EML"; }
  PassRun p;
};

TEST(ReadHeaders, LeadingEnvelopeLineIsCopiedCountedAndStripped) {
  TempTree tree;
  const std::string rest =
      "Subject: Rq:hi // Request-ID: 2026111609000001\r\nTo: u@x\r\n\r\nbody\nwith a bare LF\r\n";
  const std::string original = "From bob@y.org  Mon Nov 16 09:59:01 2026\r\n" + rest;
  tree.Write("IN/m.EML", original);
  Reading r(tree);
  ReadHeaders(r.p);
  EXPECT_EQ(tree.Read("DEBUG/m.EML"), original);
  EXPECT_EQ(tree.ctx.window.kelpo.text(), "1");
  EXPECT_EQ(tree.Read("IN/m.EML"), rest);
  EXPECT_FALSE(tree.Exists("IN/m.HDR"));
  EXPECT_EQ(r.p.s.subject, " Rq:hi // Request-ID: 2026111609000001");
  EXPECT_EQ(r.p.s.wait_id, "2026111609000001");
}

TEST(ReadHeaders, OnlyTheFirstBlockLosesALineWhenTheMessageIsLarge) {
  TempTree tree;
  std::string body;
  for (int i = 0; i < 3000; ++i)
    body += "line " + std::to_string(i) + "\n";  // bare LFs across blocks
  const std::string rest = "Subject: big\r\n\r\n" + body;
  tree.Write("IN/m.EML", "From a@b Mon Nov 16 09:00:00 2026\r\n" + rest);
  Reading r(tree);
  ReadHeaders(r.p);
  EXPECT_EQ(tree.Read("IN/m.EML"), rest);
  EXPECT_EQ(r.p.s.subject, " big");
}

TEST(ReadHeaders, LeftoverHeaderCopyIsNotAppendedTo) {
  TempTree tree;
  tree.Write("IN/m.HDR", "half of an earlier copy");
  tree.Write("IN/m.EML", "From a@b Mon Nov 16 09:00:00 2026\r\nSubject: s\r\n\r\nb\r\n");
  Reading r(tree);
  ReadHeaders(r.p);
  EXPECT_EQ(tree.Read("IN/m.EML"), "Subject: s\r\n\r\nb\r\n");
}

struct FirstLineCase {
  const char* bytes;
  bool copied;
  bool stripped;
};

TEST(ReadHeaders, FirstLineTest) {
  const FirstLineCase cases[] = {
      {"Subject: hello there\r\n\r\nb\r\n", false, false},  // colon before the first blank
      {"X-Note:words after\r\n\r\nb\r\n", false, false},
      {"hello world\r\nSubject: s\r\n\r\nb\r\n", true, false},  // no colon, a blank
      {"From: a@b\r\nSubject: s\r\n\r\nb\r\n", false, false},
      {"From a@b Mon: x\r\nSubject: s\r\n\r\nb\r\n", true, true},
      {"nocolonnoblank\r\nSubject: s\r\n", false, false},
  };
  for (const auto& c : cases) {
    TempTree tree;
    tree.Write("IN/m.EML", c.bytes);
    Reading r(tree);
    ReadHeaders(r.p);
    EXPECT_EQ(tree.Exists("DEBUG/m.EML"), c.copied) << c.bytes;
    EXPECT_EQ(tree.ctx.window.kelpo.text(), c.copied ? "1" : "0") << c.bytes;
    const std::string now = tree.Read("IN/m.EML");
    EXPECT_EQ(now != c.bytes, c.stripped) << c.bytes;
  }
}

TEST(ReadHeaders, AStripLaterInTheHeaderStillRemovesOnlyTheFirstLine) {
  // Every line read is tested for "From ", not only the first one.
  TempTree tree;
  tree.Write("IN/m.EML", "Received: x\r\nFrom someone\r\nSubject: s\r\n\r\nb\r\n");
  Reading r(tree);
  ReadHeaders(r.p);
  EXPECT_EQ(tree.Read("IN/m.EML"), "From someone\r\nSubject: s\r\n\r\nb\r\n");
  EXPECT_FALSE(tree.Exists("DEBUG/m.EML"));
}

struct SubjectCase {
  const char* name;
  const char* bytes;
  const char* subject;
  const char* id;
};

TEST(ReadHeaders, SubjectAndWaitIdentifier) {
  const SubjectCase cases[] = {
      {"plain", "To: u@x\r\nSubject: Re: Rq:x // Request-ID: 12 34\r\n\r\nb\r\n",
       " Re: Rq:x // Request-ID: 12 34", "1234"},
      {"folded with a blank",
       "Subject: Re: Rq:a long subject //\r\n  Request-ID: 42\r\nTo: u\r\n\r\n",
       " Re: Rq:a long subject //Request-ID: 42", "42"},
      {"folded with a tab", "Subject: a\r\n\tb\r\n\r\n", " ab", ""},
      {"folded over three lines",
       "Subject: Re: Rq:Hello //\r\n\tRequest-ID: 20261116\r\n   09000001\r\n\r\n",
       " Re: Rq:Hello //Request-ID: 2026111609000001", "2026111609000001"},
      {"identifier broken by blanks and tabs", "Subject: Request-ID: 2026 11160\t9000001\r\n\r\n",
       " Request-ID: 2026 11160\t9000001", "2026111609000001"},
      {"encoded words", "Subject: =?iso-8859-1?Q?caf=E9?=\r\n\r\n", " caf\xe9", ""},
      {"bare line feeds", "From: a@b\nSubject: Re: x // Request-ID: 55\nTo: c\n\nbody\n",
       ": Re: x // Request-ID: 55", "55"},
      {"no subject header", "From: a@b\r\nTo: c\r\n\r\nbody\r\n", "", ""},
      {"a subject line in the body counts", "From: a@b\r\n\r\nSubject: Request-ID: 8\r\n",
       " Request-ID: 8", "8"},
      {"only the first subject header", "Subject: first\r\nSubject: Request-ID: 3\r\n\r\n",
       " first", ""},
  };
  for (const auto& c : cases) {
    TempTree tree;
    tree.Write("IN/m.EML", c.bytes);
    Reading r(tree);
    r.p.s.wait_id = "left over";
    ReadHeaders(r.p);
    EXPECT_EQ(r.p.s.subject, c.subject) << c.name;
    EXPECT_EQ(r.p.s.wait_id, c.id) << c.name;
  }
}

TEST(ReadHeaders, MissingMessageLogsWithTheReadingMarker) {
  TempTree tree;
  Reading r(tree);
  ReadHeaders(r.p);
  EXPECT_EQ(r.p.s.subject, "");
  EXPECT_EQ(r.p.s.wait_id, "");
  EXPECT_NE(tree.Read("LOG/system.log")
                .find(" : Quellor - quellor - errseek =9 - # 52 - Bad file name or number\r\n"),
            std::string::npos);
  EXPECT_EQ(r.p.s.errseek, 12);
}

}  // namespace
}  // namespace quellor
