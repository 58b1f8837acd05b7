#include "status/status_reply.h"

#include <gtest/gtest.h>

#include "support/process.h"

namespace quellor {
namespace {

// The dump is the status reply (counters as their text, one line per domain; neither the invalid
// count nor the queue) followed by the other counters and the lists in order.
TEST(StatusReply, ReplyThenCountersThenListsInOrder) {
  WindowModel w;
  w.starttime = "16 Nov 2026 08:05:09";
  w.Forward.Set("132");
  w.Ignore.Set("57");
  w.Validations.Set("9");
  w.purged.Set("3");
  w.todayignore.Set("4");
  w.todayvalidations.Set("1");
  w.invalid.Set("2");
  w.todayinvalid.Set("1");
  w.total.Set("2");
  w.kelpo.Set("5");
  w.domainlist.Add("x.org:12");
  w.domainlist.Add("y.org: 0");
  w.outlist.Add("x.org:3");
  w.List1.Add("postmaster@x.org");
  w.List2.Add("e1");
  w.List2.Add("e2");
  w.List3.Add("w1");
  w.purgedlist.Add("p1");
  const std::string dump = BuildStateDump(w);
  testing::CheckGolden("status/state_dump.txt", dump);
  EXPECT_EQ(BuildStatusReply(w), dump.substr(0, dump.find("INVALID=")));
}

}  // namespace
}  // namespace quellor
