#pragma once
// What becomes of an input pair once the pass has routed it, and the folder DEFER/ that keeps,
// with SAFE_DELIVERY=ON, the pairs that could not be routed whole until a later pass.

#include "core/context.h"
#include "spool/pass_run.h"

namespace quellor {

// Removes the current input pair from IN/; a half pair is logged first. With SAFE_DELIVERY on, a
// half pair, or a pair left unfinished (a copy not written), is moved to DEFER/ instead (logged),
// and a message file that cannot be taken out of IN/ is passed over from then on (logged once).
void SettleInputPair(PassRun& p, bool complete);

// Brings the window's input listing File1 up to date with the "*.EML" files of IN/, sorted by
// name, at the cost of what changed since its last refresh. False when IN/ could not be listed
// (File1 is then empty).
bool RefreshInputListing(Context& ctx);

// Takes the passed-over names out of the input listing before the pass takes its head, and
// forgets those that are no longer in IN/. False (and `total` set to 0) when nothing is left.
bool SkipPassedOver(Context& ctx);

// Moves deferred pairs back into IN/, envelope first and message file last. A pair returns once
// it has waited at least a minute in DEFER/ (at once when this process did not defer it), and a
// half pair only once its missing half is in DEFER/ or IN/; no file of IN/ is ever replaced.
void ReturnDeferred(Context& ctx);

}  // namespace quellor
