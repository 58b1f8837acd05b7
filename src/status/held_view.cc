#include "status/held_view.h"

#include "platform/regional.h"
#include "platform/text.h"
#include "status/window_html.h"

namespace quellor {

namespace {

std::string Json(std::string_view cp1252) {
  return JsonString(Cp1252ToUtf8(cp1252));
}

constexpr const char* kStyle = R"CSS(
#held { padding: 0 8px 8px; }
#held h2 { font-size: 13px; margin: 0; padding: 4px 8px; background: #0a246a; color: #fff; }
#held .grid { display: grid; grid-template-columns: 19em 1fr; gap: 6px; padding-top: 6px; }
#held table { width: 100%; background: #fff; border: 1px inset #808080; }
#held td, #held th { padding: 1px 6px; text-align: left; vertical-align: top; }
#held td.n { text-align: right; font-variant-numeric: tabular-nums; }
#held td.subject { overflow-wrap: anywhere; }
#held button { min-width: 5em; }
#heldmsg { min-height: 1.35em; margin: 0 0 4px; }
)CSS";

// Rows are built with textContent only: sender and subject come straight from mail.
constexpr const char* kScript = R"JS(
"use strict";
(() => {
  const $ = (id) => document.getElementById(id);
  let last = "";
  function cell(row, text, cls) {
    const td = row.insertCell();
    td.textContent = text;
    if (cls) td.className = cls;
    return td;
  }
  function show(s) {
    const key = JSON.stringify(s);
    if (key === last) return;
    last = key;
    const counts = $("heldcounts");
    counts.replaceChildren();
    for (const c of s.counts) {
      const row = counts.insertRow();
      cell(row, c.user);
      cell(row, String(c.count), "n");
    }
    $("heldtotal").textContent = String(s.total);
    const list = $("heldlist");
    list.replaceChildren();
    for (const m of s.held) {
      const row = list.insertRow();
      row.dataset.user = m.user;
      row.dataset.id = m.id;
      cell(row, m.date);
      cell(row, m.user);
      cell(row, m.sender);
      cell(row, m.subject, "subject");
      cell(row, String(m.size), "n");
      const actions = cell(row, "");
      for (const [act, label] of [["release", "Release"], ["drop", "Drop"]]) {
        const b = document.createElement("button");
        b.type = "button";
        b.className = act;
        b.textContent = label;
        actions.appendChild(b);
      }
    }
  }
  async function refresh() {
    try {
      const r = await fetch("/held", { headers: { "X-Quellor-Token": TOKEN }, cache: "no-store" });
      if (r.ok) show(await r.json());
    } catch (e) {}
  }
  $("heldlist").addEventListener("click", async (ev) => {
    const b = ev.target.closest("button");
    if (!b) return;
    const row = b.closest("tr");
    const act = b.className;
    if (act === "drop" && !window.confirm("Drop held message " + row.dataset.id + "?")) return;
    try {
      const r = await fetch("/" + act, {
        method: "POST",
        headers: { "X-Quellor-Token": TOKEN, "Content-Type": "text/plain" },
        body: row.dataset.user + "\n" + row.dataset.id,
      });
      const answer = await r.json();
      $("heldmsg").textContent = answer.message;
    } catch (e) {
      $("heldmsg").textContent = "no answer from the service";
    }
    refresh();
  });
  refresh();
  setInterval(refresh, 2000);
})();
)JS";

}  // namespace

std::string HeldListJson(const std::vector<HeldMessage>& held, const Clock& clock) {
  std::string json = "[";
  for (const HeldMessage& m : held) {
    if (json.size() > 1) json += ',';
    json += "{\"user\":" + Json(m.user) + ",\"id\":" + Json(m.id) +
            ",\"date\":" + Json(GeneralDateTime(clock.ToLocal(m.held))) +
            ",\"sender\":" + Json(m.sender) + ",\"subject\":" + Json(m.subject) +
            ",\"size\":" + std::to_string(m.size) + "}";
  }
  return json + "]";
}

std::string RenderHeldState(Context& ctx, size_t limit) {
  std::string json = "{\"counts\":[";
  size_t total = 0;
  bool first = true;
  for (const HeldCount& c : CountHeld(ctx)) {
    if (!first) json += ',';
    first = false;
    json += "{\"user\":" + Json(c.user) + ",\"count\":" + std::to_string(c.count) + "}";
    total += c.count;
  }
  json += "],\"total\":" + std::to_string(total) +
          ",\"held\":" + HeldListJson(ListHeld(ctx, "", limit), ctx.clock) + "}";
  return json;
}

std::string RenderHeldSection(std::string_view nonce) {
  const std::string n(nonce);
  std::string html = "<style nonce=\"" + n + "\">" + kStyle + "</style>\n";
  html +=
      "<section id=\"held\"><h2>Held mail</h2>\n<div class=\"grid\">\n"
      "<fieldset><legend>Held per user</legend><table><thead><tr><th>User</th><th>Held</th>"
      "</tr></thead><tbody id=\"heldcounts\"></tbody><tfoot><tr><th>All</th><td class=\"n\" "
      "id=\"heldtotal\">0</td></tr></tfoot></table></fieldset>\n"
      "<fieldset><legend>Held messages, newest first</legend><p id=\"heldmsg\"></p><table>"
      "<thead><tr><th>Held since</th><th>User</th><th>Sender</th><th>Subject</th><th>Size</th>"
      "<th></th></tr></thead><tbody id=\"heldlist\"></tbody></table></fieldset>\n"
      "</div></section>\n";
  html += "<script nonce=\"" + n + "\">" + kScript + "</script>\n";
  return html;
}

}  // namespace quellor
