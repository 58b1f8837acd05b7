// quellorctl as an administrator runs it: the built program on a temporary installation tree.
#include "e2e/ctl.h"

#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cctype>
#include <cstdio>
#include <filesystem>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

#include "config/readini.h"
#include "platform/clock.h"

namespace quellor::testing {
namespace {

// Every line ends with CR LF: no CR without LF, no LF without CR.
bool AllCrLf(std::string_view bytes) {
  for (size_t i = 0; i < bytes.size(); ++i) {
    if (bytes[i] == '\r' && (i + 1 == bytes.size() || bytes[i + 1] != '\n')) return false;
    if (bytes[i] == '\n' && (i == 0 || bytes[i - 1] != '\r')) return false;
  }
  return true;
}

constexpr const char* kFolders[] = {"IN",    "LOCAL",  "OUT", "WAIT",  "DEBUG",
                                    "Users", "SYSTEM", "LOG", "DEFER", "LOG/quellor"};
constexpr const char* kFiles[] = {"quellor.ini",
                                  "DOMAIN.LST",
                                  "SYSTEM/validation.txt",
                                  "SYSTEM/validation.htm",
                                  "SYSTEM/validation_foot.txt",
                                  "SYSTEM/validation_foot.htm",
                                  "SYSTEM/NEW_USER.CONF"};

TEST(CtlInit, CreatesACompleteTreeAndNeverOverwrites) {
  TempTree tree;
  const std::string root = tree.Path("site/");

  // First with DIR on the command line, then again with QUELLOR_ROOT only.
  CtlResult first = Ctl(tree, "/nonexistent", "init '" + root + "'");
  ASSERT_EQ(first.status, 0) << first.err;
  for (const char* folder : kFolders) {
    EXPECT_TRUE(std::filesystem::is_directory(root + folder)) << folder;
    EXPECT_NE(first.out.find("created " + root + folder + "/\n"), std::string::npos) << folder;
  }
  for (const char* file : kFiles) {
    EXPECT_NE(first.out.find("created " + root + file + "\n"), std::string::npos) << file;
    // Text files of the installation end every line with CR LF.
    const std::string bytes = tree.Read(std::string("site/") + file);
    EXPECT_TRUE(AllCrLf(bytes)) << file;
  }
  EXPECT_EQ(tree.Read("site/DOMAIN.LST"), "");

  // The commented configuration reads as the documented defaults.
  FakeClock clock;
  RecordingSleeper sleeper;
  Context ctx(root, clock, sleeper);
  ctx.settings.log = "x";
  ctx.settings.debug = "x";
  readini(ctx);
  EXPECT_EQ(ctx.settings.postmasters, "");
  EXPECT_EQ(ctx.settings.domains_auto, "NO");
  EXPECT_EQ(ctx.settings.users_auto, "NO");
  EXPECT_EQ(ctx.settings.log, "ON");
  EXPECT_EQ(ctx.settings.debug, "OFF");
  EXPECT_FALSE(tree.Exists("site/LOG/system.log"));

  // The mode is searched anywhere in a line: only the one setting line may carry it.
  std::vector<std::string> mode_lines;
  for (const std::string& line : tree.ReadLines("site/SYSTEM/NEW_USER.CONF")) {
    std::string upper = line;
    for (char& c : upper) c = static_cast<char>(std::toupper(static_cast<unsigned char>(c)));
    if (upper.find("MODE=") != std::string::npos) mode_lines.push_back(line);
    EXPECT_NE(upper, "VALIDATION=OFF");
  }
  EXPECT_EQ(mode_lines, std::vector<std::string>{"MODE=QUELLOR"});
  for (const char* name : {"validation.txt", "validation.htm"}) {
    EXPECT_NE(tree.Read(std::string("site/SYSTEM/") + name).find("$email"), std::string::npos);
  }

  // An edited file, and one kept under another letter case, survive; a missing one returns.
  tree.Write("site/quellor.ini", "LOG=OFF\r\n");
  std::filesystem::rename(root + "DOMAIN.LST", root + "domain.lst");
  tree.Remove("site/SYSTEM/validation.htm");
  CtlResult again = Ctl(tree, root, "init");
  ASSERT_EQ(again.status, 0) << again.err;
  EXPECT_EQ(tree.Read("site/quellor.ini"), "LOG=OFF\r\n");
  EXPECT_NE(again.out.find("kept " + root + "quellor.ini\n"), std::string::npos);
  EXPECT_NE(again.out.find("kept " + root + "domain.lst\n"), std::string::npos);
  EXPECT_FALSE(std::filesystem::exists(root + "DOMAIN.LST"));
  EXPECT_NE(again.out.find("created " + root + "SYSTEM/validation.htm\n"), std::string::npos);
  EXPECT_EQ(again.out.find("created " + root + "IN/"), std::string::npos);

  // A file where a folder belongs is reported, not replaced.
  tree.Write("blocked/IN", "x");
  CtlResult blocked = Ctl(tree, tree.Path("blocked"), "init");
  EXPECT_EQ(blocked.status, 1);
  EXPECT_NE(blocked.err.find("IN: exists and is not a folder"), std::string::npos);
  EXPECT_EQ(tree.Read("blocked/IN"), "x");
}

// The state dump with its start-up time checked and taken out.
std::string DumpAfterStartTime(const std::string& dump) {
  const std::string key = "START UP TIME=";
  const size_t end = dump.find("\r\n");
  const bool ok = dump.starts_with(key) && end != std::string::npos &&
                  HasShape(dump.substr(key.size(), end - key.size()), "99 Aaa 9999 99:99:99");
  EXPECT_TRUE(ok) << dump;
  return ok ? dump.substr(end + 2) : dump;
}

TEST(CtlPass, RoutesForwardLearnWhiteListedAndHeldRecipients) {
  TempTree tree;
  ASSERT_EQ(Ctl(tree, tree.root(), "init").status, 0);  // the request templates
  tree.WriteLines("quellor.ini", {"POSTMASTERS=pm@y.net", "LOG=ON"});
  tree.WriteLines("DOMAIN.LST", {"x.org"});
  tree.WriteLines("Users/learner@x.org.CONF", {"MODE=LEARN"});
  tree.WriteLines("Users/prot@x.org.CONF", {"MODE=QUELLOR"});
  tree.WriteLines("Users/prot@x.org.WLT", {"friend@y.net"});
  Drop(tree, "20261116100000101", "friend@y.net", "prot@x.org", "Lunch");
  Drop(tree, "20261116100000102", "unknown@z.net", "prot@x.org", "Offer");
  Drop(tree, "20261116100000103", "unknown@z.net", "learner@x.org", "Hello");
  Drop(tree, "20261116100000104", "colleague@x.org", "fwd@x.org", "Minutes");

  CtlResult r = Ctl(tree, tree.root(), "pass --no-pause");
  ASSERT_EQ(r.status, 0) << r.err;
  EXPECT_EQ(DumpAfterStartTime(r.out),
            "FORWARD=1\r\nLEARN=1\r\nQUELLOR=2\r\nVALIDATIONS=0\r\nPURGED=0\r\n"
            "TODAY FORWARD=1\r\nTODAY LEARN=1\r\nTODAY QUELLOR=2\r\nTODAY VALIDATIONS=0\r\n"
            "TODAY PURGED=0\r\nDOMAIN=x.org:4\r\n"
            "INVALID=0\r\nTODAY INVALID=0\r\nIN QUEUE=0\r\nHEADER=0\r\n"
            "OUTDOMAIN=x.org:1\r\nPOSTMASTER=pm@y.net\r\n");
  EXPECT_EQ(DayLogLines(tree, "LOG", ".log", " "),
            (std::vector<std::string>{
                "Received     - <friend@y.net> to <prot@x.org> - found in white list",
                "Delayed - <unknown@z.net> to <prot@x.org> - wait for validation",
                "Received     - <unknown@z.net> to <learner@x.org> - learn mode",
                "Received     - <colleague@x.org> to <fwd@x.org> - protection off"}));
  EXPECT_FALSE(tree.Exists("LOG/system.log")) << tree.Read("LOG/system.log");
  EXPECT_TRUE(tree.List("IN").empty());

  // The files each route writes are pinned byte for byte by the spool's golden cases.
  EXPECT_EQ(tree.List("LOCAL").size(), 6u);
  EXPECT_EQ(tree.List("OUT").size(), 2u);
  EXPECT_TRUE(tree.Exists("WAIT/prot@x.org/20261116100000102.EML"));
  EXPECT_EQ(tree.ReadLines("Users/learner@x.org.LRN"), std::vector<std::string>{"unknown@z.net"});
}

TEST(CtlPass, OnePassTakesFortyAndAllEmptiesTheQueue) {
  TempTree tree;
  for (int i = 0; i < 45; ++i) {
    Drop(tree, "2026111610000" + std::to_string(1000 + i), "a@y.net", "fwd@x.org", "m");
  }
  const std::string tail =
      "TODAY LEARN=0\r\nTODAY QUELLOR=0\r\nTODAY VALIDATIONS=0\r\nTODAY PURGED=0\r\n"
      "INVALID=0\r\nTODAY INVALID=0\r\nIN QUEUE=0\r\nHEADER=0\r\n";
  CtlResult one = Ctl(tree, tree.root(), "pass --no-pause");
  ASSERT_EQ(one.status, 0) << one.err;
  EXPECT_EQ(DumpAfterStartTime(one.out),
            "FORWARD=40\r\nLEARN=0\r\nQUELLOR=0\r\nVALIDATIONS=0\r\n"
            "PURGED=0\r\nTODAY FORWARD=40\r\n" +
                tail);
  EXPECT_EQ(tree.List("IN").size(), 10u);

  CtlResult all = Ctl(tree, tree.root(), "pass --all --no-pause");
  ASSERT_EQ(all.status, 0) << all.err;
  EXPECT_EQ(DumpAfterStartTime(all.out),
            "FORWARD=5\r\nLEARN=0\r\nQUELLOR=0\r\nVALIDATIONS=0\r\n"
            "PURGED=0\r\nTODAY FORWARD=5\r\n" +
                tail);
  EXPECT_TRUE(tree.List("IN").empty());
  EXPECT_EQ(tree.List("LOCAL").size(), 90u);

  CtlResult missing = Ctl(tree, tree.Path("nothing-here"), "pass");
  EXPECT_EQ(missing.status, 1);
  EXPECT_NE(missing.err.find("no installation at"), std::string::npos);
}

// A one-shot server on a free loopback port that sends `reply` to its first client.
class OneShotServer {
 public:
  explicit OneShotServer(std::string reply) {
    fd_ = socket(AF_INET, SOCK_STREAM, 0);
    sockaddr_in a{};
    a.sin_family = AF_INET;
    a.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t len = sizeof a;
    bind(fd_, reinterpret_cast<sockaddr*>(&a), len);
    getsockname(fd_, reinterpret_cast<sockaddr*>(&a), &len);
    port_ = ntohs(a.sin_port);
    listen(fd_, 1);
    thread_ = std::thread([this, reply = std::move(reply)] {
      const int client = accept(fd_, nullptr, nullptr);
      if (client >= 0) {
        (void)!write(client, reply.data(), reply.size());
        close(client);
      }
    });
  }
  ~OneShotServer() {
    shutdown(fd_, SHUT_RDWR);
    thread_.join();
    close(fd_);
  }
  int port() const { return port_; }

