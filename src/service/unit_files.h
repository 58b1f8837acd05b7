#pragma once
// Registration of the service with systemd: the unit Quellor_Quellor.service and its drop-in
// Quellor_Quellor.service.d/parameters.conf, written by "-install" and removed by "-uninstall";
// and the confinement that every Quellor unit carries, the packaged ones included.

#include <optional>
#include <string>
#include <string_view>

namespace quellor {

inline constexpr const char* kServiceName = "Quellor_Quellor";
inline constexpr const char* kServiceDisplayName = "Spam Quellor - Quellor";
// The account the service runs under where the system has it: the package creates it, and so
// does the Postfix set-up of quellorctl.
inline constexpr const char* kServiceUser = "quellor";

// The folder of the unit files: QUELLOR_UNIT_DIR, or /etc/systemd/system/.
std::string UnitDirFromEnvironment();

// One word of a unit line, quoted when it holds anything but plain path characters.
std::string UnitWord(std::string_view word);
// kServiceUser when the system has that account, else "" (the service then runs as root, still
// confined and without capabilities).
std::string ServiceUserIfPresent();

// The [Service] lines that confine a Quellor unit: the account (none when `user` is empty), no
// capabilities, no new privileges, a read-only system with the installation root as the only
// writable place, private /tmp and devices, no home folders, Internet and local sockets only,
// and the system calls of an ordinary service. nullopt for a root with a control character.
std::optional<std::string> ConfinementText(const std::string& root, const std::string& user);

// The unit's text for an installation root, the absolute path of the program and the account
// (see ConfinementText); nullopt when the root or the program holds a control character, which
// no unit line can carry safely, or the program path is not absolute.
std::optional<std::string> UnitText(const std::string& root, const std::string& program,
                                    const std::string& user = "");
// The drop-in's text: the installation record "TimerInterval" = "1000".
std::string ParametersText();

// Writes the unit and then, when that succeeded, the drop-in. Returns whether the unit (the
// registration) was written.
bool InstallUnit(const std::string& unit_dir, const std::string& root, const std::string& program,
                 const std::string& user);
// Removes the unit, the drop-in and the drop-in folder when it is left empty. Returns whether the
// unit is gone afterwards.
bool UninstallUnit(const std::string& unit_dir);

// `systemctl daemon-reload`, only where systemd is the running init system.
void ReloadSystemd();

// The absolute path of the running program.
std::string ProgramPath();

}  // namespace quellor
