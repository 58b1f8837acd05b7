#pragma once
// The main configuration file quellor.ini in the installation root.

#include "core/context.h"

namespace quellor {

// Resets the ports and the string settings (all but LOG and DEBUG), then reads quellor.ini: keys
// case-insensitive at the start of a line, values trimmed of blanks and kept as written, the last
// line wins. LOG and DEBUG keep their start values unless the file sets them. A missing file ends
// the reading.
void readini(Context& ctx);

}  // namespace quellor
