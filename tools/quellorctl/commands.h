#pragma once
// The subcommands of quellorctl, the administrator's tool.

#include <string>
#include <vector>

namespace quellor::ctl {

// quellorctl init [DIR]: creates a complete installation tree; never overwrites a file.
int RunInit(const std::vector<std::string>& args);
// quellorctl pass [--all] [--no-pause]: start-up, the Start command, passes, then the state dump.
int RunPass(const std::vector<std::string>& args);
// quellorctl status [HOST [PORT]]: prints a running service's status reply.
int RunStatus(const std::vector<std::string>& args);
// quellorctl held [USER] [--json]: the held messages, newest first.
int RunHeld(const std::vector<std::string>& args);
// quellorctl release USER ID: releases a held message as a validation reply would.
int RunRelease(const std::vector<std::string>& args);
// quellorctl drop USER ID: drops a held message as a bounce of its request would.
int RunDrop(const std::vector<std::string>& args);
// quellorctl postfix install|uninstall|check [--config-dir DIR] [--user NAME]: Postfix setup.
int RunPostfix(const std::vector<std::string>& args);

}  // namespace quellor::ctl
