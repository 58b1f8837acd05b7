#pragma once
// The processing pass over the input queue IN/.

#include "core/context.h"

namespace quellor {

// `quellor`: takes at most 40 pairs (the queue counter `total`, capped), oldest name first,
// routes every recipient line and removes each pair.
void quellor(Context& ctx);

}  // namespace quellor
