#pragma once
// The status window drawn as a web page: the HTML page and the JSON state it refreshes from.
//
// Every text of the window (title, counters, list lines) is held in Windows-1252 and may come
// straight from mail; it is converted to UTF-8 and escaped before it reaches the page.

#include <string>
#include <string_view>

#include "core/window_model.h"

namespace quellor {

// Escapes text for HTML element content and quoted attribute values; control characters other
// than tab become U+FFFD.
std::string HtmlEscape(std::string_view utf8);
// A JSON string literal (quotes included); <, > and & are written as \u escapes so the text can
// never close a script element.
std::string JsonString(std::string_view utf8);

// The whole page with the window's current state. `token` is the page's secret that every
// request from its script carries; `nonce` admits the page's own inline script and style.
// `below` is further markup placed under the window (the held-mail view).
std::string RenderWindowPage(const WindowModel& window, std::string_view token,
                             std::string_view nonce, std::string_view below = "");
// The window's state as the page's script reads it: title, counters, lists, check box.
std::string RenderWindowState(const WindowModel& window);

}  // namespace quellor
