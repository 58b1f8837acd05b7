#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "platform/names.h"
#include "spool/pass_run.h"
#include "spool/stages.h"
#include "support/temp_tree.h"

namespace quellor {
namespace {

using testing::TempTree;

const std::string kBoundary = "------=_NextPart_000_00E3_01C46421.ABF009F0";

class ComposerTest : public ::testing::Test {
 protected:
  ComposerTest() : p(t.ctx) {
    p.s.request_address = "bob@example.org";
    p.s.sender = "alice@remote.net";
    p.s.recipient = "bob@example.org";
    p.s.subject = "Hello";
    p.s.wait_id = "20261116095500412";
    p.s.user = "bob@example.org";
  }

  // Composes one request and returns the stem of the pair it left in OUT/.
  std::string Compose() {
    ComposeRequest(p);
    const std::vector<std::string> files = t.List("OUT");
    EXPECT_EQ(files.size(), 2u);
    std::string stem;
    for (const auto& f : files) {
      if (f.size() > 4 && f.substr(f.size() - 4) == ".EML") stem = f.substr(0, f.size() - 4);
    }
    EXPECT_FALSE(stem.empty()) << "no .EML in OUT";
    EXPECT_TRUE(t.Exists("OUT/" + stem + ".WAI"));
    return stem;
  }

  std::vector<std::string> Message(const std::string& stem) {
    return t.ReadLines("OUT/" + stem + ".EML");
  }

  // The header and part header as written for the fixture's values.
  std::vector<std::string> Head(const std::string& subject_line) const {
    return {"From: bob@example.org",
            "To: alice@remote.net",
            subject_line,
            "Date: Mon, 16 Nov 2026 10:00:00 +0100",
            "MIME-Version: 1.0",
            "Content-Type: multipart/alternative;",
            "    boundary = \"----=_NextPart_000_00E3_01C46421.ABF009F0\"",
            "X-Priority: 3",
            "",
            "This is a multi-part message in MIME format.",
            "",
            kBoundary,
            "Content-Type: text/plain;",
            "    Charset = \"iso-8859-1\"",
            "Content-Transfer-Encoding: quoted-printable",
            ""};
  }

  static std::vector<std::string> HtmlHead() {
    return {kBoundary,
            "Content-Type: text/html;",
            "    Charset = \"iso-8859-1\"",
            "Content-Transfer-Encoding: quoted-printable",
            "",
            "<!DOCTYPE HTML PUBLIC \"-//W3C//DTD HTML 4.0 Transitional//EN\">",
            "<HTML>"};
  }

  static std::vector<std::string> Tail() { return {"</HTML>", "", kBoundary + "--", "", "."}; }

  static std::vector<std::string> Join(std::initializer_list<std::vector<std::string>> parts) {
    std::vector<std::string> all;
    for (const auto& part : parts) all.insert(all.end(), part.begin(), part.end());
    return all;
  }

