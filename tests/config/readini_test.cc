#include "config/readini.h"

#include <gtest/gtest.h>

#include <string>

#include "platform/names.h"
#include "support/table.h"
#include "support/temp_tree.h"

namespace quellor {
namespace {

// The settings as one comparable text.
std::string Show(const Settings& s) {
  return "listening=" + std::to_string(s.listening_port) +
         " server_port=" + std::to_string(s.server_port) +
         " gateway_port=" + std::to_string(s.gateway_port) + " server=[" + s.server +
         "] gateway=[" + s.gateway + "] postmasters=[" + s.postmasters + "] method=[" +
         s.validation_method + "] domains=[" + s.domains_auto + "] users=[" + s.users_auto +
         "] log=[" + s.log + "] debug=[" + s.debug +
         "] safe=" + (s.SafeDeliveryOn() ? "on" : "off") +
         " filter=" + (s.ChallengeFilterOn() ? "on" : "off") +
         " pacing=" + std::to_string(s.MessagesPerPass()) + "/" +
         std::to_string(s.MessagePauseMs());
}

// quellor.ini (any case of its name; "-" for none) -> the settings, the error log, the retries.
// Every value but LOG and DEBUG is read afresh: the leftovers of an earlier reading go.
TEST(ReadIni, Table) {
  testing::CheckTable("readini", [](const auto& f) {
    testing::TempTree t;
    if (f[0] != "-") t.Write("QUELLOR.INI", f[0]);
    ForgetNameIndexes();
    Settings& s = t.ctx.settings;
    s.server = s.postmasters = "old";
    s.listening_port = 99;
    s.safe_delivery = s.challenge_filter = "ON";
    s.messages_per_pass = s.message_pause = "7";
    s.log = s.debug = "earlier";
    readini(t.ctx);
    return Show(s) + "\n" + t.Read("LOG/system.log") + "sleeps " +
           std::to_string(t.sleeper.count());
  });
}

}  // namespace
}  // namespace quellor
