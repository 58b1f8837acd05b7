#pragma once
// The companion watchdog: once a minute, restart the companion service Quellor_Dregger when it is
// stopped, unless the marker file "nostart.txt" is in the installation root.

#include "core/context.h"
#include "service/service_manager.h"

namespace quellor {

inline constexpr const char* kCompanionService = "Quellor_Dregger";

class Watchdog {
 public:
  Watchdog(Context& ctx, ServiceManager& manager) : ctx_(ctx), manager_(manager) {}

  // One tick: restarts a stopped companion and appends "<date time> - Quellor_Dregger" to
  // LOG/START.LOG. Errors: "Quellor - KeepAlive".
  void KeepAlive_Timer();

 private:
  Context& ctx_;
  ServiceManager& manager_;
};

}  // namespace quellor
