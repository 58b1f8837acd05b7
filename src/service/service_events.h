#pragma once
// The five service events (Start, Stop, Pause, Continue, Control) and their event-log entries.
// Each handler ends with the closing entry "[<error number>] <description>", also after a normal
// run ("[0] ").

#include <cstdint>
#include <functional>

#include "service/event_log.h"

namespace quellor {

class ServiceEvents {
 public:
  // `unload` ends the process once the running handler has returned (the Stop event).
  ServiceEvents(EventLog& events, std::function<void()> unload);

  void Start(bool& success);
  void Stop();
  void Pause(bool& success);
  void Continue(bool& success);
  void Control(int32_t code);

 private:
  void Closing(int number, const std::string& description);

  EventLog& events_;
  std::function<void()> unload_;
};

}  // namespace quellor
