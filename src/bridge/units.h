#pragma once
// The systemd texts of a Postfix installation, in one place for quellorctl and for packaging:
// the delivery service's unit Quellor_Dregger.service and the drop-in that runs the filter
// service as the system user.

#include <string>

namespace quellor::bridge {

inline constexpr const char* kDreggerUnitName = "Quellor_Dregger.service";
inline constexpr const char* kServiceUserDropIn = "Quellor_Quellor.service.d/postfix.conf";
inline constexpr const char* kSystemUser = "quellor";

struct DreggerUnitSettings {
  std::string root;         // installation root
  std::string program;      // absolute path of quellor-dregger
  std::string null_sender;  // --null-sender
  std::string hostname;     // --hostname
  std::string config_dir;   // --config-dir ("" for Postfix's default)
  std::string user = kSystemUser;
};

// Quellor_Dregger.service: Type=notify, runs as the system user, restarted after a failure.
std::string DreggerUnitText(const DreggerUnitSettings& settings);
// The drop-in that makes Quellor_Quellor.service run as the system user.
std::string ServiceUserDropInText(const std::string& user = kSystemUser);

// One word of a unit line, quoted when it holds anything but plain path characters.
std::string UnitWord(const std::string& word);

}  // namespace quellor::bridge
