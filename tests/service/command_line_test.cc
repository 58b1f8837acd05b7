#include "service/command_line.h"

#include <gtest/gtest.h>

#include <optional>
#include <string>
#include <vector>

#include "service/unit_files.h"

namespace quellor {
namespace {

TEST(CommandLineTest, OnlyTheExactSwitchesAreKnown) {
  const struct {
    std::vector<std::string> args;
    RunMode mode;
  } cases[] = {
      {{}, RunMode::kService},
      {{"-install"}, RunMode::kInstall},
      {{"-uninstall"}, RunMode::kUninstall},
      {{"-debug"}, RunMode::kDebug},
      {{"-INSTALL"}, RunMode::kInvalid},
      {{"-Debug"}, RunMode::kInvalid},
      {{"debug"}, RunMode::kInvalid},
      {{"-debug "}, RunMode::kInvalid},
      {{"-debug", "-install"}, RunMode::kInvalid},
      {{"--help"}, RunMode::kInvalid},
  };
  for (const auto& c : cases) {
    EXPECT_EQ(ParseCommandLine(c.args), c.mode) << ::testing::PrintToString(c.args);
  }
}

TEST(UnitFilesTest, UnusualPathsAreQuotedOrRefused) {
  const struct {
    std::string root, program;
    const char* environment;  // nullptr: refused
    const char* exec;
  } cases[] = {
      {"/srv/my mail/100%\"\\/", "/opt/$q b/quellor",
       "Environment=\"QUELLOR_ROOT=/srv/my mail/100%%\\\"\\\\/\"\n",
       "ExecStart=\"/opt/$q b/quellor\"\n"},
      {"/srv/q/\nExecStartPre=/bin/evil/", "/usr/bin/quellor", nullptr, nullptr},
      {"/srv/q/", "quellor", nullptr, nullptr},
  };
  for (const auto& c : cases) {
    const std::optional<std::string> text = UnitText(c.root, c.program);
    ASSERT_EQ(text.has_value(), c.environment != nullptr) << c.root << c.program;
    if (!text) continue;
    EXPECT_NE(text->find(c.environment), std::string::npos) << *text;
    EXPECT_NE(text->find(c.exec), std::string::npos) << *text;
  }
}

}  // namespace
}  // namespace quellor
