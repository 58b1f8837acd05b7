#include "service/event_log.h"

#include <syslog.h>
#include <systemd/sd-journal.h>

#include <cstdio>

#include "service/unit_files.h"

namespace quellor {

int JournalEventLog::Priority(int16_t type) {
  if (type == 1) return LOG_ERR;
  if (type == 4) return LOG_INFO;
  return LOG_NOTICE;
}

std::string JournalEventLog::EchoLine(int16_t type, int32_t id, const std::string& text) {
  return std::string(kServiceName) + " [type " + std::to_string(type) + ", id " +
         std::to_string(id) + "] " + text;
}

void JournalEventLog::LogEvent(int16_t type, int32_t id, const std::string& text) {
  const int priority = Priority(type);
  const int sent =
      sd_journal_send("MESSAGE=%s", text.c_str(), "PRIORITY=%d", priority, "SYSLOG_IDENTIFIER=%s",
                      kServiceName, "QUELLOR_EVENT_TYPE=%d", static_cast<int>(type),
                      "QUELLOR_MESSAGE_ID=%d", static_cast<int>(id), nullptr);
  if (sent < 0) {
    openlog(kServiceName, LOG_PID, LOG_DAEMON);
    syslog(priority, "[type %d, id %d] %s", static_cast<int>(type), static_cast<int>(id),
           text.c_str());
    closelog();
  }
  if (echo_) std::fprintf(stderr, "%s\n", EchoLine(type, id, text).c_str());
}

}  // namespace quellor
