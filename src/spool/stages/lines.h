#pragma once
// Helpers shared by the stages: new files in the queues, marking, the white lists.

#include <string>

#include "core/context.h"
#include "platform/text.h"
#include "spool/pass_run.h"

namespace quellor {

// A fresh name from nextid whose files are not yet in the queue folder `folder` ("LOCAL/",
// "OUT/"): nextid alone rejects a name only when it is taken in all three queues at once, and a
// new pair must never overwrite another one. When every name of the current second is taken,
// it waits (through the context's sleeper) for the next second.
std::string FreeQueueName(Context& ctx, const std::string& folder);

// Copies `message` into the local queue as `<local>.EML`: written as `<local>.TMP`, flushed, and
// named `.EML` once complete, so the host server never takes half a message.
void WriteLocalMessage(PassRun& p, const std::string& message, const std::string& local);

// Opens a message in the message component to mark it: only messages under 1000 KB that the
// component can open are marked; the others are delivered unchanged.
bool OpenForMarking(PassRun& p, const std::string& message);

// Appends `entry` (on one line) as a line of the list at `path`, after a line end for a last line
// that lacks one, so that two entries are never glued together; each step under the pass's error
// handler.
void AppendListLine(PassRun& p, const std::string& path, const std::string& entry);

// Whether `sender` is on one of the white lists that admit mail to `user`: the user's own, the
// one of every user ("@.WLT") and the one of the user's domain ("@<domain>.WLT"). Each of the
// three is always searched, each under the pass's error handler.
bool WhiteListed(PassRun& p, const std::string& user, const std::string& sender);

}  // namespace quellor
