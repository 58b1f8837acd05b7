#include "mail/base64.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "platform/errors.h"
#include "support/table.h"

namespace quellor {
namespace {

TEST(Base64Decode, QuirksOfTheAlphabetAndLeftovers) {
  testing::CheckTable("base64_decode",
                      [](const auto& f) { return Base64Class().DecodeToString(f[0]); });
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
