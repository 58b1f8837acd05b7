#pragma once
// Invalid validations: replies whose wait identifier cannot release anything.

#include "spool/pass_run.h"

namespace quellor {

// The identifier names a message held for another recipient address: counted and reported
// (marker 20). The message is already handled.
void InvalidForeign(PassRun& p);
// No held envelope of that identifier in the recipient's waiting area: counted, reported and
// consumed only when the sender is a configured local user without such a held message, or when
// the marker WAIT/<user>/<id>.SOD exists (which is then deleted); otherwise left to routing.
void InvalidNonexistent(PassRun& p);

}  // namespace quellor
