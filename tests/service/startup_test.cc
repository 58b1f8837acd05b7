#include "service/startup.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "platform/names.h"
#include "support/table.h"
#include "support/temp_tree.h"

namespace quellor {
namespace {

using testing::TempTree;

// Missing pieces are logged and start-up goes on; it creates no folder.
TEST(StartupTest, MissingPiecesAreLoggedAndStartUpGoesOn) {
  testing::CheckTable("startup", [](const auto& f) {
    TempTree tree;
    tree.Write("IN/a.EML", "x");
    tree.Write("IN/b.eml", "x");
    tree.Write("IN/b.WAI", "x");
    if (f[1] != "-") tree.Write("quellor.ini", f[1]);
    if (!f[0].empty()) tree.Remove(f[0]);
    ForgetNameIndexes();
    const std::vector<std::string> before = tree.List("");
    LoadStartup(tree.ctx);
    const WindowModel& w = tree.ctx.window;
    EXPECT_EQ(tree.List(""), before);
    return "total " + w.total.text() + ", visible " + std::to_string(w.visible) + ", " +
           std::to_string(w.List1.size()) + " postmasters, LOG " + tree.ctx.settings.log + "\n" +
           tree.Read("LOG/system.log");
  });
}

}  // namespace
}  // namespace quellor
