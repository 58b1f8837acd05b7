// The built programs as an administrator runs them, on temporary installation trees: quellorctl
// init and pass; held, release and drop (a release does what a validation reply does, a drop what
// a bounce of the request does, refusals touch nothing, and neither runs in the middle of a
// pass); the quellor program's command line, its unit files, and a -debug run that takes mail
// dropped into IN/, answers `quellorctl status` and ends cleanly on SIGTERM.
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/wait.h>

#include <algorithm>
#include <cctype>
#include <cstdio>
#include <filesystem>
#include <set>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

#include "config/readini.h"
#include "platform/clock.h"
#include "platform/tree_lock.h"
#include "service/unit_files.h"
#include "support/process.h"
#include "support/table.h"
#include "support/temp_tree.h"

namespace quellor::testing {
namespace {

struct CtlResult {
  int status = -1;
  std::string out;
  std::string err;
};

// `quellorctl <args>` with QUELLOR_ROOT=`root` and any further VAR=value words in `env`.
CtlResult Ctl(const TempTree& tree, const std::string& root, const std::string& args,
              const std::string& env = "") {
  CtlResult r;
  r.status = Sh("env QUELLOR_ROOT='" + root + "' " + env + " '" QUELLOR_BINARY_DIR "/quellorctl' " +
                    args + " 2>'" + tree.Path("ctl.err") + "'",
                &r.out);
  r.err = tree.Read("ctl.err");
  return r;
}

// A pair in IN/: message file first, then the envelope.
void Drop(const TempTree& tree, const std::string& stem, const std::string& sender,
          const std::string& recipient, const std::string& subject) {
  tree.Write("IN/" + stem + ".EML", "From: <" + sender + ">\r\nTo: <" + recipient +
                                        ">\r\nSubject: " + subject + "\r\n\r\nBody of " + stem +
                                        "\r\n");
  tree.WriteLines("IN/" + stem + ".WAI", {sender, recipient});
}

// True when `text` has the shape of `form`: "9" a digit, "A" a capital, "a" a small letter,
// any other character itself.
bool HasShape(std::string_view text, std::string_view form) {
  if (text.size() != form.size()) return false;
  for (size_t i = 0; i < form.size(); ++i) {
    const unsigned char c = static_cast<unsigned char>(text[i]);
    const bool ok = form[i] == '9'   ? std::isdigit(c) != 0
                    : form[i] == 'A' ? std::isupper(c) != 0
                    : form[i] == 'a' ? std::islower(c) != 0
                                     : text[i] == form[i];
    if (!ok) return false;
  }
  return true;
}

// The lines of the day logs of `folder` ("dd-mm-yyyy<ext>", oldest first: a run across midnight
// writes two) after their time of day, which must be "hh:mm:ss" followed by `gap`.
std::vector<std::string> DayLogLines(const TempTree& tree, const std::string& folder,
                                     const std::string& ext, const std::string& gap) {
  std::vector<std::filesystem::path> days;
  for (const auto& entry : std::filesystem::directory_iterator(tree.Path(folder))) {
    if (HasShape(entry.path().filename().string(), "99-99-9999" + ext)) days.push_back(entry);
  }
  std::sort(days.begin(), days.end(), [](const auto& a, const auto& b) {
    return std::filesystem::last_write_time(a) < std::filesystem::last_write_time(b);
  });
  std::vector<std::string> lines;
  for (const auto& day : days) {
    const std::string name = folder + "/" + day.filename().string();
    EXPECT_TRUE(tree.Read(name).ends_with("\r\n")) << name;
    for (const std::string& line : tree.ReadLines(name)) {
      EXPECT_TRUE(HasShape(line.substr(0, 8 + gap.size()), "99:99:99" + gap)) << line;
      lines.push_back(line.substr(std::min(line.size(), 8 + gap.size())));
    }
  }
  return lines;
}

// A status reply or state dump with its start-up time checked and taken out.
std::string AfterStartTime(const std::string& dump) {
  const size_t end = dump.find("\r\n");
  const bool ok = HasShape(dump.substr(0, end), "START UP TIME=99 Aaa 9999 99:99:99");
  EXPECT_TRUE(ok && end != std::string::npos) << dump;
  return ok ? dump.substr(end + 2) : dump;
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
  // No pass without an installation.
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
  // The text itself is pinned by the packaged unit (UnitFilesTest).
  EXPECT_EQ(units.Read("Quellor_Quellor.service"),
            UnitText(root, QUELLOR_BINARY_DIR "/quellor", ServiceUserIfPresent()));
  EXPECT_EQ(units.Read("Quellor_Quellor.service.d/parameters.conf"), ParametersText());

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
  // The port is closed while a reply is in flight: clients retry until it opens again.
  EXPECT_TRUE(WaitUntil([&] {
    return Ctl(tree, tree.root(), "status", "QUELLOR_STATUS_PORT=" + port).out == named.out;
  }));

  kill(program.pid, SIGTERM);
  int status = -1;
  waitpid(program.pid, &status, 0);
  program.pid = -1;
  EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0) << status;
  EXPECT_TRUE(ReadFile(err).ends_with("Quellor_Quellor [type 109, id 1] [0] \n")) << ReadFile(err);

