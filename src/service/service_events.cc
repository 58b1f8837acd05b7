#include "service/service_events.h"

#include <utility>

#include "platform/guard.h"

namespace quellor {

ServiceEvents::ServiceEvents(EventLog& events, std::function<void()> unload)
    : events_(events), unload_(std::move(unload)) {}

// The handlers write no error-log line: an error skips the handler's remaining steps and shows in
// the closing entry.
void ServiceEvents::Start(bool& success) {
  Guard step(nullptr, std::string());
  step([&] { success = true; });
  Closing(step.last_number(), step.last_description());
}

void ServiceEvents::Stop() {
  Guard step(nullptr, std::string());
  step([&] {
    if (unload_) unload_();
  });
  Closing(step.last_number(), step.last_description());
}

void ServiceEvents::Pause(bool& success) {
  Guard step(nullptr, std::string());
  // Type 1 (error) for a pause, and the closing entry's reversed arguments, are the
  // installation's historical entries: monitoring keyed on them keeps working.
  step([&] { events_.LogEvent(1, 109, "Service paused"); }) && step([&] { success = true; });
  Closing(step.last_number(), step.last_description());
}

void ServiceEvents::Continue(bool& success) {
  Guard step(nullptr, std::string());
  step([&] { success = true; }) && step([&] { events_.LogEvent(4, 110, "Service continued"); });
  Closing(step.last_number(), step.last_description());
}

void ServiceEvents::Control(int32_t) {
  // Nothing to do for any other control request but record it.
  Closing(0, "");
}

void ServiceEvents::Closing(int number, const std::string& description) {
  events_.LogEvent(109, 1, "[" + std::to_string(number) + "] " + description);
}

}  // namespace quellor
