#pragma once
// The error sink of the service's own procedures: the error log, and standard error when the
// error log itself cannot be written, so that a missing LOG/ folder never stops the service.

#include "core/context.h"
#include "platform/guard.h"

namespace quellor {

// An ErrorSink that writes the error-log line and never raises.
ErrorSink CarryOnSink(Context& ctx);

}  // namespace quellor
