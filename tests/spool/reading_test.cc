#include <gtest/gtest.h>

#include <string>

#include "spool/pass_run.h"
#include "spool/stages.h"
#include "support/table.h"
#include "support/temp_tree.h"

namespace quellor {
namespace {

using testing::CheckTable;
using testing::TempTree;

TEST(ReadRecipientLine, EnvelopeForms) {
  CheckTable("recipient_line", [](const auto& f) {
    TempTree tree;
    tree.WriteLines("Users/alias@x.org.ALS", {"  box@x.org  ", "second@x.org"});
    PassRun p(tree.ctx);
    ReadRecipientLine(p, f[0]);
    return p.s.recipient + " | " + p.s.user + " | " + p.s.request_address;
  });
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

TEST(ReadHeaders, EnvelopeLineSubjectAndWaitIdentifier) {
  CheckTable("read_headers", [](const auto& f) {
    TempTree tree;
    tree.Write("IN/m.EML", f[0]);
    Reading r(tree);
    r.p.s.wait_id = "left over";
    ReadHeaders(r.p);
    const bool copied = tree.Read("DEBUG/m.EML") == f[0] && tree.ctx.window.kelpo.text() == "1";
    const std::string now = tree.Read("IN/m.EML");
    EXPECT_FALSE(tree.Exists("IN/m.HDR"));
    return r.p.s.subject + " | " + r.p.s.wait_id + " | " + (copied ? "copied" : "") + " | " +
           (now == f[0] ? "=" : now);
  });
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
