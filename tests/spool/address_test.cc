#include "spool/address.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "platform/errors.h"
#include "platform/names.h"
#include "support/table.h"
#include "support/temp_tree.h"

namespace quellor {
namespace {

using testing::CheckTable;
using testing::TempTree;

TEST(IsAddressChar, PrintableAsciiWithoutTheSeparators) {
  std::string accepted, rejected;
  for (int c = 0; c < 256; ++c) {
    (IsAddressChar(static_cast<char>(c)) ? accepted : rejected) += static_cast<char>(c);
  }
  std::string expected;
  for (int c = 33; c <= 126; ++c) {
    if (std::string_view("?|()\\/,;:<>[]\"").find(static_cast<char>(c)) == std::string::npos) {
      expected += static_cast<char>(c);
    }
  }
  EXPECT_EQ(accepted, expected);
  EXPECT_FALSE(IsAddressChar(std::string_view("")));
}

TEST(AddressTables, ExtractReplaceAndValueAfter) {
  CheckTable("extract_address", [](const auto& f) { return ExtractAddress(f[0], f[1]); });
  CheckTable("replace_no_case", [](const auto& f) { return ReplaceNoCase(f[0], f[1], f[2]); });
  CheckTable("value_after", [](const auto& f) { return ValueAfter(f[0], f[1], f[2]); });
}

class ResolveAliasTest : public ::testing::Test {
 protected:
  void Write(std::string_view relative, std::string_view bytes) {
    t.Write(relative, bytes);
    ForgetNameIndexes();
  }
  TempTree t;
};

TEST_F(ResolveAliasTest, FirstLineOfTheAliasFileTrimmed) {
  struct Case {
    const char* content;
    const char* want;
  } cases[] = {
      {"  real@x.org  \r\nother@x.org\r\n", "real@x.org"},
      {"real@x.org", "real@x.org"},
      {"\r\nreal@x.org\r\n", ""},
      {"   \r\n", ""},
      {"\treal@x.org\r\n", "\treal@x.org"},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.content);
    Write("Users/alias@x.org.ALS", c.content);
    EXPECT_EQ(ResolveAlias(t.ctx, "alias@x.org"), c.want);
  }
  EXPECT_FALSE(t.Exists("LOG/system.log"));
  EXPECT_EQ(t.sleeper.count(), 0);
}

TEST_F(ResolveAliasTest, WithoutAliasFileTheAddressStays) {
  Write("Users/.hidden@x.org.ALS", "real@x.org\r\n");
  Write("Users/u@x.org.CONF", "");
  Write("real.ALS", "escaped\r\n");
  for (const char* address : {"u@x.org", "", ".hidden@x.org", "../real", "..", "a/b"}) {
    SCOPED_TRACE(address);
    EXPECT_EQ(ResolveAlias(t.ctx, address), address);
  }
  EXPECT_EQ(t.sleeper.count(), 0);
  EXPECT_FALSE(t.Exists("LOG/system.log"));
}

TEST_F(ResolveAliasTest, EmptyAliasFileIsLoggedAndGivesTheEmptyName) {
  Write("Users/alias@x.org.ALS", "");
  EXPECT_EQ(ResolveAlias(t.ctx, "alias@x.org"), "");
  EXPECT_EQ(
      t.ReadLines("LOG/system.log"),
      std::vector<std::string>{"16/11/2026 10:00:00 :  - Alias - # 62 - Input past end of file"});
}

}  // namespace
}  // namespace quellor
