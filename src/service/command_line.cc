#include "service/command_line.h"

namespace quellor {

RunMode ParseCommandLine(const std::vector<std::string>& args) {
  std::string line;
  for (size_t i = 0; i < args.size(); ++i) {
    if (i > 0) line += ' ';
    line += args[i];
  }
  if (line.empty()) return RunMode::kService;
  if (line == "-install") return RunMode::kInstall;
  if (line == "-uninstall") return RunMode::kUninstall;
  if (line == "-debug") return RunMode::kDebug;
  return RunMode::kInvalid;
}

}  // namespace quellor
