#pragma once
// The "Held mail" view: held messages as JSON (for the page and `quellorctl held --json`) and
// the page's section that lists them with release and drop buttons.

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

#include "core/context.h"
#include "spool/held.h"

namespace quellor {

// A JSON array of held messages, each {"user","id","date","sender","subject","size"}; the date
// in the regional general form, texts converted to UTF-8.
std::string HeldListJson(const std::vector<HeldMessage>& held, const Clock& clock);
// What the page's view shows: {"counts":[{"user","count"}],"total":N,"held":[...]} with the
// newest `limit` messages.
std::string RenderHeldState(Context& ctx, size_t limit);
// The view's section, style and script (admitted by `nonce`), placed below the window.
std::string RenderHeldSection(std::string_view nonce);

}  // namespace quellor
