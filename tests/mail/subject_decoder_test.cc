#include "mail/subject_decoder.h"

#include <gtest/gtest.h>

#include <deque>
#include <string>
#include <vector>

#include "mail/base64.h"
#include "platform/errors.h"
#include "support/table.h"

namespace quellor {
namespace {

using testing::CheckTable;

class SubjectTest : public ::testing::Test {
 protected:
  SubjectTest() : clock(0, 3600), ctx("/nonexistent/", clock, sleeper) {
    clock.SetLocal(2026, 11, 16, 10, 0, 0);
  }
  FakeClock clock;
  RecordingSleeper sleeper;
  Context ctx;
};

TEST_F(SubjectTest, Tables) {
  CheckTable("decode_subject", [&](const auto& f) {
    ctx.window.List2.Clear();
    const std::string decoded = DecodeSubject(ctx, f[0]);
    return decoded + (ctx.window.List2.size() ? " (warned)" : "");
  });
  CheckTable("decode_qp", [](const auto& f) { return DecodeQP(f[0]); });
  CheckTable("hex_value", [](const auto& f) { return std::to_string(HexValue(f[0])); });
}

TEST_F(SubjectTest, WarningLineIsAppendedWithDateTimeAndSubject) {
  ctx.window.List2.Add("earlier");
  DecodeSubject(ctx, "Re: =?broken");
  EXPECT_EQ(ctx.window.List2.items(),
            (std::deque<std::string>{"earlier", "16/11/2026,10:00:00 - Re: =?broken"}));
}

// A sender can make a subject as long as the message. A megabyte of words decodes well within
// the test runner's timeout only when the work grows linearly with the subject.
TEST_F(SubjectTest, MegabyteOfWordsDecodes) {
  std::string subject;
  std::string expected;
  while (subject.size() < (1 << 20)) {
    subject += "=?x?Q?a=41?= =?x?b?SGk=?= ";
    expected += "aA Hi ";
  }
  EXPECT_EQ(DecodeSubject(ctx, subject), expected);
  std::string qp;
  std::string plain;
  while (qp.size() < (1 << 20)) {
    qp += "=41=e9";
    plain += "A=e9";
  }
  EXPECT_EQ(DecodeQP(qp), plain);
}

}  // namespace
}  // namespace quellor