  TempTree t;
  PassRun p;
};

TEST_F(ComposerTest, DefaultTemplatesGiveTheExactMessage) {
  t.WriteLines("SYSTEM/validation.txt", {"Dear sender,", "reply to reach $EMAIL = me."});
  t.WriteLines("SYSTEM/validation.htm", {"<p>Reply to $email</p>"});
  t.WriteLines("SYSTEM/validation_foot.txt", {"unused footer"});
  const std::string stem = Compose();

  EXPECT_EQ(t.Read("OUT/" + stem + ".WAI"), "bob@example.org\r\nalice@remote.net\r\n");
  std::string bytes;
  for (const auto& line : Join({Head("Subject: Rq:Hello // Request-ID:20261116095500412"),
                                {"Dear sender,", "reply to reach bob@example.org =3D me."},
                                HtmlHead(),
                                {"<p>Reply to bob@example.org</p>"},
                                Tail()})) {
    bytes += line + "\r\n";
  }
  EXPECT_EQ(t.Read("OUT/" + stem + ".EML"), bytes);
  EXPECT_EQ(stem.substr(0, 14), "20261116100000");
  EXPECT_EQ(p.s.errseek, 30);
}

TEST_F(ComposerTest, EveryTemplateLineIsEncodedOnItsOwn) {
  const std::string l73(73, 'x');
  t.WriteLines("SYSTEM/validation.txt", {l73, "caf\xE9", std::string(74, 'y')});
  t.WriteLines("SYSTEM/validation.htm", {"<b>" + std::string(70, 'z') + "</b>"});
  const std::string stem = Compose();
  EXPECT_EQ(Message(stem), Join({Head("Subject: Rq:Hello // Request-ID:20261116095500412"),
                                 {l73 + "=", "", "caf=E9", std::string(73, 'y') + "=", "y"},
                                 HtmlHead(),
                                 {"<b>" + std::string(70, 'z') + "=", "</b>"},
                                 Tail()}));
}

TEST_F(ComposerTest, PerUserTextWithFootersReplacesTheDefaults) {
  t.WriteLines("Bob@Example.org.MSG", {"two words", "$email"});
  t.WriteLines("SYSTEM/validation.txt", {"default text"});
  t.WriteLines("SYSTEM/validation.htm", {"<p>default</p>"});
  t.WriteLines("SYSTEM/validation_foot.txt", {"-- the foot"});
  t.WriteLines("SYSTEM/validation_foot.htm", {"<i>the foot</i>"});
  const std::string stem = Compose();
  EXPECT_EQ(Message(stem), Join({Head("Subject: Rq:Hello // Request-ID:20261116095500412"),
                                 {"two words", "$email", "-- the foot"},
                                 HtmlHead(),
                                 {"two&nbsp;words<br>", "$email<br>", "<i>the foot</i>"},
                                 Tail()}));
}

TEST_F(ComposerTest, EmptySubjectKeepsTheMarker) {
  p.s.subject = "";
  const std::string stem = Compose();
  EXPECT_EQ(Message(stem).at(2), "Subject: Rq: // Request-ID:20261116095500412");
}

TEST_F(ComposerTest, LineBreaksInValuesCannotAddLines) {
  p.s.subject = "Hi\r\nBcc: victim@x.org";
  p.s.sender = "alice@remote.net\r\nevil@x.org";
  p.s.recipient = "bob@example.org\nmore@x.org";
  p.s.request_address = "bob@example.org\rX-Evil: 1";
  const std::string stem = Compose();
  EXPECT_EQ(t.Read("OUT/" + stem + ".WAI"),
            "bob@example.org more@x.org\r\nalice@remote.net  evil@x.org\r\n");
  const std::vector<std::string> lines = Message(stem);
  ASSERT_GE(lines.size(), 4u);
  EXPECT_EQ(lines[0], "From: bob@example.org X-Evil: 1");
  EXPECT_EQ(lines[1], "To: alice@remote.net  evil@x.org");
  EXPECT_EQ(lines[2], "Subject: Rq:Hi  Bcc: victim@x.org // Request-ID:20261116095500412");
  EXPECT_EQ(lines[3].substr(0, 6), "Date: ");
}

TEST_F(ComposerTest, MissingTemplatesStillCompleteTheRequest) {
  const std::string stem = Compose();
  EXPECT_EQ(Message(stem),
            Join({Head("Subject: Rq:Hello // Request-ID:20261116095500412"), HtmlHead(), Tail()}));
  const std::string errors = t.Read("LOG/system.log");
  EXPECT_NE(errors.find("errseek =28"), std::string::npos) << errors;
  EXPECT_NE(errors.find("errseek =29"), std::string::npos) << errors;
}

// A mailbox name that could leave the root never selects a per-user text.
TEST_F(ComposerTest, UnsafeMailboxNamesHaveNoPerUserText) {
  t.WriteLines("SYSTEM/validation.txt", {"default"});
  t.WriteLines("..msg", {"dot"});
  t.WriteLines("...msg", {"dotdot"});
  t.WriteLines("a/b.msg", {"nested"});
  for (const std::string user : {".", "..", "a/b", ""}) {
    SCOPED_TRACE(user);
    for (const auto& f : t.List("OUT")) t.Remove("OUT/" + f);
    ForgetNameIndexes();
    p.s.user = user;
    const std::string stem = Compose();
    EXPECT_EQ(Message(stem).at(16), "default");
  }
}

}  // namespace
}  // namespace quellor
