#pragma once
// The error log LOG/system.log and the daily retry log LOG/quellor/<day>.iwr.

#include <string>
#include <string_view>

#include "core/context.h"

namespace quellor {

// Appends "<date time> : <label> - #<n> - <description>" to LOG/system.log. Has no handler of
// its own: a failure to write raises to the caller, unless SAFE_DELIVERY is on, which sends the
// line to the journal instead.
void ErrorLog(Context& ctx, const std::string& label, int number, const std::string& description);
// Appends "<long time>  <text>" to LOG/quellor/<day><extension>. A trailing CR LF of `text` is
// removed in the caller's string. Failures are reported with the label "Quellor - log".
void log(Context& ctx, std::string& text, int level, std::string_view extension);

}  // namespace quellor
