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

// Quellor_Dregger.service: Type=notify, runs as the system user with the filter's confinement,
// restarted after a failure; an empty null sender, host name or config folder is left out.
std::string DreggerUnitText(const DreggerUnitSettings& settings);
// The drop-in that makes Quellor_Quellor.service run as the system user.
std::string ServiceUserDropInText(const std::string& user = kSystemUser);

}  // namespace quellor::bridge
