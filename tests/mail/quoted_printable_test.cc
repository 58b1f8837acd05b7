#include "mail/quoted_printable.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "support/table.h"

namespace quellor {
namespace {

TEST(EncodeQP, SoftBreaksAfter73InputCharacters) {
  EXPECT_EQ(EncodeQP(""), "");
  testing::CheckTable("encode_qp", [](const auto& f) { return EncodeQP(f[0]); });
}

}  // namespace
}  // namespace quellor
