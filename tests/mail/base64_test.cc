#include "mail/base64.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "platform/errors.h"

namespace quellor {
namespace {

struct DecodeCase {
  const char* name;
  std::string encoded;
  std::string decoded;
};

class DecodeTest : public ::testing::TestWithParam<DecodeCase> {};

TEST_P(DecodeTest, Decodes) {
  EXPECT_EQ(Base64Class().DecodeToString(GetParam().encoded), GetParam().decoded);
}

INSTANTIATE_TEST_SUITE_P(
    Cases, DecodeTest,
    ::testing::Values(
        DecodeCase{"Padded", "SGVsbG8=", "Hello"}, DecodeCase{"Unpadded", "SGVsbG8", "Hello"},
        DecodeCase{"CrLfRemoved", "SGVs\r\nbG8=", "Hello"},
        DecodeCase{"EqualsRemovedAnywhere", "SG=Vs=bG8", "Hello"},
        // Characters outside the alphabet count as "A" and shift the grouping.
        DecodeCase{"BlankCountsAsA", "SGVs bG8=", std::string("Hel\x01\xB1\xBC", 6)},
        DecodeCase{"LoneLfCountsAsA", "SGVs\nbG8=", std::string("Hel\x01\xB1\xBC", 6)},
        DecodeCase{"LoneCrCountsAsA", "SGVs\rbG8=", std::string("Hel\x01\xB1\xBC", 6)},
        DecodeCase{"SingleLeftoverDropped", "SGVsb", "Hel"},
        DecodeCase{"LeftoverNulDroppedUnread", std::string("SGVs\0", 5), "Hel"},
        DecodeCase{"TwoLeftoverGiveOneByte", "SG", "H"},
        DecodeCase{"ThreeLeftoverGiveTwoBytes", "SGk", "Hi"},
        DecodeCase{"HighBytes", "6f8=", "\xE9\xFF"}),
    [](const auto& info) { return std::string(info.param.name); });

class DecodeErrorTest : public ::testing::TestWithParam<std::string> {};

TEST_P(DecodeErrorTest, RaisesSubscriptOutOfRange) {
  try {
    Base64Class().DecodeToString(GetParam());
    FAIL() << "no error";
  } catch (const RuntimeError& e) {
    EXPECT_EQ(e.number(), kErrSubscript);
  }
}

INSTANTIATE_TEST_SUITE_P(Cases, DecodeErrorTest,
                         ::testing::Values(std::string(""), std::string("=="),
                                           std::string("\r\n=\r\n"), std::string("S"),
                                           std::string("SGVs\0bG8=", 9)));

TEST(Base64Encode, ShortInputsArePadded) {
  Base64Class b;
  EXPECT_EQ(b.EncodeString(""), "");
  EXPECT_EQ(b.EncodeString("H"), "SA==");
  EXPECT_EQ(b.EncodeString("Hi"), "SGk=");
  EXPECT_EQ(b.EncodeString("Hello"), "SGVsbG8=");
  EXPECT_EQ(b.EncodeString("\xE9\xFF"), "6f8=");
}

TEST(Base64Encode, LinesOf76WithoutTrailingBreak) {
  Base64Class b;
  const std::string e57 = b.EncodeString(std::string(57, 'x'));
  EXPECT_EQ(e57.size(), 76u);
  EXPECT_EQ(e57.find('\r'), std::string::npos);

  const std::string e58 = b.EncodeString(std::string(58, 'x'));
  ASSERT_EQ(e58.size(), 76u + 2 + 4);
  EXPECT_EQ(e58.substr(76, 2), "\r\n");

  const std::string e114 = b.EncodeString(std::string(114, 'x'));
  ASSERT_EQ(e114.size(), 76u + 2 + 76);
  EXPECT_EQ(e114.substr(76, 2), "\r\n");
  EXPECT_NE(e114.back(), '\n');
}

TEST(Base64Encode, RoundTripsEveryByteValue) {
  Base64Class b;
  std::vector<uint8_t> all;
  for (int i = 0; i < 256; ++i) all.push_back(static_cast<uint8_t>(i));
  EXPECT_EQ(b.DecodeToByteArray(b.EncodeByteArray(all)), all);
}

}  // namespace
}  // namespace quellor
