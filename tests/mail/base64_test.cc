#include "mail/base64.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "platform/errors.h"

namespace quellor {
namespace {

TEST(Base64Decode, QuirksOfTheAlphabetAndLeftovers) {
  const std::vector<std::pair<std::string, std::string>> cases = {
      {"SGVsbG8=", "Hello"},
      {"SGVs\r\nbG8", "Hello"},  // CR LF removed, padding optional
      {"SG=Vs=bG8", "Hello"},    // "=" removed anywhere
      // Characters outside the alphabet count as "A" and shift the grouping.
      {"SGVs bG8=", std::string("Hel\x01\xB1\xBC", 6)},
      {"SGVs\nbG8=", std::string("Hel\x01\xB1\xBC", 6)},
      {"SGVsb", "Hel"},  // a single leftover is dropped
      {std::string("SGVs\0", 5), "Hel"},
      {"SGk", "Hi"},
      {"6f8=", "\xE9\xFF"},
  };
  for (const auto& [encoded, decoded] : cases) {
    EXPECT_EQ(Base64Class().DecodeToString(encoded), decoded) << encoded;
  }
  for (const std::string& bad : {std::string(""), std::string("\r\n=\r\n"), std::string("S"),
                                 std::string("SGVs\0bG8=", 9)}) {
    try {
      Base64Class().DecodeToString(bad);
      ADD_FAILURE() << "no error for " << bad;
    } catch (const RuntimeError& e) {
      EXPECT_EQ(e.number(), kErrSubscript);
    }
  }
}

TEST(Base64Encode, PaddedLinesOf76WithoutTrailingBreak) {
  Base64Class b;
  EXPECT_EQ(b.EncodeString("H") + b.EncodeString("Hi") + b.EncodeString("\xE9\xFF"),
            "SA==SGk=6f8=");
  EXPECT_EQ(b.EncodeString(std::string(57, 'x')).size(), 76u);
  const std::string e114 = b.EncodeString(std::string(114, 'x'));
  ASSERT_EQ(e114.size(), 76u + 2 + 76);
  EXPECT_EQ(e114.substr(76, 2), "\r\n");
  std::vector<uint8_t> all;
  for (int i = 0; i < 256; ++i) all.push_back(static_cast<uint8_t>(i));
  EXPECT_EQ(b.DecodeToByteArray(b.EncodeByteArray(all)), all);
}

}  // namespace
}  // namespace quellor
