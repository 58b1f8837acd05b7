#pragma once
// Control of other services of the installation: the state text of a service, starting it, and
// the name of this computer.

#include <string>

namespace quellor {

class ServiceManager {
 public:
  virtual ~ServiceManager() = default;
  // One of the state texts of ServiceStateText, or "" for a service that is unknown or cannot
  // be queried.
  virtual std::string QueryStateText(const std::string& machine, const std::string& service) = 0;
  // Starts the service; the outcome is not reported.
  virtual void StartService(const std::string& machine, const std::string& service) = 0;
  virtual std::string ComputerName() = 0;
};

// The state texts by state number: 1 "Stopped", 2 "Start Pending", 3 "Stop Pending", 4 "Running",
// 5 "Coninue Pending", 6 "Pause Pending", 7 "Paused"; "" for any other number.
std::string ServiceStateText(int state);

// The state number of a systemd ActiveState: inactive and failed 1, activating 2, deactivating 3,
// active and reloading 4; 0 for anything else.
int StateFromActiveState(const std::string& active_state);

// The service manager of this machine: systemd over the system bus. A service name without a
// unit suffix names the unit "<name>.service".
class SystemdServiceManager : public ServiceManager {
 public:
  std::string QueryStateText(const std::string& machine, const std::string& service) override;
  void StartService(const std::string& machine, const std::string& service) override;
  std::string ComputerName() override;
};

}  // namespace quellor
