#pragma once
// Held mail as an administrator sees it: what waits in WAIT/, and releasing or dropping one
// held message by hand. A release does what a valid reply does, a drop what a bounce of the
// request does; both run under the tree's lock, never in the middle of a pass.

#include <cstdint>
#include <ctime>
#include <functional>
#include <string>
#include <string_view>
#include <vector>

#include "core/context.h"

namespace quellor {

// One held message.
struct HeldMessage {
  std::string user;       // the waiting area's folder name
  std::string id;         // wait identifier: the stem of the held pair
  std::time_t held = 0;   // when it was held (the envelope's modification time)
  std::string sender;     // envelope line 1
  std::string recipient;  // envelope line 2
  std::string subject;    // envelope line 3: the decoded subject
  int64_t size = 0;       // bytes of the held message file
};

// Held messages per user, in user-name order.
struct HeldCount {
  std::string user;
  size_t count = 0;
};

// A user name or identifier as an administrator types it or the page posts it: not empty, no
// "/", no "..", no control character, not hidden. Anything else is refused before any file is
// looked at, so nothing outside the tree can ever be named.
bool AdminName(std::string_view name);

// The actual folder name of the waiting area of `user` (letter case as on the disk); "" when
// the name is refused or there is no such folder.
std::string WaitingArea(Context& ctx, std::string_view user);

// The held messages of `user` (every user when empty), newest first (the identifier, highest
// first, breaks ties); at most `limit` of them are read (0: all). A folder or envelope that
// cannot be read is passed over.
std::vector<HeldMessage> ListHeld(Context& ctx, const std::string& user = "", size_t limit = 0);
// How many messages each user has held (users with none left out).
std::vector<HeldCount> CountHeld(Context& ctx);

// The outcome of a release or a drop: status 0 done, 1 refused (unknown user or identifier, a
// refused name, no lock) or not done whole; `message` says what happened in one line.
struct HeldAction {
  int status = 1;
  std::string message;
};

// Releases held message `id` of `user` as a valid reply would: every message of its sender to
// its recipient goes to LOCAL/, the sender is white-listed, counted and logged, with one more
// activity line saying that the administrator released it. `on_wait` is called when a pass
// holds the tree's lock and the release has to wait for it.
HeldAction ReleaseHeld(Context& ctx, const std::string& user, const std::string& id,
                       const std::function<void()>& on_wait = {});
// Drops held message `id` of `user` as a bounce of its request would: the pair removed,
// counted as purged and logged.
HeldAction DropHeld(Context& ctx, const std::string& user, const std::string& id,
                    const std::function<void()>& on_wait = {});

}  // namespace quellor
