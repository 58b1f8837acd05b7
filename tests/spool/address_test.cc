#include "spool/address.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "platform/errors.h"
#include "platform/names.h"
#include "support/temp_tree.h"

namespace quellor {
namespace {

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

TEST(ExtractAddress, LongestRunAroundTheFirstMark) {
  struct Case {
    std::string text, mark, want;
  } cases[] = {
      {"<a@b>", "@", "a@b"},
      {"a@b", "@", "a@b"},
      {"Bob <bob.x+tag@mail.example.org> (x)", "@", "bob.x+tag@mail.example.org"},
      {"a@b, c@d", "@", "a@b"},
      {"no address here", "@", ""},
      {"", "@", ""},
      {"@", "@", "@"},
      {"x\ty@z w", "@", "y@z"},
      {"\"quoted\"@x;", "@", "@x"},
      {"[1.2.3.4]@x", "@", "@x"},
      {"list: *.z.y, a@b", "*", "*.z.y"},
      {"a:b", ":", ""},  // a mark that is no address character gives nothing
      {"ab\xE9@x", "@", "@x"},
  };
  for (const Case& c : cases) {
    EXPECT_EQ(ExtractAddress(c.text, c.mark), c.want) << c.text;
  }
}

TEST(ReplaceNoCase, EveryOccurrenceWithoutRegardToCase) {
  struct Case {
    std::string text, find, replacement, want;
  } cases[] = {
      {"aXa", "x", "xx", "axxa"},  // the inserted text is not searched again
      {"xxx", "x", "xx", "xxxxxx"}, {"Request-ID: 1 request-id: 2", "REQUEST-ID:", "#", "# 1 # 2"},
      {"abc", "d", "e", "abc"},     {"abc", "", "e", "abc"},
      {"aaaa", "aa", "b", "bb"},    {"Caf\xC9 caf\xE9", "CAF\xC9", "x", "x x"},
      {"tail x", "X", "", "tail "},
  };
  for (const Case& c : cases) {
    EXPECT_EQ(ReplaceNoCase(c.text, c.find, c.replacement), c.want) << c.text;
  }
}

TEST(ValueAfter, TrimmedTextUpToTheTerminator) {
  EXPECT_EQ(ValueAfter("REQUEST-ID:", "Re: x request-id:  42 \r", "\r"), "42");
  EXPECT_EQ(ValueAfter("KEY:", "key:Mixed Case\r more\r", "\r"), "Mixed Case");
  EXPECT_EQ(ValueAfter("KEY:", "nothing\r", "\r"), "");
  EXPECT_EQ(ValueAfter("KEY:", "KEY:\r", "\r"), "");
  // The terminator is searched only after the key.
  EXPECT_EQ(ValueAfter("B:", "\rB: v\r", "\r"), "v");
  try {
    ValueAfter("KEY:", "\rKEY: no end", "\r");
    ADD_FAILURE() << "a missing terminator must fail";
  } catch (const RuntimeError& e) {
    EXPECT_EQ(e.number(), kErrInvalidCall);
  }
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
