#pragma once
// The three logs under LOG/: the error log system.log, the daily activity log <day>.log and the
// daily retry log quellor/<day>.iwr.

#include <string>
#include <string_view>

#include "config/context.h"

namespace quellor {

// Appends "<date time> : <label> - #<n> - <description>" to LOG/system.log. Has no handler of
// its own: a failure to write raises to the caller, unless SAFE_DELIVERY is on, which sends the
// line to the journal instead.
void ErrorLog(Context& ctx, const std::string& label, int number, const std::string& description);
// Appends "<long time>  <text>" to LOG/quellor/<day><extension>. A trailing CR LF of `text` is
// removed in the caller's string. Failures are reported with the label "Quellor - log".
void log(Context& ctx, std::string& text, int level, std::string_view extension);
// Appends "<hh:mm:ss> <text>" to LOG/<day><extension> after the replacements ("Sent " ->
// "Received ", "Queued " -> "Delayed ", "forward mode" -> "protection off"), then updates the
// user's statistics in WAIT/<user>/stats.log.
void Statuslog(Context& ctx, std::string text, int level, std::string_view extension);

}  // namespace quellor
