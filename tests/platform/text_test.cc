#include "platform/text.h"

#include <gtest/gtest.h>

#include <cerrno>

#include "platform/errors.h"

namespace quellor {
namespace {

TEST(TextCasing, FollowsWindows1252) {
  struct Case {
    std::string in, upper;
  } cases[] = {
      {"abcxyz09@.", "ABCXYZ09@."},
      {"\xE9\xE0\xFE\x9A\x9C\x9E\xFF", "\xC9\xC0\xDE\x8A\x8C\x8E\x9F"},
      {"\xF7\xD7\xDF\xB5", "\xF7\xD7\xDF\xB5"},  // no case pairs
  };
  for (const auto& c : cases) {
    EXPECT_EQ(UCase(c.in), c.upper) << c.in;
    EXPECT_EQ(LCase(c.upper), c.in) << c.in;
  }
}

TEST(TextSearch, TrimAndOneBasedPositions) {
  EXPECT_EQ(Trim("  a b  ") + "|" + Trim("\ta\t") + "|" + LTrim(" a ") + "|" + RTrim(" a "),
            "a b|\ta\t|a | a");
  EXPECT_EQ(InStr("abcabc", "c", 4), 6u);
  EXPECT_EQ(InStr("abc", "x"), 0u);
  EXPECT_EQ(InStr("abc", "", 2), 2u);
  EXPECT_EQ(InStr("abc", "a", 5), 0u);
  EXPECT_EQ(InStrNoCase("xxSubject:", "SUBJECT:"), 3u);
  EXPECT_EQ(InStrRev("abcabc", "bc"), 5u);
  EXPECT_EQ(ReplaceAll("Sent Sent sent", "Sent ", "Received "), "Received Received sent");
}

TEST(TextNumbers, ValCIntAndTexts) {
  struct Case {
    const char* in;
    double value;
  } cases[] = {
      {"", 0},     {"  42abc", 42}, {"-7", -7},   {"25.5", 25.5}, {"1 2 3", 1},
      {"\t9", 0},  {"&H1F", 31},    {"&O17", 15}, {"1e3", 1},     {"12.5.6", 12.5},
      {".5", 0.5}, {"- 4", 0},      {"x12", 0},
  };
  for (const auto& c : cases) EXPECT_DOUBLE_EQ(Val(c.in), c.value) << c.in;
  // Halves go to the even neighbour; outside 16 bits is an overflow.
  EXPECT_EQ(CInt16(25.5), 26);
  EXPECT_EQ(CInt16(-2.5), -2);
  EXPECT_EQ(CInt16(-32768), -32768);
  for (double v : {32767.5, -32769.0}) {
    try {
      CInt16(v);
      ADD_FAILURE() << v;
    } catch (const RuntimeError& e) {
      EXPECT_EQ(e.number(), kErrOverflow);
      EXPECT_EQ(e.description(), "Overflow");
    }
  }
  EXPECT_EQ(DecimalText(-2) + "|" + SignedText(3) + "|" + SignedText(-1), "-2| 3|-1");
}

TEST(TextCodePage, ConvertsBetweenUtf8AndWindows1252) {
  EXPECT_EQ(Utf8ToCp1252("Caf\xC3\xA9 \xE2\x82\xAC"), "Caf\xE9 \x80");
  EXPECT_EQ(Utf8ToCp1252("\xE4\xB8\xAD a\xFF"), "? a?");  // not in the page, broken UTF-8
  EXPECT_EQ(Cp1252ToUtf8("Caf\xE9 \x80"), "Caf\xC3\xA9 \xE2\x82\xAC");
  EXPECT_EQ(ToCp1252("Caf\xE9", "iso-8859-1"), "Caf\xE9");
  EXPECT_EQ(ToCp1252("x", "no-such-charset"), "x");
}

TEST(Errors, ClassicDescriptionsAndErrnoMapping) {
  EXPECT_EQ(ErrorDescription(76), "Path not found");
  EXPECT_EQ(ErrorNumberFromErrno(ENOSPC), 61);
  EXPECT_EQ(ErrorNumberFromErrno(EACCES), 70);
  EXPECT_EQ(ErrorNumberFromErrno(EEXIST), 58);
}

}  // namespace
}  // namespace quellor