  // Nothing answers any more; a port out of range is a usage error.
  const CtlResult refused = Ctl(tree, tree.root(), "status 127.0.0.1 " + port);
  EXPECT_EQ(refused.status, 1);
  EXPECT_NE(refused.err.find("cannot connect to 127.0.0.1 port " + port), std::string::npos)
      << refused.err;
  EXPECT_EQ(Ctl(tree, tree.root(), "status 127.0.0.1 99999").status, 2);
}

// A protected user with four messages held: two from a@y.net, one each from b@z.net, c@w.net.
void HoldFour(const TempTree& tree) {
  ASSERT_EQ(Ctl(tree, tree.root(), "init").status, 0);
  tree.WriteLines("quellor.ini", {"POSTMASTERS=pm@y.net"});
  tree.WriteLines("Users/prot@x.org.CONF", {"MODE=QUELLOR"});
  Drop(tree, "20261116100000101", "a@y.net", "prot@x.org", "One");
  Drop(tree, "20261116100000102", "b@z.net", "prot@x.org", "Two");
  Drop(tree, "20261116100000103", "a@y.net", "prot@x.org", "Three");
  Drop(tree, "20261116100000104", "c@w.net", "prot@x.org", "=?utf-8?q?F=C3=BCnf?=");
  ASSERT_EQ(Ctl(tree, tree.root(), "pass --all --no-pause").status, 0);
}

// The contents of the files of a folder, sorted (names in LOCAL/ are random).
std::vector<std::string> Contents(const TempTree& tree, const std::string& folder) {
  std::vector<std::string> out;
  for (const std::string& name : tree.List(folder)) out.push_back(tree.Read(folder + "/" + name));
  std::sort(out.begin(), out.end());
  return out;
}

TEST(CtlHeld, ListsNewestFirstAndReleaseAndDropDoWhatAReplyAndABounceDo) {
  TempTree by_hand;
  TempTree by_mail;
  HoldFour(by_hand);
  HoldFour(by_mail);

  // Newest first, in JSON and as a table; what a release and a drop report.
  std::string shown;
  for (const char* args : {"held --json", "held PROT@x.org", "release prot@x.org 20261116100000101",
                           "drop prot@x.org 20261116100000102"}) {
    const CtlResult r = Ctl(by_hand, by_hand.root(), args);
    EXPECT_EQ(r.status, 0) << args << ": " << r.err;
    shown += std::string("$ quellorctl ") + args + "\n" + r.out;
  }
  for (size_t i = 0; i + 19 <= shown.size(); ++i) {
    if (HasShape(shown.substr(i, 19), "99/99/9999 99:99:99"))
      shown.replace(i, 19, "DD/MM/YYYY hh:mm:ss");
  }
  // The same by mail: someone replies to the request of 101, a postmaster bounces that of 102.
  Drop(by_mail, "20261116110000001", "someone@v.net", "prot@x.org",
       "Re: One // Request-ID:20261116100000101");
  Drop(by_mail, "20261116110000002", "pm@y.net", "prot@x.org",
       "Undelivered: Two // Request-ID:20261116100000102");
  ASSERT_EQ(Ctl(by_mail, by_mail.root(), "pass --no-pause").status, 0);

  for (const char* folder : {"LOCAL", "WAIT/prot@x.org", "Users", "IN"}) {
    EXPECT_EQ(Contents(by_hand, folder), Contents(by_mail, folder)) << folder;
  }
  EXPECT_EQ(
      by_hand.List("WAIT/prot@x.org"),
      (std::vector<std::string>{"20261116100000104.EML", "20261116100000104.WAI", "stats.log"}));
  EXPECT_EQ(DayLogLines(by_hand, "LOG/quellor", ".iwr", "  "),
            DayLogLines(by_mail, "LOG/quellor", ".iwr", "  "));
  // The same lines as the reply's, after one that names the administrator.
  std::vector<std::string> hand = DayLogLines(by_hand, "LOG", ".log", " ");
  std::vector<std::string> mail = DayLogLines(by_mail, "LOG", ".log", " ");
  ASSERT_EQ(hand.size(), 8u);
  ASSERT_EQ(mail.size(), 7u);
  EXPECT_EQ(std::vector(hand.begin() + 5, hand.end() - 1),
            std::vector(mail.begin() + 4, mail.end() - 1));
  for (const std::string& line : hand) shown += line + "\n";
  CheckGolden("e2e/held.txt", shown);
  EXPECT_FALSE(by_hand.Exists("LOG/system.log")) << by_hand.Read("LOG/system.log");
}

TEST(CtlHeld, RefusesUnknownAndUnsafeNamesAndTouchesNothing) {
  TempTree tree;
  HoldFour(tree);
  // A held pair outside the tree, reachable only through a symlink or "..".
  tree.Write("outside/1.WAI", "a@y.net\r\nprot@x.org\r\n");
  tree.Write("outside/1.EML", "x");
  std::filesystem::create_directory_symlink(tree.Path("outside"), tree.Path("WAIT/link"));
  const std::vector<std::string> before = tree.List("WAIT/prot@x.org");
  CheckTable("held_refusals", [&](const auto& f) {
    const CtlResult r = Ctl(tree, tree.root(), f[0]);
    return std::to_string(r.status) + " " + r.out + r.err.substr(0, r.err.find('\n'));
  });
  EXPECT_EQ(tree.List("WAIT/prot@x.org"), before);
  EXPECT_TRUE(tree.Exists("outside/1.WAI") && tree.Exists("outside/1.EML"));
  EXPECT_TRUE(tree.List("LOCAL").empty());
}

TEST(CtlHeld, AReleaseWaitsForTheRunningPass) {
  TempTree tree;
  HoldFour(tree);
  // This test holds the lock as a pass of the service would.
  auto pass = std::make_unique<TreeLock>(tree.root());
  ASSERT_TRUE(pass->held()) << pass->error();
  CtlResult release;
  std::thread admin(
      [&] { release = Ctl(tree, tree.root(), "release prot@x.org 20261116100000104"); });
  // Told to wait, it has touched nothing yet.
  EXPECT_TRUE(WaitUntil([&] {
    return tree.Read("ctl.err").find("waiting for the pass that is running on") !=
           std::string::npos;
  }));
  EXPECT_TRUE(tree.List("LOCAL").empty());
  pass.reset();
  admin.join();
  EXPECT_EQ(release.status, 0) << release.err;
  EXPECT_FALSE(tree.Exists("WAIT/prot@x.org/20261116100000104.WAI"));
  EXPECT_EQ(tree.List("LOCAL").size(), 2u);
}

}  // namespace
}  // namespace quellor::testing
