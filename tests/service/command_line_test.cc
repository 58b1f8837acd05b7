#include "service/command_line.h"

#include <gtest/gtest.h>

#include <optional>
#include <sstream>
#include <string>
#include <vector>

#include "bridge/units.h"
#include "service/unit_files.h"
#include "support/process.h"
#include "support/table.h"

namespace quellor {
namespace {

TEST(CommandLineTest, OnlyTheExactSwitchesAreKnownAndUnusualPathsAreQuotedOrRefused) {
  testing::CheckTable("command_line", [](const auto& f) {
    static const char* const kModes[] = {"service", "debug", "install", "uninstall", "invalid"};
    std::vector<std::string> args(f.begin(), f.end());
    if (args.size() == 1 && args[0].empty()) args.clear();
    return kModes[static_cast<int>(ParseCommandLine(args))];
  });
  testing::CheckTable("unit_text", [](const auto& f) {
    const std::optional<std::string> text = UnitText(f[0], f[1]);
    if (!text) return std::string("refused");
    std::istringstream lines(*text);
    std::string out;
    for (std::string line; std::getline(lines, line);) {
      for (const char* key : {"Environment=", "ExecStart=", "ReadWritePaths=", "User="})
        if (line.starts_with(key)) out += line + "\n";
    }
    return out;
  });
}

// The units the package ships are what "-install" and "quellorctl postfix install" write for
// the package's paths.
TEST(UnitFilesTest, PackagedUnitsCarryTheWrittenConfinement) {
  const std::string dir = QUELLOR_SOURCE_DIR "/packaging/systemd/";
  const std::string root = "/var/spool/quellor/";
  EXPECT_EQ(testing::ReadFile(dir + "Quellor_Quellor.service"),
            UnitText(root, "/usr/sbin/quellor", kServiceUser));
  EXPECT_EQ(testing::ReadFile(dir + "Quellor_Dregger.service"),
            bridge::DreggerUnitText({root, "/usr/bin/quellor-dregger", "", "", ""}));
}

}  // namespace
}  // namespace quellor
