#pragma once
// The per-user statistics file WAIT/<user>/stats.log, updated by Statuslog.

#include <string>

#include "core/context.h"

namespace quellor {

// Counts an activity text (already replaced) for the user named after "to <" in it. Raises on
// failure; `user` receives the address being counted (empty before it is found), so Statuslog
// can name it in its error line.
void UpdateStatistics(Context& ctx, const std::string& text, std::string& user);

}  // namespace quellor
