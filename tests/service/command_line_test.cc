#include "service/command_line.h"

#include <gtest/gtest.h>

#include <fstream>
#include <iterator>
#include <optional>
#include <string>
#include <vector>

#include "bridge/units.h"
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
    const char* writable;
  } cases[] = {
      {"/srv/my mail/100%\"\\/", "/opt/$q b/quellor",
       "Environment=\"QUELLOR_ROOT=/srv/my mail/100%%\\\"\\\\/\"\n",
       "ExecStart=\"/opt/$q b/quellor\"\n", "ReadWritePaths=\"-/srv/my mail/100%%\\\"\\\\/\"\n"},
      // systemd runs the service in "/", so that is where a relative root lies.
      {"demo/", "/usr/bin/quellor", "Environment=QUELLOR_ROOT=demo/\n",
       "ExecStart=/usr/bin/quellor\n", "ReadWritePaths=-/demo/\n"},
      {"/srv/q/\nExecStartPre=/bin/evil/", "/usr/bin/quellor", nullptr, nullptr, nullptr},
      {"/srv/q/", "quellor", nullptr, nullptr, nullptr},
  };
  for (const auto& c : cases) {
    const std::optional<std::string> text = UnitText(c.root, c.program);
    ASSERT_EQ(text.has_value(), c.environment != nullptr) << c.root << c.program;
    if (!text) continue;
    EXPECT_NE(text->find(c.environment), std::string::npos) << *text;
    EXPECT_NE(text->find(c.exec), std::string::npos) << *text;
    EXPECT_NE(text->find(c.writable), std::string::npos) << *text;
    EXPECT_EQ(text->find("User="), std::string::npos) << *text;
  }
}

std::string ReadFile(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
}

// The units the package ships are what "-install" and "quellorctl postfix install" write for
// the package's paths.
TEST(UnitFilesTest, PackagedUnitsCarryTheWrittenConfinement) {
  const std::string dir = QUELLOR_SOURCE_DIR "/packaging/systemd/";
  const std::string root = "/var/spool/quellor/";
  EXPECT_EQ(ReadFile(dir + "Quellor_Quellor.service"),
            UnitText(root, "/usr/sbin/quellor", kServiceUser));
  EXPECT_EQ(ReadFile(dir + "Quellor_Dregger.service"),
            bridge::DreggerUnitText({root, "/usr/bin/quellor-dregger", "", "", ""}));
}

}  // namespace
}  // namespace quellor
