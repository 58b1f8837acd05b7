#pragma once
// Event-log entries of the service: (event type, message identifier, text), written to the
// journal under the identifier Quellor_Quellor.

#include <cstdint>
#include <string>

namespace quellor {

class EventLog {
 public:
  virtual ~EventLog() = default;
  virtual void LogEvent(int16_t type, int32_t id, const std::string& text) = 0;
};

// The journal: type 1 as an error, type 4 as information, any other type as a notice; the type
// and the message identifier travel as the fields QUELLOR_EVENT_TYPE and QUELLOR_MESSAGE_ID.
// Without a journal the entry goes to syslog. With `echo` (a -debug run) each entry is also
// printed on standard error.
class JournalEventLog : public EventLog {
 public:
  explicit JournalEventLog(bool echo) : echo_(echo) {}
  void LogEvent(int16_t type, int32_t id, const std::string& text) override;

  // The syslog priority of an event type.
  static int Priority(int16_t type);
  // The line a -debug run prints for an entry.
  static std::string EchoLine(int16_t type, int32_t id, const std::string& text);

 private:
  bool echo_;
};

}  // namespace quellor
