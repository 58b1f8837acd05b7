#pragma once
// The status reply: the start-up time, the totals, today's counters and the domain lines.

#include <string>

#include "core/window_model.h"

namespace quellor {

// The reply exactly as a status query receives it: eleven counter lines and one "DOMAIN=" line
// per entry of the incoming-domain list, every line ended by CR LF.
std::string BuildStatusReply(const WindowModel& window);
// The whole window state as `quellorctl pass` prints it: the status reply, then "INVALID=",
// "TODAY INVALID=", "IN QUEUE=", "HEADER=", then one line per entry of the outgoing-domain,
// postmasters, event, warnings and purged lists ("OUTDOMAIN=", "POSTMASTER=", "EVENT=",
// "WARNING=", "PURGEDLIST="), every line ended by CR LF.
std::string BuildStateDump(const WindowModel& window);

}  // namespace quellor
