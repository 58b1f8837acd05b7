// Replies whose subject comes from the message component or from the pass's own reading of the
// raw message: encoded words, identifiers broken by blanks and tabs, folded headers and bare
// line feeds still release the held mail.

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "platform/message.h"
#include "spool/held_mail.h"
#include "spool/ids.h"
#include "spool/stages.h"

namespace quellor::testing {
namespace {

class ReplySubjectTest : public ::testing::Test {};

TEST_F(ReplySubjectTest, BothReadersYieldTheWholeIdentifier) {
  struct Case {
    const char* name;
    std::string message;
    std::string subject;  // what the pass keeps: the text right after "Subject:", blank included
    bool released;
  };
  const std::string body = "\r\n\r\nThanks.\r\n";
  const std::vector<Case> cases = {
      {"quoted-printable word, lower-case charset and encoding",
       "From: b@q.org\r\nSubject: "
       "=?utf-8?q?Re=3A_Rq=3AHello_=2F=2F_Request-ID=3A2026111609000001?=" +
           body,
       " Re: Rq:Hello // Request-ID:2026111609000001", true},
      {"quoted-printable word in a charset nobody knows",
       "From: b@q.org\r\nSubject: =?x-no-such-set?Q?Re=3A_Request-ID=3A_2026111609000001?=" + body,
       " Re: Request-ID: 2026111609000001", true},
      {"base64 word in another charset",
       "From: b@q.org\r\nSubject: "
       "=?ISO-8859-1?B?UmU6IFJxOkjpbGxvIC8vIFJlcXVlc3QtSUQ6IDIwMjYxMTE2MDkwMDAwMDE=?=" +
           body,
       " Re: Rq:H\xe9llo // Request-ID: 2026111609000001", true},
      {"identifier broken by blanks and tabs",
       "From: b@q.org\r\nSubject: Re: Rq:Hello // request-id: 2026 11160\t9000001" + body,
       " Re: Rq:Hello // request-id: 2026 11160\t9000001", true},
      {"folded over three lines",
       "From: b@q.org\r\nSubject: Re: Rq:Hello //\r\n\tRequest-ID: 20261116\r\n   09000001" + body,
       " Re: Rq:Hello //Request-ID: 2026111609000001", true},
      {"bare line feeds: the subject keeps its leading colon",
       "From: b@q.org\nSubject: Re: Rq:Hello // Request-ID:2026111609000001\n\nThanks.\n",
       ": Re: Rq:Hello // Request-ID:2026111609000001", true},
      {"letters right after the digits",
       "From: b@q.org\r\nSubject: Re: Request-ID:2026111609000001abc]" + body,
       " Re: Request-ID:2026111609000001abc]", true},
      {"a letter right after the marker: no identifier",
       "From: b@q.org\r\nSubject: Re: Request-ID: x2026111609000001" + body,
       " Re: Request-ID: x2026111609000001", false},
  };
  for (const auto& c : cases) {
    // Both readers of the pass: the subject the component gives, then the raw reading.
    for (const bool component : {true, false}) {
      SCOPED_TRACE(std::string(c.name) + (component ? " (component)" : " (raw)"));
      HeldMailTest t;
      t.Hold("u@y.org", "2026111609000001", "a@x.org", "u@y.org", "Hello");
      t.tree.Write("IN/20261116095959001.EML", c.message);
      PassRun& p = t.AtLine("b@q.org", "u@y.org", "u@y.org", "");
      p.s.message_file = "20261116095959001.EML";

      if (component) {
        ASSERT_EQ(t.tree.ctx.component().Open(t.tree.Path("IN/" + p.s.message_file)), 0);
        p.s.subject = t.tree.ctx.component().Subject();
        p.s.wait_id = findid2(t.tree.ctx, p.s.subject);
      } else {
        ReadHeaders(p);
        EXPECT_EQ(p.s.subject, c.subject);
      }
      ReplyStage(p);

      EXPECT_EQ(p.s.handled, c.released);
      EXPECT_EQ(t.Files("LOCAL", ".EML").size(), c.released ? 1u : 0u);
      EXPECT_EQ(t.tree.ctx.window.Validations.text(), c.released ? "1" : "0");
      EXPECT_EQ(t.tree.Exists("Users/u@y.org.WLT"), c.released);
      EXPECT_EQ(t.Errors(), "");
    }
  }
}

}  // namespace
}  // namespace quellor::testing
