#include "status/window_html.h"

#include <cstdio>

#include "platform/text.h"

namespace quellor {

namespace {

struct CounterRow {
  const char* label;
  Counter WindowModel::*total;
  const char* total_id;
  Counter WindowModel::*today;  // nullptr: the row has no daily counter
  const char* today_id;
};

// The counters with the labels the window shows beside them, today's beside the total.
constexpr CounterRow kCounterRows[] = {
    {"Forward:", &WindowModel::Forward, "Forward", &WindowModel::todayforward, "todayforward"},
    {"Learn:", &WindowModel::Learn, "Learn", &WindowModel::todaylearn, "todaylearn"},
    {"Quellor:", &WindowModel::Ignore, "Ignore", &WindowModel::todayignore, "todayignore"},
    {"Validations:", &WindowModel::Validations, "Validations", &WindowModel::todayvalidations,
     "todayvalidations"},
    {"Purged:", &WindowModel::purged, "purged", &WindowModel::todaypurged, "todaypurged"},
    {"Invalid Val:", &WindowModel::invalid, "invalid", &WindowModel::todayinvalid, "todayinvalid"},
    {"In Queue:", &WindowModel::total, "total", nullptr, nullptr},
    {"Header:", &WindowModel::kelpo, "kelpo", nullptr, nullptr},
};

struct ListFrame {
  const char* caption;
  ListModel WindowModel::*list;
  const char* id;
  bool shows_line;  // a double-click shows the selected line
};

constexpr ListFrame kListFrames[] = {
    {"Incoming Mails", &WindowModel::domainlist, "domainlist", true},
    {"Local Mails", &WindowModel::outlist, "outlist", false},
    {"Validations", &WindowModel::List2, "List2", true},
    {"Warnings", &WindowModel::List3, "List3", true},
    {"Purged Emails", &WindowModel::purgedlist, "purgedlist", true},
    {"Local postmasters", &WindowModel::List1, "List1", false},
    {"In Queue", &WindowModel::File1, "File1", false},
};

std::string Html(std::string_view cp1252) {
  return HtmlEscape(Cp1252ToUtf8(cp1252));
}
std::string Json(std::string_view cp1252) {
  return JsonString(Cp1252ToUtf8(cp1252));
}

constexpr const char* kStyle = R"CSS(
body { font: 13px/1.35 "DejaVu Sans", sans-serif; background: #d4d0c8; color: #000; margin: 0; }
h1 { font-size: 13px; margin: 0; padding: 4px 8px; background: #0a246a; color: #fff; }
main { display: grid; grid-template-columns: 19em 1fr 1fr; gap: 6px; padding: 8px; }
fieldset { border: 1px solid #808080; margin: 0; padding: 4px 6px 6px; min-width: 0; }
legend { padding: 0 3px; }
table { border-collapse: collapse; }
th { text-align: left; font-weight: normal; padding: 1px 6px 1px 0; }
td.n { background: #fff; border: 1px inset #808080; min-width: 4.5em; text-align: right;
       padding: 1px 4px; font-variant-numeric: tabular-nums; }
select { width: 100%; height: 9.5em; font: inherit; background: #fff; }
.side { display: flex; flex-direction: column; gap: 6px; }
dialog { border: 1px solid #404040; padding: 12px 16px; min-width: 16em; max-width: 40em; }
dialog p { white-space: pre-wrap; overflow-wrap: anywhere; margin: 0 0 12px; min-height: 1em; }
dialog div { text-align: right; }
button { font: inherit; min-width: 6em; }
)CSS";

constexpr const char* kScript = R"JS(
"use strict";
const $ = (id) => document.getElementById(id);
const shown = {};
let posting = false;
for (const sel of document.querySelectorAll("select")) {
  shown[sel.id] = Array.from(sel.options, (o) => o.textContent);
}
function same(a, b) {
  if (!a || a.length !== b.length) return false;
  for (let i = 0; i < a.length; i++) if (a[i] !== b[i]) return false;
  return true;
}
function fill(id, lines) {
  const sel = $(id);
  if (!sel || same(shown[id], lines)) return;
  const keep = sel.selectedIndex, top = sel.scrollTop;
  const items = document.createDocumentFragment();
  for (const line of lines) {
    const o = document.createElement("option");
    o.textContent = line;
    items.appendChild(o);
  }
  sel.replaceChildren(items);
  if (keep >= 0 && keep < lines.length) sel.selectedIndex = keep;
  sel.scrollTop = top;
  shown[id] = lines;
}
function apply(s) {
  document.title = s.title;
  $("caption").textContent = s.title;
  $("starttime").textContent = s.starttime;
  $("Command1").disabled = !s.start_enabled;
  if (!posting) $("Check1").checked = s.check1;
  for (const [id, text] of Object.entries(s.counters)) $(id).textContent = text;
  for (const [id, lines] of Object.entries(s.lists)) fill(id, lines);
}
async function refresh() {
  try {
    const r = await fetch("/state", { headers: { "X-Quellor-Token": TOKEN }, cache: "no-store" });
    if (r.ok) apply(await r.json());
  } catch (e) {}
}
setInterval(refresh, 2000);
$("Check1").addEventListener("change", async (ev) => {
  const box = ev.target;
  posting = true;
  try {
    const r = await fetch("/check1", {
      method: "POST",
      headers: { "X-Quellor-Token": TOKEN, "Content-Type": "text/plain" },
      body: box.checked ? "1" : "0",
    });
    if (!r.ok) throw new Error(r.status);
    posting = false;
    apply(await r.json());
  } catch (e) {
    box.checked = !box.checked;
  } finally {
    posting = false;
  }
});
for (const sel of document.querySelectorAll("select[data-shows-line]")) {
  sel.addEventListener("dblclick", () => {
    const o = sel.selectedIndex >= 0 ? sel.options[sel.selectedIndex] : null;
    $("msgtext").textContent = o ? o.textContent : "";
    $("msgbox").showModal();
  });
}
$("msgok").addEventListener("click", () => $("msgbox").close());
)JS";

}  // namespace

std::string HtmlEscape(std::string_view utf8) {
  std::string out;
  out.reserve(utf8.size() + 16);
  for (char ch : utf8) {
    const unsigned char c = static_cast<unsigned char>(ch);
    switch (ch) {
      case '&':
        out += "&amp;";
        break;
      case '<':
        out += "&lt;";
        break;
      case '>':
        out += "&gt;";
        break;
      case '"':
        out += "&quot;";
        break;
      case '\'':
        out += "&#39;";
        break;
      default:
        if ((c < 0x20 && ch != '\t') || c == 0x7F)
          out += "\xEF\xBF\xBD";
        else
          out += ch;
    }
  }
  return out;
}

std::string JsonString(std::string_view utf8) {
  std::string out = "\"";
  out.reserve(utf8.size() + 16);
  for (char ch : utf8) {
    const unsigned char c = static_cast<unsigned char>(ch);
    if (ch == '"') {
      out += "\\\"";
    } else if (ch == '\\') {
      out += "\\\\";
    } else if (c < 0x20 || ch == '<' || ch == '>' || ch == '&' || c == 0x7F) {
      char buf[8];
      std::snprintf(buf, sizeof buf, "\\u%04x", c);
      out += buf;
    } else {
      out += ch;
    }
  }
  out += '"';
  return out;
}

std::string RenderWindowPage(const WindowModel& w, std::string_view token, std::string_view nonce,
                             std::string_view below) {
  const std::string title = Html(w.title);
  const std::string n(nonce);
  std::string page;
  page.reserve(8192);
  page += "<!DOCTYPE html>\n<html lang=\"en\">\n<head>\n<meta charset=\"utf-8\">\n<title>" + title +
          "</title>\n<style nonce=\"" + n + "\">" + kStyle + "</style>\n</head>\n<body>\n";
  page += "<h1 id=\"caption\">" + title + "</h1>\n<main>\n<div class=\"side\">\n";

  page += "<table id=\"counters\">\n";
  for (const CounterRow& row : kCounterRows) {
    page += "<tr><th scope=\"row\">";
    page += row.label;
    page += "</th><td class=\"n\" id=\"";
    page += row.total_id;
    page += "\">" + Html((w.*row.total).text()) + "</td>";
    if (row.today != nullptr) {
      page += "<td class=\"n\" id=\"";
      page += row.today_id;
      page += "\">" + Html((w.*row.today).text()) + "</td>";
    }
    page += "</tr>\n";
  }
  page += "</table>\n";

  page += "<fieldset id=\"frame-start\"><legend>Start Up Time</legend><span id=\"starttime\">" +
          Html(w.starttime) + "</span> <button type=\"button\" id=\"Command1\"";
  page += w.start_enabled ? "" : " disabled";
  page += ">Start</button></fieldset>\n";
  page +=
      "<fieldset id=\"frame-config\"><legend>Config</legend><label><input type=\"checkbox\" "
      "id=\"Check1\"";
  page += w.check1 ? " checked" : "";
  page += "> Accept External Query</label></fieldset>\n</div>\n";

  for (const ListFrame& frame : kListFrames) {
    page += "<fieldset><legend>";
    page += frame.caption;
    page += "</legend><select size=\"8\" id=\"";
    page += frame.id;
    page += frame.shows_line ? "\" data-shows-line>" : "\">";
    for (const std::string& line : (w.*frame.list).items())
      page += "<option>" + Html(line) + "</option>";
    page += "</select></fieldset>\n";
  }
  page += "</main>\n";
  page +=
      "<dialog id=\"msgbox\"><p id=\"msgtext\"></p><div><button type=\"button\" "
      "id=\"msgok\">OK</button></div></dialog>\n";
  page += "<script nonce=\"" + n + "\">\nconst TOKEN = \"" + std::string(token) + "\";" + kScript +
          "</script>\n";
  page += below;
  page += "</body>\n</html>\n";
  return page;
}

std::string RenderWindowState(const WindowModel& w) {
  std::string json = "{\"title\":" + Json(w.title) + ",\"starttime\":" + Json(w.starttime);
  json += ",\"start_enabled\":";
  json += w.start_enabled ? "true" : "false";
  json += ",\"check1\":";
  json += w.check1 ? "true" : "false";
  json += ",\"counters\":{";
  bool first = true;
  const auto counter = [&](const char* id, const Counter& c) {
    if (!first) json += ',';
    first = false;
    json += '"';
    json += id;
    json += "\":" + Json(c.text());
  };
  for (const CounterRow& row : kCounterRows) {
    counter(row.total_id, w.*row.total);
    if (row.today != nullptr) counter(row.today_id, w.*row.today);
  }
  json += "},\"lists\":{";
  first = true;
  for (const ListFrame& frame : kListFrames) {
    if (!first) json += ',';
    first = false;
    json += '"';
    json += frame.id;
    json += "\":[";
    bool first_line = true;
    for (const std::string& line : (w.*frame.list).items()) {
      if (!first_line) json += ',';
      first_line = false;
      json += Json(line);
    }
    json += ']';
  }
  json += "}}";
  return json;
}

}  // namespace quellor
