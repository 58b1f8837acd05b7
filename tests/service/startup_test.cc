#include "service/startup.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "platform/names.h"
#include "support/temp_tree.h"

namespace quellor {
namespace {

using testing::TempTree;

bool Contains(const std::string& text, const std::string& part) {
  return text.find(part) != std::string::npos;
}

TEST(StartupTest, MissingPiecesAreLoggedAndStartUpGoesOn) {
  const struct {
    const char* name;
    std::vector<std::string> remove;
    const char* ini;  // nullptr: no quellor.ini
    std::vector<std::string> logged;
    const char* total;
    bool visible;
    size_t postmasters;
  } cases[] = {
      {"no configuration", {}, nullptr, {" : Quellor - readini - # "}, "2", false, 0},
      {"no IN folder",
       {"IN"},
       "DEBUG=ON\r\nPOSTMASTERS=pm@x.org, root@x.org\r\n",
       {" : Quellor - Form_Load - # 76 - Path not found"},
       "0",
       true,
       2},
      {"debug off in lower case", {}, "DEBUG=off\r\n", {}, "2", true, 0},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    TempTree tree;
    tree.Write("IN/a.EML", "x");
    tree.Write("IN/b.eml", "x");
    tree.Write("IN/b.WAI", "x");
    if (c.ini) tree.Write("quellor.ini", c.ini);
    for (const std::string& r : c.remove) tree.Remove(r);
    ForgetNameIndexes();
    const std::vector<std::string> before = tree.List("");

    LoadStartup(tree.ctx);

    const std::string errors = tree.Read("LOG/system.log");
    for (const std::string& line : c.logged) EXPECT_TRUE(Contains(errors, line)) << errors;
    if (c.logged.empty()) {
      EXPECT_EQ(errors, "");
    }
    EXPECT_EQ(tree.ctx.window.total.text(), c.total);
    EXPECT_EQ(tree.ctx.window.visible, c.visible);
    EXPECT_EQ(tree.ctx.window.List1.size(), c.postmasters);
    EXPECT_EQ(tree.ctx.settings.log, "ON");
    EXPECT_EQ(tree.List(""), before);  // start-up creates no folder
  }
}

}  // namespace
}  // namespace quellor
