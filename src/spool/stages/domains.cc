// Local domains and traffic counts: per-domain counters of incoming and outgoing mail in the
// window's lists, and the automatic discovery of local domains into DOMAIN.LST.
#include <string>

#include "core/window_model.h"
#include "platform/errors.h"
#include "platform/text.h"
#include "spool/address.h"
#include "spool/lists.h"
#include "spool/stages.h"

namespace quellor {

namespace {

// The first entry "domain:count" whose text before its colon, trimmed, equals `domain`; sets
// `colon` to that entry's 1-based colon position. An entry without a colon fails the search.
long FindEntry(const ListModel& list, const std::string& domain, size_t& colon) {
  for (size_t i = 0; i < list.size(); ++i) {
    const std::string& entry = list.At(i);
    const size_t p = InStr(entry, ":");
    if (p == 0) Raise(kErrInvalidCall);
    colon = p;
    if (Trim(entry.substr(0, p - 1)) == domain) return static_cast<long>(i);
  }
  return -1;
}

// One side of the count: finds or (for a domain of DOMAIN.LST) adds the entry and raises it.
void CountIn(PassRun& p, ListModel& list, const std::string& domain, bool discover,
             int16_t after_search) {
  Context& ctx = p.ctx;
  const std::string domains = ctx.Path("DOMAIN.LST");
  long index = -1;
  size_t colon = 0;
  p.Step([&] { index = FindEntry(list, domain, colon); });
  if (index < 0) {
    colon = domain.size() + 1;
    if (discover) p.Step([&] { AddListEntry(ctx, domains, domain); });
    p.Step([&] {
      if (buscaenlista(ctx, domains, domain)) {
        index = static_cast<long>(list.size());
        list.Add(domain + ": 0");
      }
    });
  }
  p.Mark(after_search);
  if (index < 0) return;  // not a local domain: nothing is counted
  p.Step([&] {
    const std::string& entry = list.At(static_cast<size_t>(index));
    const double count = Val(entry.size() > colon ? entry.substr(colon) : std::string());
    list.Set(static_cast<size_t>(index), domain + ":" + DecimalText(count + 1));
  });
}

}  // namespace

void CountDomains(PassRun& p) {
  Context& ctx = p.ctx;
  PassState& s = p.s;
  WindowModel& w = ctx.window;

  std::string incoming;
  p.Step([&] { incoming = LCase(DomainOf(s.recipient)); });
  p.Mark(6);
  CountIn(p, w.domainlist, incoming, ctx.settings.domains_auto == "YES", 7);

  // The sender as the envelope gives it: "<a@b.c>" yields "b.c>", which no entry matches. The
  // outgoing side never adds to DOMAIN.LST.
  std::string outgoing;
  p.Step([&] { outgoing = LCase(DomainOf(s.sender)); });
  CountIn(p, w.outlist, outgoing, false, 7);
}

}  // namespace quellor
