#include "mail/quoted_printable.h"

#include <gtest/gtest.h>

#include <string>

namespace quellor {
namespace {

struct QpCase {
  const char* name;
  std::string input;
  std::string expected;
};

class EncodeQPTest : public ::testing::TestWithParam<QpCase> {};

TEST_P(EncodeQPTest, Encodes) {
  EXPECT_EQ(EncodeQP(GetParam().input), GetParam().expected);
}

const std::string k72(72, 'a');
const std::string k73(73, 'a');

INSTANTIATE_TEST_SUITE_P(
    Cases, EncodeQPTest,
    ::testing::Values(QpCase{"Empty", "", ""}, QpCase{"EqualsSign", "a=b", "a=3Db"},
                      QpCase{"Exactly73EndsWithSoftBreak", k73, k73 + "=\r\n"},
                      QpCase{"Char74AfterBreak", k73 + "b", k73 + "=\r\nb"},
                      QpCase{"TwoBreaksAt146", k73 + k73 + "c", k73 + "=\r\n" + k73 + "=\r\nc"},
                      QpCase{"BlankAt73StaysBlank", k72 + " ", k72 + " =\r\n"},
                      QpCase{"TabBeforeLineEndStays", "a\t\r\nb", "a\t\r\nb"},
                      QpCase{"HighCodesUpperHex", "\xE9\xFF\x80", "=E9=FF=80"},
                      QpCase{"Code127AndControlsCopied", "\x7F\x01?_", "\x7F\x01?_"},
                      // An escaped character counts as one input character.
                      QpCase{"EscapeAt73", k72 + "=", k72 + "=3D=\r\n"},
                      QpCase{"HighCodeAt73", k72 + "\xC4" + "b", k72 + "=C4=\r\nb"},
                      // The count runs over the whole input, input line breaks included.
                      QpCase{"CountDoesNotRestartAfterLineBreak", std::string(70, 'a') + "\r\nxyz",
                             std::string(70, 'a') + "\r\nx=\r\nyz"},
                      QpCase{"SoftBreakBetweenCrAndLf", k72 + "\r\nb", k72 + "\r=\r\n\nb"}),
    [](const auto& info) { return std::string(info.param.name); });

}  // namespace
}  // namespace quellor
