// The built programs as an administrator runs them, on temporary installation trees: quellorctl
// init and pass; the quellor program's command line, its unit files, and a -debug run that takes
// mail dropped into IN/, answers `quellorctl status` and ends cleanly on SIGTERM.
#include "e2e/ctl.h"

#include <gtest/gtest.h>
#include <signal.h>
#include <sys/wait.h>

#include <algorithm>
#include <cctype>
#include <filesystem>
#include <set>
#include <string>
#include <string_view>
#include <vector>

#include "config/readini.h"
#include "platform/clock.h"
#include "service/unit_files.h"
#include "support/process.h"
#include "support/temp_tree.h"

namespace quellor::testing {
namespace {

// A status reply or state dump with its start-up time checked and taken out.
std::string AfterStartTime(const std::string& dump) {
  const size_t end = dump.find("\r\n");
  const bool ok = HasShape(dump.substr(0, end), "START UP TIME=99 Aaa 9999 99:99:99");
  EXPECT_TRUE(ok && end != std::string::npos) << dump;
  return ok ? dump.substr(end + 2) : dump;
}

// The day logs of `folder` ("dd-mm-yyyy<ext>", oldest first: a run across midnight writes
// two), each line's time of day, "hh:mm:ss" and a blank, taken out.
std::string DayLogs(const TempTree& tree, const std::string& folder, const std::string& ext) {
  std::vector<std::filesystem::directory_entry> days;
  for (const auto& entry : std::filesystem::directory_iterator(tree.Path(folder))) {
    if (HasShape(entry.path().filename().string(), "99-99-9999" + ext)) days.push_back(entry);
  }
  std::ranges::sort(days, {}, [](const auto& e) { return e.last_write_time(); });
  std::string text, out;
  for (const auto& day : days) text += ReadFile(day.path());
  for (size_t at = 0, end; at < text.size(); at = end + 1) {
    end = std::min(text.find('\n', at), text.size());
    const std::string line = text.substr(at, end + 1 - at);
    out += HasShape(line.substr(0, 9), "99:99:99 ") ? line.substr(9) : line;
  }
  return out;
}

namespace fs = std::filesystem;

// `text` without `root`, then every folder ("/" after) and file (with its size) under `root`.
// Text files of the installation end every line with CR LF.
std::string Outcome(std::string text, const std::string& root) {
  for (size_t at; (at = text.find(root)) != std::string::npos;) text.erase(at, root.size());
  std::set<std::string> entries;
  for (const auto& e : fs::recursive_directory_iterator(root)) {
    const std::string name = e.path().string().substr(root.size());
    entries.insert(e.is_directory() ? name + "/" : name + " " + std::to_string(e.file_size()));
    const std::string bytes = e.is_directory() ? "" : ReadFile(e.path());
    for (size_t i = 0; i < bytes.size(); ++i) {
      EXPECT_EQ(bytes[i] == '\r', i + 1 < bytes.size() && bytes[i + 1] == '\n') << name;
      EXPECT_EQ(bytes[i] == '\n', i > 0 && bytes[i - 1] == '\r') << name;
    }
  }
  for (const std::string& e : entries) text += "-- " + e + "\n";
  return text;
}

TEST(CtlInit, CreatesACompleteTreeAndNeverOverwrites) {
  TempTree tree;
  const std::string root = tree.Path("site/");
  // First with DIR on the command line, then again with QUELLOR_ROOT only.
  CtlResult first = Ctl(tree, "/nonexistent", "init '" + root + "'");
  ASSERT_EQ(first.status, 0) << first.err;
  CheckGolden("e2e/init_first.txt", Outcome(first.out, root));

  // The commented configuration reads as the documented defaults.
  FakeClock clock;
  RecordingSleeper sleeper;
  Context ctx(root, clock, sleeper);
  ctx.settings.log = ctx.settings.debug = "x";
  readini(ctx);
  const Settings& s = ctx.settings;
  EXPECT_EQ(s.postmasters + "|" + s.domains_auto + "|" + s.users_auto + "|" + s.log + "|" +
                s.debug + "|" + std::to_string(s.MessagesPerPass()) + "|" + s.messages_per_pass +
                "|" + std::to_string(s.MessagePauseMs()) + "|" + s.message_pause,
            "|NO|NO|ON|OFF|40|40|100|100");
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
  fs::rename(root + "DOMAIN.LST", root + "domain.lst");
  tree.Remove("site/SYSTEM/validation.htm");
  CtlResult again = Ctl(tree, root, "init");
  ASSERT_EQ(again.status, 0) << again.err;
  CheckGolden("e2e/init_again.txt", Outcome(again.out, root));
  EXPECT_EQ(tree.Read("site/quellor.ini"), "LOG=OFF\r\n");

  // A file where a folder belongs is reported, not replaced.
  tree.Write("blocked/IN", "x");
  CtlResult blocked = Ctl(tree, tree.Path("blocked"), "init");
  EXPECT_EQ(blocked.status, 1);
  EXPECT_NE(blocked.err.find("IN: exists and is not a folder"), std::string::npos);
  EXPECT_EQ(tree.Read("blocked/IN"), "x");
}

// The state dump of `quellorctl <args>` after its start-up time; with `logs`, then the lines
// logged so far.
std::string Pass(const TempTree& tree, const std::string& args, bool logs = true) {
  const CtlResult r = Ctl(tree, tree.root(), args);
  EXPECT_EQ(r.status, 0) << r.err;
  std::string out = AfterStartTime(r.out);
  if (!logs) return out;
  out += "--\n";
  return out + DayLogs(tree, "LOG", ".log") + DayLogs(tree, "LOG/quellor", ".iwr") +
         tree.Read("LOG/system.log");
}

// The subject of the request in OUT/ that names the held message `stem`.
std::string RequestSubject(const TempTree& tree, const std::string& stem) {
  for (const std::string& name : tree.List("OUT")) {
    if (!name.ends_with(".EML")) continue;
    const std::string text = tree.Read("OUT/" + name);
    const size_t at = text.find("\r\nSubject: ") + 11, end = text.find("\r\n", at);
    if (text.substr(at, end - at).ends_with(" // Request-ID:" + stem))
      return text.substr(at, end - at);
  }
  return "";
}

// The challenge-response cycle through the real program on an installation made by `init`: the
// files each step writes are pinned byte for byte by the spool's golden cases.
TEST(CtlPass, RoutesThenAReplyReleasesAndABounceQuotingTheRequestPurges) {
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
  Drop(tree, "20261116100000105", "spammer@z.net", "prot@x.org", "Buy now");
  CheckGolden("e2e/pass_routes.txt", Pass(tree, "pass --no-pause"));
  EXPECT_TRUE(tree.List("IN").empty());
  EXPECT_EQ(tree.List("LOCAL").size(), 6u);
  EXPECT_EQ(tree.List("OUT").size(), 4u);
  EXPECT_TRUE(tree.Exists("WAIT/prot@x.org/20261116100000102.EML"));
  EXPECT_EQ(tree.ReadLines("Users/learner@x.org.LRN"), std::vector<std::string>{"unknown@z.net"});

  // The held sender replies with its request's subject; the reply also names an unconfigured
  // local user, who gets nothing: a consumed reply is never delivered. The postmaster bounces
  // the other request, quoting it in a body without a subject of its own.
  const std::string subject = RequestSubject(tree, "20261116100000102");
  EXPECT_EQ(subject, "Rq:Offer // Request-ID:20261116100000102");
  tree.Write("IN/20261116110000201.EML",
             "From: <unknown@z.net>\r\nSubject: Re: " + subject + "\r\n\r\nYes.\r\n");
  tree.WriteLines("IN/20261116110000201.WAI", {"unknown@z.net", "prot@x.org", "fwd@x.org"});
  tree.Write("IN/20261116110000202.EML", "From: <pm@y.net>\r\n\r\nReturned:\r\nSubject: " +
                                             RequestSubject(tree, "20261116100000105") + "\r\n");
  tree.WriteLines("IN/20261116110000202.WAI", {"pm@y.net", "prot@x.org"});
  CheckGolden("e2e/pass_replies.txt", Pass(tree, "pass --no-pause"));
  EXPECT_EQ(tree.List("LOCAL").size(), 8u);
  for (const std::string& name : tree.List("WAIT/prot@x.org")) EXPECT_EQ(name, "stats.log");
  EXPECT_EQ(tree.ReadLines("Users/prot@x.org.WLT"),
            (std::vector<std::string>{"friend@y.net", "unknown@z.net"}));
  EXPECT_EQ(tree.List("OUT").size(), 4u);  // neither reply nor bounce is challenged

  // The sender's next message goes straight through.
  Drop(tree, "20261116120000301", "unknown@z.net", "prot@x.org", "Again");
  CheckGolden("e2e/pass_next.txt", Pass(tree, "pass --no-pause"));
  EXPECT_EQ(tree.List("LOCAL").size(), 10u);
}

TEST(CtlPass, OnePassTakesFortyAndAllEmptiesTheQueue) {
  TempTree tree;
  for (int i = 0; i < 45; ++i) {
    Drop(tree, "2026111610000" + std::to_string(1000 + i), "a@y.net", "fwd@x.org", "m");
  }
  std::string both = Pass(tree, "pass --no-pause", false);
  EXPECT_EQ(tree.List("IN").size(), 10u);
  both += Pass(tree, "pass --all --no-pause", false);
  CheckGolden("e2e/pass_forty.txt", both);
  EXPECT_TRUE(tree.List("IN").empty());
  EXPECT_EQ(tree.List("LOCAL").size(), 90u);

  CtlResult missing = Ctl(tree, tree.Path("nothing-here"), "pass");
  EXPECT_EQ(missing.status, 1);
  EXPECT_NE(missing.err.find("no installation at"), std::string::npos);
}

const std::string kQuellor = " '" QUELLOR_BINARY_DIR "/quellor' ";

TEST(QuellorProgram, CommandLineInstallAndUninstall) {
  TempTree units;
  const std::string root = units.root() + "spool/";
  const std::string env = "QUELLOR_UNIT_DIR='" + units.root() + "' QUELLOR_ROOT='" + root + "'";
  std::string out;
  EXPECT_EQ(Sh(env + kQuellor + "-INSTALL 2>&1", &out), 2);
  EXPECT_EQ(out, "Invalid command option\n");
  EXPECT_FALSE(units.Exists("Quellor_Quellor.service"));
  // A unit folder that does not exist: no registration, so no parameters either.
  EXPECT_EQ(Sh("QUELLOR_UNIT_DIR='" + units.Path("none/") + "' QUELLOR_ROOT='" + root + "'" +
               kQuellor + "-install 2>&1"),
            1);
  EXPECT_FALSE(units.Exists("none"));

  ASSERT_EQ(Sh(env + kQuellor + "-install 2>&1", &out), 0);
  EXPECT_EQ(out, "");
  EXPECT_EQ(units.Read("Quellor_Quellor.service"),
            "[Unit]\nDescription=Spam Quellor - Quellor\n\n[Service]\nType=notify\n"
            "Environment=QUELLOR_ROOT=" +
                root + "\nExecStart=" QUELLOR_BINARY_DIR "/quellor\n" +
                *ConfinementText(root, ServiceUserIfPresent()) +
                "\n[Install]\nWantedBy=multi-user.target\n");
  EXPECT_EQ(units.Read("Quellor_Quellor.service.d/parameters.conf"), ParametersText());
  EXPECT_NE(ParametersText().find("\nTimerInterval=1000\n"), std::string::npos);

  ASSERT_EQ(Sh(env + kQuellor + "-uninstall"), 0);
  EXPECT_FALSE(units.Exists("Quellor_Quellor.service"));
  EXPECT_FALSE(units.Exists("Quellor_Quellor.service.d"));
}

TEST(QuellorProgram, DebugRunPassesDroppedMailAnswersStatusAndStopsOnSigterm) {
  TempTree tree;
  tree.Write("quellor.ini", "LOG=ON\r\nDEBUG=OFF\r\n");
  const std::string port = std::to_string(FreePort()), err = tree.Path("quellor.err");
  struct Running {
    int pid;
    ~Running() {
      if (pid > 0) kill(pid, SIGKILL), waitpid(pid, nullptr, 0);
    }
  } program{Spawn({"/usr/bin/env", "QUELLOR_ROOT=" + tree.root(), "QUELLOR_STATUS_PORT=" + port,
                   "QUELLOR_WINDOW_PORT=" + std::to_string(FreePort()),
                   QUELLOR_BINARY_DIR "/quellor", "-debug"},
                  err)};
  ASSERT_GT(program.pid, 0);
  // The Start event's entry, echoed on standard error, comes once start-up is over.
  ASSERT_TRUE(WaitUntil([&] {
    return ReadFile(err).find("[type 109, id 1] [0] \n") != std::string::npos;
  })) << ReadFile(err);

  tree.WriteLines("IN/20261116100000001.WAI", {"alice@far.example", "bob@x.org"});
  tree.Write("IN/20261116100000001.EML",
             "From: alice@far.example\r\nTo: bob@x.org\r\nSubject: hi\r\n\r\nHello.\r\n");
  EXPECT_TRUE(WaitUntil([&] { return tree.List("IN").empty() && tree.List("LOCAL").size() == 2; }))
      << tree.Read("LOG/system.log");

  // The Start command opened the status port, named on the command line or in the environment.
  const CtlResult named = Ctl(tree, tree.root(), "status 127.0.0.1 " + port);
  EXPECT_EQ(named.status, 0) << named.err;
  CheckGolden("e2e/debug_run_status.txt", AfterStartTime(named.out));
  EXPECT_EQ(Ctl(tree, tree.root(), "status", "QUELLOR_STATUS_PORT=" + port).out, named.out);

  kill(program.pid, SIGTERM);
  int status = -1;
  waitpid(program.pid, &status, 0);
  program.pid = -1;
  EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0) << status;
  EXPECT_TRUE(ReadFile(err).ends_with("Quellor_Quellor [type 109, id 1] [0] \n")) << ReadFile(err);

  // Nothing answers any more; a port out of range is a usage error.
  const CtlResult refused = Ctl(tree, tree.root(), "status 127.0.0.1 " + port);
  EXPECT_EQ(refused.status, 1);
  EXPECT_EQ(refused.out, "");
  EXPECT_NE(refused.err.find("cannot connect to 127.0.0.1 port " + port), std::string::npos)
      << refused.err;
  EXPECT_EQ(Ctl(tree, tree.root(), "status 127.0.0.1 99999").status, 2);
}

}  // namespace
}  // namespace quellor::testing
