// Mail encodings and dates: decoding subjects, quoted-printable and base64, and the Date header.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "mail/base64.h"
#include "mail/email_date.h"
#include "mail/quoted_printable.h"
#include "mail/subject_decoder.h"
#include "support/table.h"

namespace quellor {
namespace {

using testing::CheckTable;

class MailTest : public ::testing::Test {
 protected:
  MailTest() { clock.SetLocal(2026, 11, 16, 10, 0, 0); }
  FakeClock clock{0, 3600};
  RecordingSleeper sleeper;
  Context ctx{"/nonexistent/", clock, sleeper};
};

TEST_F(MailTest, Tables) {
  CheckTable("decode_subject", [&](const auto& f) {
    ctx.window.List2.Clear();
    ctx.window.List2.Add("earlier");
    std::string decoded = DecodeSubject(ctx, f[0]);
    for (size_t i = 1; i < ctx.window.List2.size(); ++i) decoded += " | " + ctx.window.List2.At(i);
    return decoded;
  });
  CheckTable("decode_qp", [](const auto& f) { return DecodeQP(f[0]); });
  CheckTable("hex_value", [](const auto& f) { return std::to_string(HexValue(f[0])); });
  CheckTable("encode_qp", [](const auto& f) { return EncodeQP(f[0]); });
  CheckTable("base64_decode", [](const auto& f) { return Base64Class().DecodeToString(f[0]); });
  CheckTable("base64_encode", [](const auto& f) { return Base64Class().EncodeString(f[0]); });
  CheckTable("time_zone", [&](const auto& f) {
    clock.SetOffset(std::stol(f[0]));
    return TimeZone(ctx);
  });
}

// A sender can make a subject as long as the message. A megabyte of words decodes well within
// the test runner's timeout only when the work grows linearly with the subject.
TEST_F(MailTest, MegabyteOfWordsDecodes) {
  std::string subject, expected, qp, plain;
  while (subject.size() < (1 << 20)) {
    subject += "=?x?Q?a=41?= =?x?b?SGk=?= ";
    expected += "aA Hi ";
  }
  EXPECT_EQ(DecodeSubject(ctx, subject), expected);
  while (qp.size() < (1 << 20)) {
    qp += "=41=e9";
    plain += "A=e9";
  }
  EXPECT_EQ(DecodeQP(qp), plain);
}

TEST_F(MailTest, DateHasFixedNamesAndTheZoneRoundedToHours) {
  clock.SetLocal(2026, 3, 1, 9, 5, 7);
  EXPECT_EQ(EmailDate(ctx, clock.Now()), "Sun, 01 Mar 2026 09:05:07 +0100");
  clock.SetOffset(-1800);
  clock.SetLocal(2026, 12, 31, 23, 59, 59);
  EXPECT_EQ(EmailDate(ctx, clock.Now()), "Thu, 31 Dec 2026 23:59:59 +0000");
}

TEST(Base64Encode, EveryByteComesBack) {
  Base64Class b;
  std::vector<uint8_t> all;
  for (int i = 0; i < 256; ++i) all.push_back(static_cast<uint8_t>(i));
  EXPECT_EQ(b.DecodeToByteArray(b.EncodeByteArray(all)), all);
}

// A zone with daylight time: +02:00 from the moment `summer_` on, +01:00 before.
class SeasonalClock : public Clock {
 public:
  SeasonalClock(std::time_t now, std::time_t summer) : now_(now), summer_(summer) {}
  std::time_t Now() const override { return now_; }
  long UtcOffset(std::time_t t) const override { return t >= summer_ ? 7200 : 3600; }
  LocalTime ToLocal(std::time_t t) const override { return FakeClock(0, UtcOffset(t)).ToLocal(t); }

 private:
  std::time_t now_;
  std::time_t summer_;
};

TEST(EmailDate, OffsetIsThatOfThePresentMoment) {
  FakeClock probe(0, 0);
  probe.SetLocal(2026, 3, 29, 1, 0, 0);
  const std::time_t summer = probe.Now();
  probe.SetLocal(2026, 7, 1, 12, 0, 0);
  SeasonalClock clock(probe.Now(), summer);
  RecordingSleeper sleeper;
  Context ctx("/nonexistent/", clock, sleeper);
  probe.SetLocal(2026, 1, 15, 7, 0, 0);  // winter, seen in Greenwich time
  EXPECT_EQ(EmailDate(ctx, probe.Now()), "Thu, 15 Jan 2026 08:00:00 +0200");
}

}  // namespace
}  // namespace quellor
