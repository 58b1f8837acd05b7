#include "platform/text.h"

#include <gtest/gtest.h>

#include <cerrno>

#include "platform/errors.h"

namespace quellor {
namespace {

TEST(TextCasing, FollowsWindows1252) {
  struct Case {
    std::string in, upper, lower;
  } cases[] = {
      {"abcXYZ09@.", "ABCXYZ09@.", "abcxyz09@."},
      {"\xE9\xE0\xFE", "\xC9\xC0\xDE", "\xE9\xE0\xFE"},  // e-acute, a-grave, thorn
      {"\x9A\x9C\x9E\xFF", "\x8A\x8C\x8E\x9F", "\x9A\x9C\x9E\xFF"},
      {"\xF7\xD7\xDF\xB5", "\xF7\xD7\xDF\xB5", "\xF7\xD7\xDF\xB5"},  // no case pairs
  };
  for (const auto& c : cases) {
    EXPECT_EQ(UCase(c.in), c.upper) << c.in;
    EXPECT_EQ(LCase(c.upper), c.lower) << c.in;
  }
}

TEST(TextTrim, RemovesBlanksOnly) {
  EXPECT_EQ(Trim("  a b  "), "a b");
  EXPECT_EQ(Trim("\ta\t"), "\ta\t");
  EXPECT_EQ(Trim("   "), "");
  EXPECT_EQ(LTrim("  a "), "a ");
  EXPECT_EQ(RTrim("  a "), "  a");
}

TEST(TextSearch, PositionsAreOneBased) {
  EXPECT_EQ(InStr("abcabc", "c"), 3u);
  EXPECT_EQ(InStr("abcabc", "c", 4), 6u);
  EXPECT_EQ(InStr("abc", "x"), 0u);
  EXPECT_EQ(InStr("abc", "", 2), 2u);
  EXPECT_EQ(InStr("abc", "a", 5), 0u);
  EXPECT_EQ(InStrNoCase("xxSubject:", "SUBJECT:"), 3u);
  EXPECT_EQ(InStrRev("abcabc", "bc"), 5u);
  EXPECT_EQ(ReplaceAll("Sent Sent sent", "Sent ", "Received "), "Received Received sent");
}

TEST(TextVal, ReadsTheLeadingNumber) {
  struct Case {
    const char* in;
    double value;
  } cases[] = {
      {"", 0},       {"abc", 0},     {"13", 13},       {"  42abc", 42},  {"-7", -7},
      {"+3", 3},     {"25.5", 25.5}, {"1 2 3", 1},     {"\t9", 0},       {"&H1F", 31},
      {"&hff", 255}, {"&O17", 15},   {"1e3", 1},       {"12.5.6", 12.5}, {".5", 0.5},
      {"- 4", 0},    {"x12", 0},     {"70000", 70000}, {"  &H10", 16},
  };
  for (const auto& c : cases) EXPECT_DOUBLE_EQ(Val(c.in), c.value) << c.in;
}

TEST(TextConversion, SixteenBitRoundsHalvesToEvenAndOverflows) {
  EXPECT_EQ(CInt16(25.5), 26);
  EXPECT_EQ(CInt16(24.5), 24);
  EXPECT_EQ(CInt16(-2.5), -2);
  EXPECT_EQ(CInt16(32767), 32767);
  EXPECT_EQ(CInt16(-32768), -32768);
  for (double v : {32767.5, 70000.0, -32769.0}) {
    try {
      CInt16(v);
      ADD_FAILURE() << v;
    } catch (const RuntimeError& e) {
      EXPECT_EQ(e.number(), kErrOverflow);
      EXPECT_EQ(e.description(), "Overflow");
    }
  }
}

TEST(TextNumbers, PlainAndSignedForms) {
  EXPECT_EQ(DecimalText(13), "13");
  EXPECT_EQ(DecimalText(0), "0");
  EXPECT_EQ(DecimalText(-2), "-2");
  EXPECT_EQ(SignedText(3), " 3");
  EXPECT_EQ(SignedText(0), " 0");
  EXPECT_EQ(SignedText(-1), "-1");
}

TEST(TextCodePage, ConvertsBetweenUtf8AndWindows1252) {
  EXPECT_EQ(Utf8ToCp1252("Caf\xC3\xA9"), "Caf\xE9");
  EXPECT_EQ(Utf8ToCp1252("\xE2\x82\xAC"), "\x80");  // euro sign
  EXPECT_EQ(Utf8ToCp1252("\xE4\xB8\xAD"), "?");     // not in the page
  EXPECT_EQ(Utf8ToCp1252("a\xFF"
                         "b"),
            "a?b");  // broken UTF-8
  EXPECT_EQ(Cp1252ToUtf8("Caf\xE9 \x80"), "Caf\xC3\xA9 \xE2\x82\xAC");
  EXPECT_EQ(ToCp1252("Caf\xE9", "iso-8859-1"), "Caf\xE9");
  EXPECT_EQ(ToCp1252("Caf\xC3\xA9", "UTF-8"), "Caf\xE9");
  EXPECT_EQ(ToCp1252("x", "no-such-charset"), "x");
}

TEST(Errors, ClassicDescriptionsAndErrnoMapping) {
  EXPECT_EQ(ErrorDescription(53), "File not found");
  EXPECT_EQ(ErrorDescription(61), "Disk full");
  EXPECT_EQ(ErrorDescription(76), "Path not found");
  EXPECT_EQ(ErrorNumberFromErrno(ENOENT), 53);
  EXPECT_EQ(ErrorNumberFromErrno(ENOSPC), 61);
  EXPECT_EQ(ErrorNumberFromErrno(EACCES), 70);
  EXPECT_EQ(ErrorNumberFromErrno(EEXIST), 58);
}

}  // namespace
}  // namespace quellor
