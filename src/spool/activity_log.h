#pragma once
// The daily activity log LOG/<day>.log, whose routing lines also feed the per-user statistics.

#include <string>
#include <string_view>

#include "core/context.h"

namespace quellor {

// Appends "<hh:mm:ss> <text>" to LOG/<day><extension> after the replacements ("Sent " ->
// "Received ", "Queued " -> "Delayed ", "forward mode" -> "protection off"), then updates the
// user's statistics in WAIT/<user>/stats.log.
void Statuslog(Context& ctx, std::string text, int level, std::string_view extension);

}  // namespace quellor
