#include "service/service_manager.h"

#include <systemd/sd-bus.h>
#include <unistd.h>

#include <climits>
#include <cstdlib>

namespace quellor {

namespace {

constexpr const char* kSystemd = "org.freedesktop.systemd1";
constexpr const char* kManagerPath = "/org/freedesktop/systemd1";
constexpr const char* kManager = "org.freedesktop.systemd1.Manager";
constexpr const char* kUnit = "org.freedesktop.systemd1.Unit";

std::string UnitName(const std::string& service) {
  return service.find('.') == std::string::npos ? service + ".service" : service;
}

// A connection to the system bus, opened for one request and closed after it, like the service
// handles of the control routines.
class Bus {
 public:
  Bus() {
    if (sd_bus_open_system(&bus_) < 0) bus_ = nullptr;
  }
  ~Bus() { sd_bus_flush_close_unref(bus_); }
  Bus(const Bus&) = delete;
  Bus& operator=(const Bus&) = delete;
  sd_bus* get() const { return bus_; }

 private:
  sd_bus* bus_ = nullptr;
};

class BusError {
 public:
  ~BusError() { sd_bus_error_free(&error_); }
  sd_bus_error* get() { return &error_; }

 private:
  sd_bus_error error_ = SD_BUS_ERROR_NULL;
};

std::string StringProperty(sd_bus* bus, const std::string& path, const char* name) {
  BusError error;
  char* value = nullptr;
  if (sd_bus_get_property_string(bus, kSystemd, path.c_str(), kUnit, name, error.get(), &value) <
      0) {
    return "";
  }
  std::string text = value ? value : "";
  std::free(value);
  return text;
}

// Only this machine's manager is reachable; another machine's name finds no service.
bool IsThisMachine(const std::string& machine, const std::string& own_name) {
  return machine.empty() || machine == own_name;
}

}  // namespace

std::string ServiceStateText(int state) {
  switch (state) {
    case 1:
      return "Stopped";
    case 2:
      return "Start Pending";
    case 3:
      return "Stop Pending";
    case 4:
      return "Running";
    case 5:
      // Spelt as the installation has always reported it.
      return "Coninue Pending";
    case 6:
      return "Pause Pending";
    case 7:
      return "Paused";
    default:
      return "";
  }
}

int StateFromActiveState(const std::string& active_state) {
  if (active_state == "inactive" || active_state == "failed") return 1;
  if (active_state == "activating") return 2;
  if (active_state == "deactivating") return 3;
  if (active_state == "active" || active_state == "reloading") return 4;
  return 0;
}

std::string SystemdServiceManager::QueryStateText(const std::string& machine,
                                                  const std::string& service) {
  if (!IsThisMachine(machine, ComputerName())) return "";
  Bus bus;
  if (!bus.get()) return "";
  // LoadUnit, not GetUnit: systemd unloads a stopped unit nothing refers to, and that is exactly
  // the companion the watchdog has to find.
  BusError error;
  sd_bus_message* reply = nullptr;
  if (sd_bus_call_method(bus.get(), kSystemd, kManagerPath, kManager, "LoadUnit", error.get(),
                         &reply, "s", UnitName(service).c_str()) < 0) {
    return "";
  }
  const char* object = nullptr;
  std::string path;
  if (sd_bus_message_read(reply, "o", &object) >= 0 && object) path = object;
  sd_bus_message_unref(reply);
  if (path.empty()) return "";
  const std::string load_state = StringProperty(bus.get(), path, "LoadState");
  if (load_state.empty() || load_state == "not-found") return "";
  return ServiceStateText(StateFromActiveState(StringProperty(bus.get(), path, "ActiveState")));
}

void SystemdServiceManager::StartService(const std::string& machine, const std::string& service) {
  if (!IsThisMachine(machine, ComputerName())) return;
  Bus bus;
  if (!bus.get()) return;
  BusError error;
  sd_bus_message* reply = nullptr;
  if (sd_bus_call_method(bus.get(), kSystemd, kManagerPath, kManager, "StartUnit", error.get(),
                         &reply, "ss", UnitName(service).c_str(), "replace") >= 0) {
    sd_bus_message_unref(reply);
  }
}

std::string SystemdServiceManager::ComputerName() {
  char name[HOST_NAME_MAX + 1] = {};
  if (::gethostname(name, sizeof name - 1) != 0) return "";
  return name;
}

}  // namespace quellor
