#pragma once
// Registration of the service with systemd: the unit Quellor_Quellor.service and its drop-in
// Quellor_Quellor.service.d/parameters.conf, written by "-install" and removed by "-uninstall".

#include <optional>
#include <string>

namespace quellor {

inline constexpr const char* kServiceName = "Quellor_Quellor";
inline constexpr const char* kServiceDisplayName = "Spam Quellor - Quellor";

// The folder of the unit files: QUELLOR_UNIT_DIR, or /etc/systemd/system/.
std::string UnitDirFromEnvironment();

// The unit's text for an installation root and the absolute path of the program; nullopt when
// either holds a control character, which no unit line can carry safely, or the program path
// is not absolute.
std::optional<std::string> UnitText(const std::string& root, const std::string& program);
// The drop-in's text: the installation record "TimerInterval" = "1000".
std::string ParametersText();

// Writes the unit and then, when that succeeded, the drop-in. Returns whether the unit (the
// registration) was written.
bool InstallUnit(const std::string& unit_dir, const std::string& root, const std::string& program);
// Removes the unit, the drop-in and the drop-in folder when it is left empty. Returns whether the
// unit is gone afterwards.
bool UninstallUnit(const std::string& unit_dir);

// `systemctl daemon-reload`, only where systemd is the running init system.
void ReloadSystemd();

// The absolute path of the running program.
std::string ProgramPath();

}  // namespace quellor
