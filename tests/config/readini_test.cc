#include "config/readini.h"

#include <gtest/gtest.h>

#include <functional>
#include <string>
#include <vector>

#include "platform/names.h"
#include "support/temp_tree.h"

namespace quellor {
namespace {

using testing::TempTree;

// The settings as one comparable text.
std::string Show(const Settings& s) {
  return "listening=" + std::to_string(s.listening_port) +
         " server_port=" + std::to_string(s.server_port) +
         " gateway_port=" + std::to_string(s.gateway_port) + " server=[" + s.server +
         "] gateway=[" + s.gateway + "] postmasters=[" + s.postmasters + "] method=[" +
         s.validation_method + "] domains=[" + s.domains_auto + "] users=[" + s.users_auto +
         "] log=[" + s.log + "] debug=[" + s.debug +
         "] pacing=" + std::to_string(s.MessagesPerPass()) + "/" +
         std::to_string(s.MessagePauseMs());
}

struct Case {
  const char* name;
  std::string file;
  std::function<void(Settings&)> expect;  // changes to the defaults
};

TEST(ReadIni, Lines) {
  const Case cases[] = {
      {"empty file", "", [](Settings&) {}},
      {"unknown keys, comments, sections",
       "[main]\r\n;LOG=OFF\r\nFOO=1\r\n LOG=OFF\r\nLOG =OFF\r\n", [](Settings&) {}},
      {"example file",
       "POSTMASTERS=postmaster@x.org, mailer-daemon@x.org\r\nDOMAINS_AUTO=YES\r\n"
       "users_auto=yes\r\nLOG=OFF\r\nDEBUG=ON\r\nLISTENING_PORT=25\r\n",
       [](Settings& s) {
         s.postmasters = "postmaster@x.org, mailer-daemon@x.org";
         s.domains_auto = "YES";
         s.users_auto = "yes";
         s.log = "OFF";
         s.debug = "ON";
         s.listening_port = 25;
       }},
      {"values trimmed of blanks only, case kept", "DEBUG=  ON  \r\nlog=on\r\nSERVER=\tmx \t\r\n",
       [](Settings& s) {
         s.debug = "ON";
         s.log = "on";
         s.server = "\tmx \t";
       }},
      {"last line wins", "POSTMASTERS=a@x\r\nPOSTMASTERS=b@x\r\nSERVER=one\r\nSERVER=\r\n",
       [](Settings& s) { s.postmasters = "b@x"; }},
      {"every key, ports rounded half to even or read from a prefix",
       "SERVER_PORT=25.5\r\nGATEWAY_PORT=24.5\r\nGATEWAY=gw\r\nVALIDATION_METHOD=M\r\n"
       "LISTENING_PORT=&H1F\r\n",
       [](Settings& s) {
         s.server_port = 26;
         s.gateway_port = 24;
         s.gateway = "gw";
         s.validation_method = "M";
         s.listening_port = 31;
       }},
      {"line ends of CR alone", "SERVER=a\rGATEWAY=b\r",
       [](Settings& s) {
         s.server = "a";
         s.gateway = "b";
       }},
      {"last line without its end", "DEBUG=ON", [](Settings& s) { s.debug = "ON"; }},
      {"pacing", "messages_per_pass=400\r\nMESSAGE_PAUSE= 0 \r\n",
       [](Settings& s) {
         s.messages_per_pass = "400";
         s.message_pause = "0";
       }},
      {"pacing out of range or not whole: the defaults",
       "MESSAGES_PER_PASS=0\r\nMESSAGE_PAUSE=32768\r\nMESSAGE_PAUSE=1.5\r\n",
       [](Settings& s) { s.messages_per_pass = "0"; }},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    TempTree t;
    t.Write("QUELLOR.INI", c.file);
    ForgetNameIndexes();
    // Leftovers of an earlier reading are reset; LOG and DEBUG are not.
    t.ctx.settings.server = "old";
    t.ctx.settings.listening_port = 99;
    readini(t.ctx);
    Settings want;
    c.expect(want);
    EXPECT_EQ(Show(t.ctx.settings), Show(want));
    EXPECT_FALSE(t.Exists("LOG/system.log"));
    EXPECT_EQ(t.sleeper.count(), 0);
  }
}

TEST(ReadIni, OverflowingPortIsLoggedAndSkipped) {
  TempTree t;
  t.Write("quellor.ini",
          "LISTENING_PORT=25\r\nLISTENING_PORT=70000\r\nSERVER_PORT=-32769\r\n"
          "GATEWAY_PORT=32767\r\nSERVER=after\r\n");
  ForgetNameIndexes();
  readini(t.ctx);
  EXPECT_EQ(t.ctx.settings.listening_port, 25);
  EXPECT_EQ(t.ctx.settings.server_port, 0);
  EXPECT_EQ(t.ctx.settings.gateway_port, 32767);
  EXPECT_EQ(t.ctx.settings.server, "after");
  EXPECT_EQ(
      t.ReadLines("LOG/system.log"),
      std::vector<std::string>(2, "16/11/2026 10:00:00 : Quellor - readini - # 6 - Overflow"));
}

TEST(ReadIni, MissingFileEndsTheReadingAndKeepsTheValues) {
  TempTree t;
  t.ctx.settings.log = "OFF";
  t.ctx.settings.debug = "ON";
  t.ctx.settings.postmasters = "old@x";
  readini(t.ctx);
  EXPECT_EQ(t.ctx.settings.postmasters, "");
  EXPECT_EQ(t.ctx.settings.log, "OFF");
  EXPECT_EQ(t.ctx.settings.debug, "ON");
  EXPECT_EQ(t.sleeper.count(), 8);  // the open was retried
  // The first use of the unopened file is reported once, and the reading ends.
  std::vector<std::string> errors = t.ReadLines("LOG/system.log");
  ASSERT_EQ(errors.size(), 1u);
  EXPECT_EQ(errors[0].substr(22), "Quellor - readini - # 52 - Bad file name or number");
}

}  // namespace
}  // namespace quellor
