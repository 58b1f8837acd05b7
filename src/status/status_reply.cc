#include "status/status_reply.h"

namespace quellor {

std::string BuildStatusReply(const WindowModel& w) {
  std::string reply = "START UP TIME=" + w.starttime + "\r\n";
  reply += "FORWARD=" + w.Forward.text() + "\r\n";
  reply += "LEARN=" + w.Learn.text() + "\r\n";
  reply += "QUELLOR=" + w.Ignore.text() + "\r\n";
  reply += "VALIDATIONS=" + w.Validations.text() + "\r\n";
  reply += "PURGED=" + w.purged.text() + "\r\n";
  reply += "TODAY FORWARD=" + w.todayforward.text() + "\r\n";
  reply += "TODAY LEARN=" + w.todaylearn.text() + "\r\n";
  reply += "TODAY QUELLOR=" + w.todayignore.text() + "\r\n";
  reply += "TODAY VALIDATIONS=" + w.todayvalidations.text() + "\r\n";
  reply += "TODAY PURGED=" + w.todaypurged.text() + "\r\n";
  // The walk runs over the list's 16-bit entry count, as the window reports it.
  const int16_t count = w.domainlist.Count();
  for (int16_t i = 0; i < count; ++i)
    reply += "DOMAIN=" + w.domainlist.At(static_cast<size_t>(i)) + "\r\n";
  return reply;
}

std::string BuildStateDump(const WindowModel& w) {
  std::string dump = BuildStatusReply(w);
  dump += "INVALID=" + w.invalid.text() + "\r\n";
  dump += "TODAY INVALID=" + w.todayinvalid.text() + "\r\n";
  dump += "IN QUEUE=" + w.total.text() + "\r\n";
  dump += "HEADER=" + w.kelpo.text() + "\r\n";
  const auto list = [&dump](const char* key, const ListModel& entries) {
    for (const std::string& entry : entries.items()) dump += key + entry + "\r\n";
  };
  list("OUTDOMAIN=", w.outlist);
  list("POSTMASTER=", w.List1);
  list("EVENT=", w.List2);
  list("WARNING=", w.List3);
  list("PURGEDLIST=", w.purgedlist);
  return dump;
}

}  // namespace quellor
