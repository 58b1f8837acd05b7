#pragma once
// An event log that records its entries, and fails on request.

#include <cstdint>
#include <ostream>
#include <string>
#include <vector>

#include "platform/errors.h"
#include "service/event_log.h"

namespace quellor::testing {

struct Entry {
  int type, id;
  std::string text;
  bool operator==(const Entry&) const = default;
};

inline void PrintTo(const Entry& e, std::ostream* os) {
  *os << "{" << e.type << ", " << e.id << ", \"" << e.text << "\"}";
}

class RecordingEventLog : public EventLog {
 public:
  void LogEvent(int16_t type, int32_t id, const std::string& text) override {
    if (!fail_on.empty() && text == fail_on) Raise(kErrPermission);
    entries.push_back({type, id, text});
  }
  std::vector<Entry> entries;
  std::string fail_on;
};

inline const Entry kClosing{109, 1, "[0] "};

}  // namespace quellor::testing
