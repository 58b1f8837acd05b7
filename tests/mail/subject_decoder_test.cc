#include "mail/subject_decoder.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "mail/base64.h"
#include "platform/errors.h"

namespace quellor {
namespace {

class SubjectTest : public ::testing::Test {
 protected:
  SubjectTest() : clock(0, 3600), ctx("/nonexistent/", clock, sleeper) {
    clock.SetLocal(2026, 11, 16, 10, 0, 0);
  }
  FakeClock clock;
  RecordingSleeper sleeper;
  Context ctx;
};

struct SubjectCase {
  const char* name;
  std::string subject;
  std::string decoded;
  bool warns;
};

class DecodeSubjectTest : public SubjectTest, public ::testing::WithParamInterface<SubjectCase> {};

TEST_P(DecodeSubjectTest, Decodes) {
  EXPECT_EQ(DecodeSubject(ctx, GetParam().subject), GetParam().decoded);
  EXPECT_EQ(ctx.window.List2.size(), GetParam().warns ? 1u : 0u);
}

INSTANTIATE_TEST_SUITE_P(
    Cases, DecodeSubjectTest,
    ::testing::Values(
        SubjectCase{"QWithUnderscore", "=?iso-8859-1?Q?Caf=E9_ok?=", "Caf\xE9 ok", false},
        SubjectCase{"LowerB", "Re: =?utf-8?b?SGVsbG8=?=", "Re: Hello", false},
        SubjectCase{"LowerQ", "=?X?q?a=41?= tail", "aA tail", false},
        SubjectCase{"BlankBetweenWordsKept", "=?x?Q?a?= =?x?Q?b?=", "a b", false},
        SubjectCase{"Plain", "Hello there", "Hello there", false},
        SubjectCase{"Broken", "=?broken", "=?broken", true},
        SubjectCase{"NoEnd", "Re: =?x?Q?abc", "Re: =?x?Q?abc", true},
        SubjectCase{"LowerHexLeft", "=?x?Q?=e9?=", "=e9", false},
        // The search restarts at the start: decoded text holding a word is decoded again.
        SubjectCase{"DecodedWordDecodedAgain", "=?x?Q?=3D=3Fy=3FQ=3Fb=3F=3D?=", "b", false},
        SubjectCase{"DecodedBWordDecodedAgain", "=?x?B?PT94P1E/YT89?=", "a", false},
        // "_" becomes a blank before the encoding is known; in B text the blank counts as "A".
        SubjectCase{"UnderscoreInBText", "=?x?B?SGVs_bG8=?=", std::string("Hel\x01\xB1\xBC", 6),
                    false},
        // A decoded "?" right after an "=" before the word makes a new word with it.
        SubjectCase{"EqualsMeetsDecodedQuestionMark", "==?c?Q?=3Fa=3FQ=3Fb=3F=3D?=", "b", false},
        // Once a word was decoded no further warning is posted for a broken rest.
        SubjectCase{"BrokenAfterDecoded", "=?x?Q?a?= =?broken", "a =?broken", false}),
    [](const auto& info) { return std::string(info.param.name); });

TEST_F(SubjectTest, WarningLineIsAppendedWithDateTimeAndSubject) {
  ctx.window.List2.Add("earlier");
  DecodeSubject(ctx, "Re: =?broken");
  EXPECT_EQ(ctx.window.List2.items(),
            (std::vector<std::string>{"earlier", "16/11/2026,10:00:00 - Re: =?broken"}));
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

TEST_F(SubjectTest, EmptyBTextRaisesToTheCaller) {
  try {
    DecodeSubject(ctx,
                  "=?x?B?"
                  "?=");  // split: no trigraph
    FAIL() << "no error";
  } catch (const RuntimeError& e) {
    EXPECT_EQ(e.number(), kErrSubscript);
  }
}

TEST(DecodeQP, UpperHexOnlyAndLenientEscapes) {
  const std::vector<std::pair<std::string, std::string>> cases = {
      {"=41=42x=E9y", "ABx\xE9y"},
      {"=4a", "=4a"},
      {"=3D41", "=41"},
      {"ab=4", "ab=4"},
      {"a=\r\nb", std::string("a\0b", 3)},  // a soft break becomes code 0
      {"=ZZ", std::string("\0", 1)},
      {"= 1", "\x01"},
      {"=\xE9\xE9", "=\xE9\xE9"},
  };
  for (const auto& [text, decoded] : cases) EXPECT_EQ(DecodeQP(text), decoded) << text;
}

TEST(HexValue, ReadsLeniently) {
  const std::vector<std::pair<std::string, int32_t>> cases = {
      {"FF", 255}, {"ff", 255}, {"0A", 10}, {"", 0},    {" A", 10}, {"\tB", 11},
      {"\nC", 12}, {"G1", 0},   {"1G", 1},  {"\r1", 0}, {"7", 7}};
  for (const auto& [text, value] : cases) EXPECT_EQ(HexValue(text), value) << text;
}

}  // namespace
}  // namespace quellor