 private:
  int fd_;
  int port_ = 0;
  std::thread thread_;
};

TEST(CtlStatus, PrintsTheReplyAndFailsClearlyWithoutAService) {
  TempTree tree;
  const std::string reply = "START UP TIME=16 Nov 2026 08:05:09\r\nFORWARD=132\r\n";
  {
    OneShotServer server(reply);
    CtlResult r = Ctl(tree, tree.root(), "status 127.0.0.1 " + std::to_string(server.port()));
    EXPECT_EQ(r.status, 0) << r.err;
    EXPECT_EQ(r.out, reply);
  }
  {
    OneShotServer server(reply);
    CtlResult r =
        Ctl(tree, tree.root(), "status", "QUELLOR_STATUS_PORT=" + std::to_string(server.port()));
    EXPECT_EQ(r.status, 0) << r.err;
    EXPECT_EQ(r.out, reply);
  }
  int closed_port;
  { closed_port = OneShotServer("").port(); }
  CtlResult refused = Ctl(tree, tree.root(), "status 127.0.0.1 " + std::to_string(closed_port));
  EXPECT_EQ(refused.status, 1);
  EXPECT_EQ(refused.out, "");
  EXPECT_NE(refused.err.find("cannot connect to 127.0.0.1 port " + std::to_string(closed_port)),
            std::string::npos)
      << refused.err;
  EXPECT_EQ(Ctl(tree, tree.root(), "status 127.0.0.1 99999").status, 2);
}

}  // namespace
}  // namespace quellor::testing
