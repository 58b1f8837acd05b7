#include "status/status_reply.h"

#include <gtest/gtest.h>

namespace quellor {
namespace {

TEST(StatusReply, CountersAsTheirTextAndOneLinePerDomain) {
  WindowModel w;
  w.starttime = "16 Nov 2026 08:05:09";
  w.Forward.Set("132");
  w.Ignore.Set("57");
  w.Validations.Set("9");
  w.purged.Set("3");
  w.todayignore.Set("4");
  w.todayvalidations.Set("1");
  w.invalid.Set("8");  // never reported
  w.total.Set("2");    // never reported
  w.domainlist.Add("x.org:12");
  w.domainlist.Add("y.org: 0");
  EXPECT_EQ(
      BuildStatusReply(w),
      "START UP TIME=16 Nov 2026 "
      "08:05:09\r\nFORWARD=132\r\nLEARN=0\r\nQUELLOR=57\r\nVALIDATIONS=9\r\n"
      "PURGED=3\r\nTODAY FORWARD=0\r\nTODAY LEARN=0\r\nTODAY QUELLOR=4\r\nTODAY VALIDATIONS=1\r\n"
      "TODAY PURGED=0\r\nDOMAIN=x.org:12\r\nDOMAIN=y.org: 0\r\n");
}

TEST(StateDump, ReplyThenCountersThenListsInOrder) {
  WindowModel w;
  w.invalid.Set("2");
  w.todayinvalid.Set("1");
  w.total.Set("0");
  w.kelpo.Set("5");
  w.domainlist.Add("x.org:1");
  w.outlist.Add("x.org:3");
  w.List1.Add("postmaster@x.org");
  w.List2.Add("e1");
  w.List2.Add("e2");
  w.List3.Add("w1");
  w.purgedlist.Add("p1");
  const std::string dump = BuildStateDump(w);
  const std::string reply = BuildStatusReply(w);
  ASSERT_EQ(dump.substr(0, reply.size()), reply);
  EXPECT_EQ(
      dump.substr(reply.size()),
      "INVALID=2\r\nTODAY INVALID=1\r\nIN QUEUE=0\r\nHEADER=5\r\nOUTDOMAIN=x.org:3\r\n"
      "POSTMASTER=postmaster@x.org\r\nEVENT=e1\r\nEVENT=e2\r\nWARNING=w1\r\nPURGEDLIST=p1\r\n");
}

}  // namespace
}  // namespace quellor
