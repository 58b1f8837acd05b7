#pragma once
// Start-up of the service and of `quellorctl pass`: settings, configuration, postmasters,
// the queue count and the random seed.

#include "core/context.h"

namespace quellor {

// Start-up steps after the command line: LOG "ON" and DEBUG "OFF", readini, the postmasters
// list, `total` from the "*.EML" files of IN/, the random seed, the reset date, and the window's
// visibility (hidden when DEBUG is exactly "OFF"). Creates no folder; errors are logged with
// "Quellor - Form_Load" and start-up goes on.
void LoadStartup(Context& ctx);

}  // namespace quellor
