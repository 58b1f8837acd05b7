#pragma once
// The program's command line: "-install", "-uninstall", "-debug" or nothing.

#include <string>
#include <vector>

namespace quellor {

enum class RunMode {
  kService,    // empty command line: a service run under systemd
  kDebug,      // "-debug": the same run in the foreground, without systemd
  kInstall,    // "-install": write the unit files and end
  kUninstall,  // "-uninstall": remove the unit files and end
  kInvalid,    // anything else: "Invalid command option" and end
};

// The argument string is everything after the program's name, the arguments joined by one blank,
// compared case-sensitively and as a whole with each switch.
RunMode ParseCommandLine(const std::vector<std::string>& args);

// The text shown for an unknown command line, and the exit status that goes with it.
inline constexpr const char* kInvalidOptionText = "Invalid command option";
inline constexpr int kInvalidOptionStatus = 2;

}  // namespace quellor
