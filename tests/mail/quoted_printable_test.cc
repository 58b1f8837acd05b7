#include "mail/quoted_printable.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace quellor {
namespace {

TEST(EncodeQP, SoftBreaksAfter73InputCharacters) {
  const std::string a72(72, 'a'), a73(73, 'a');
  const std::vector<std::pair<std::string, std::string>> cases = {
      {"", ""},
      {"a=b\t\r\n\x7F\x01?_", "a=3Db\t\r\n\x7F\x01?_"},
      {"\xE9\xFF\x80", "=E9=FF=80"},
      {a73, a73 + "=\r\n"},
      {a73 + a73 + "c", a73 + "=\r\n" + a73 + "=\r\nc"},
      {a72 + " ", a72 + " =\r\n"},
      // An escaped character counts as one input character.
      {a72 + "\xC4" + "b", a72 + "=C4=\r\nb"},
      // The count runs over the whole input, input line breaks included.
      {std::string(70, 'a') + "\r\nxyz", std::string(70, 'a') + "\r\nx=\r\nyz"},
      {a72 + "\r\nb", a72 + "\r=\r\n\nb"},
  };
  for (const auto& [input, expected] : cases) EXPECT_EQ(EncodeQP(input), expected) << input;
}

}  // namespace
}  // namespace quellor
