// Quellor behind a real, private Postfix: set up with `quellorctl postfix install`, mail sent by
// SMTP, the pass run by `quellorctl pass`, the delivery service running, the outside world played
// by smtp-sink. Needs root and Debian's postfix package; skips loudly otherwise.
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <functional>
#include <string>
#include <thread>
#include <vector>

#include "platform/text.h"
#include "support/process.h"
#include "support/temp_tree.h"

namespace quellor::testing {
namespace {

namespace fs = std::filesystem;

constexpr const char* kHost = "mx.quellor.test";
constexpr const char* kNull = "MAILER-DAEMON@mx.quellor.test";
const std::string kBin = QUELLOR_BINARY_DIR;

// A shell command with its errors in `out` too.
int Shell(const std::string& command, std::string* out = nullptr) {
  return Sh(command + " 2>&1", out);
}

std::string Lf(std::string s) {
  std::erase(s, '\r');
  return s;
}

// The message as a mailbox holds it from its own first header line on (Postfix puts its trace
// lines before it), without the white-list mark.
std::string WithoutTrace(const std::string& text) {
  std::string out = text.substr(std::min(text.find("\nFrom: ") + 1, text.size()));
  const size_t mark = out.find("\nSpam-Quellor: ");
  if (mark != std::string::npos) out.erase(mark + 1, out.find('\n', mark + 1) - mark);
  return out;
}

class PostfixTest : public ::testing::Test {
 protected:
  void SetUp() override {
    if (geteuid() != 0) GTEST_SKIP() << "SKIPPED: a private Postfix needs root";
    if (!fs::exists("/usr/sbin/postfix") || !fs::exists("/usr/sbin/smtp-sink") ||
        !fs::exists("/usr/bin/swaks"))
      GTEST_SKIP() << "SKIPPED: Debian's postfix package is not installed (scripts/setup.sh)";
    char tmpl[] = "/tmp/quellor-postfix-XXXXXX";
    ASSERT_TRUE(mkdtemp(tmpl));
    p_ = tmpl;
    fs::permissions(p_, fs::perms::owner_all | fs::perms::group_read | fs::perms::group_exec |
                            fs::perms::others_read | fs::perms::others_exec);
    for (const char* d : {"etc", "queue", "data", "mail", "sink", "units"})
      fs::create_directories(p_ + "/" + d);
    ASSERT_EQ(Shell("chown postfix '" + p_ + "/data' && chown nobody '" + p_ + "/mail' '" + p_ +
                    "/sink'"),
              0);
    smtp_port_ = FreePort();
    sink_port_ = FreePort();
    while (sink_port_ == smtp_port_) sink_port_ = FreePort();
    fs::copy_file("/etc/postfix/master.cf", p_ + "/etc/master.cf");
    // A private instance: its own folders, ports and log; local mail for alice and bob, the
    // rest relayed to the sink.
    std::string main_cf =
        ReplaceAll(ReadFile(QUELLOR_SOURCE_DIR "/tests/data/e2e/main.cf"), "@DIR@", p_);
    main_cf.replace(main_cf.find("@SINK@"), 6, std::to_string(sink_port_));
    std::ofstream(p_ + "/etc/main.cf") << main_cf;
    const std::string pc = "postconf -c '" + p_ + "/etc' ";
    ASSERT_EQ(Shell(pc + "-MX smtp/inet && " + pc + "-M '127.0.0.1:" + std::to_string(smtp_port_) +
                    "/inet=127.0.0.1:" + std::to_string(smtp_port_) + " inet n - n - - smtpd' && " +
                    pc + "-M 'postlog/unix-dgram=postlog unix-dgram n - n - 1 postlogd'"),
              0);
    std::string out;
    ASSERT_EQ(Shell("postfix -c '" + p_ + "/etc' start", &out), 0)
        << out << ReadFile(p_ + "/maillog");
    started_ = true;
    sink_ = Spawn({"/usr/sbin/smtp-sink", "-u", "nobody", "-d", p_ + "/sink/%H%M%S.",
                   "127.0.0.1:" + std::to_string(sink_port_), "10"},
                  p_ + "/sink.log");

    // The one command under test, then the filter's users.
    ASSERT_EQ(Ctl("postfix install --config-dir '" + p_ + "/etc' --user nobody", &out), 0) << out;
    ASSERT_EQ(Ctl("postfix check --config-dir '" + p_ + "/etc' --user nobody", &out), 0) << out;
    tree.Write("Users/alice@example.test.CONF", "MODE=QUELLOR\r\n");
    tree.Write("Users/alice@example.test.WLT", "friend@remote.test\r\n");
    dregger_ = Spawn({"/usr/bin/env", "QUELLOR_ROOT=" + tree.root(), kBin + "/quellor-dregger",
                      "--config-dir", p_ + "/etc", "--null-sender", kNull, "--hostname", kHost},
                     p_ + "/dregger.log");
  }

  void TearDown() override {
    for (const int pid : {dregger_, sink_}) {
      if (pid > 0) kill(pid, SIGTERM), waitpid(pid, nullptr, 0);
    }
    if (started_) Shell("postfix -c '" + p_ + "/etc' stop");
    if (!p_.empty() && !HasFailure()) fs::remove_all(p_);
  }

  int Ctl(const std::string& args, std::string* out) {
    return Shell("env QUELLOR_ROOT='" + tree.root() + "' QUELLOR_UNIT_DIR='" + p_ + "/units' '" +
                     kBin + "/quellorctl' " + args,
                 out);
  }

  // One SMTP transaction by swaks, which sends every line end as CR LF and ends the data with
  // CR LF "." itself; true when accepted.
  bool SendSmtp(const std::string& from, const std::string& to, const std::string& message) {
    std::ofstream(p_ + "/message", std::ios::binary)
        << message.substr(0, message.size() - (message.ends_with("\r\n") ? 2 : 0));
    return Shell("swaks --silent 2 --server 127.0.0.1 --port " + std::to_string(smtp_port_) +
                 " --from '" + (from.empty() ? "<>" : from) + "' --to '" + to + "' --data '@" + p_ +
                 "/message' </dev/null") == 0;
  }

  // Runs passes until `done` holds (generous deadline: the machine may be busy).
  bool PassUntil(const std::function<bool()>& done) {
    std::string out;
    return WaitUntil([&] { return Ctl("pass --all --no-pause", &out) >= 0 && done(); },
                     std::chrono::seconds(90));
  }

  // The files of a folder whose names end with `suffix`, sorted.
  static std::vector<std::string> Files(const std::string& dir, const std::string& suffix = "") {
    std::vector<std::string> out;
    if (!fs::exists(dir)) return out;
    for (const auto& e : fs::directory_iterator(dir)) {
      if (e.path().string().ends_with(suffix)) out.push_back(e.path().string());
    }
    std::sort(out.begin(), out.end());
    return out;
  }
  std::vector<std::string> Mailbox(const std::string& user) {
    return Files(p_ + "/mail/" + user + "/new");
  }
  // Held messages of alice (her waiting area also holds stats.log).
  std::vector<std::string> Held() { return Files(tree.Path("WAIT/alice@example.test"), ".EML"); }
  std::string Log() { return ReadFile(p_ + "/maillog") + ReadFile(p_ + "/dregger.log"); }

  // Holds a message from `sender` to alice and returns the request the sink received.
  std::string HoldAndChallenge(const std::string& sender, const std::string& subject) {
    const std::vector<std::string> before = Files(p_ + "/sink");
    const size_t held = Held().size();
    SendSmtp(sender, "alice@example.test",
             "From: " + sender + "\r\nTo: alice@example.test\r\nSubject: " + subject +
                 "\r\nDate: Mon, 16 Nov 2026 09:00:00 +0000\r\nMessage-ID: <" +
                 std::to_string(held) + "@remote.test>\r\n\r\nHello.\r\n");
    EXPECT_TRUE(PassUntil([&] { return Held().size() == held + 1; })) << Log();
    if (sender.ends_with("@example.test")) return "";  // our own Postfix will bounce it
    // The sink writes its file while it reads the message: Postfix logs the request as sent
    // only once the sink took all of it.
    EXPECT_TRUE(PassUntil([&] {
      return Files(p_ + "/sink").size() == before.size() + 1 &&
             ReadFile(p_ + "/maillog").find("to=<" + sender + ">, relay=127.0.0.1") !=
                 std::string::npos;
    })) << Log();
    for (const std::string& f : Files(p_ + "/sink")) {
      if (std::find(before.begin(), before.end(), f) == before.end()) return ReadFile(f);
    }
    return "";
  }

  TempTree tree;
  std::string p_;
  int smtp_port_ = 0, sink_port_ = 0;
  bool started_ = false;
  pid_t sink_ = -1, dregger_ = -1;
};

// A header's value, unfolded.
std::string HeaderValue(const std::string& text, const std::string& name) {
  const std::string lf = Lf(text);
  const size_t at = lf.find("\n" + name + ": ");
  std::string value;
  for (size_t i = at + name.size() + 3; at != std::string::npos && i < lf.size(); ++i) {
    if (lf[i] == '\n' && lf[i + 1] != ' ' && lf[i + 1] != '\t') break;
    if (lf[i] != '\n') value += lf[i];
  }
  return value;
}

TEST_F(PostfixTest, TheWholeCycleThroughSmtp) {
  // A friend's subject-less message with "From " body lines, to a white-listing user and to a
  // user without configuration in one envelope: both arrive intact, only alice's marked.
  const std::string friendly =
      "From: friend@remote.test\r\nTo: alice@example.test, bob@example.test\r\n"
      "Date: Mon, 16 Nov 2026 09:00:00 +0000\r\nMessage-ID: <f1@remote.test>\r\n\r\n"
      "From the start\r\n.leading dot\r\nFrom again\r\n";
  EXPECT_TRUE(SendSmtp("friend@remote.test", "alice@example.test,bob@example.test", friendly));
  ASSERT_TRUE(PassUntil([&] { return Mailbox("alice").size() == 1 && Mailbox("bob").size() == 1; }))
      << Log();
  const std::string alice = ReadFile(Mailbox("alice")[0]);
  EXPECT_EQ(WithoutTrace(alice), Lf(friendly));
  EXPECT_NE(alice.find("\nSpam-Quellor: friend@remote.test found in white list of "
                       "alice@example.test\n"),
            std::string::npos);
  const std::string bob = ReadFile(Mailbox("bob")[0]);
  EXPECT_EQ(WithoutTrace(bob), Lf(friendly));
  EXPECT_EQ(bob.find("Spam-Quellor"), std::string::npos);

  // A stranger is held and challenged; the request is valid mail; the reply releases.
  const std::string request =
      HoldAndChallenge("stranger@remote.test", "=?utf-8?Q?Gr=C3=BC=C3=9Fe?=");
  ASSERT_FALSE(request.empty());
  EXPECT_NE(request.find("X-Rcpt-Args: <stranger@remote.test>"), std::string::npos) << request;
  const std::string subject = HeaderValue(request, "Subject");
  EXPECT_EQ(subject.find("=?windows-1252?Q?Rq=3AGr=FC=DFe?= // Request-ID:"), 0u) << request;
  EXPECT_TRUE(HeaderValue(request, "Message-ID").starts_with("<quellor.")) << request;
  EXPECT_EQ(HeaderValue(request, "Auto-Submitted"), "auto-replied");
  EXPECT_FALSE(Lf(request).ends_with("\n.\n")) << request;
  SendSmtp("stranger@remote.test", "alice@example.test",
           "From: stranger@remote.test\r\nTo: alice@example.test\r\nSubject: Re: " + subject +
               "\r\n\r\nIt was me.\r\n");
  ASSERT_TRUE(PassUntil([&] { return Mailbox("alice").size() == 2; })) << Log();
  EXPECT_TRUE(Held().empty());
  std::string released;
  for (const std::string& f : Mailbox("alice")) {
    const std::string text = ReadFile(f);
    if (text.find("<0@remote.test>") != std::string::npos) released = text;
  }
  EXPECT_EQ(WithoutTrace(released),
            "From: stranger@remote.test\nTo: alice@example.test\n"
            "Date: Mon, 16 Nov 2026 09:00:00 +0000\nMessage-ID: <0@remote.test>\n"
            "Subject: (New in white list) =?windows-1252?Q?Gr=FC=DFe?=\n\nHello.\n")
      << released;
  EXPECT_EQ(ReadFile(tree.Path("Users/alice@example.test.WLT")),
            "friend@remote.test\r\nstranger@remote.test\r\n");

  // A forged local sender: our own Postfix bounces the request, and the bounce purges.
  HoldAndChallenge("ghost@example.test", "Cheap pills");
  EXPECT_TRUE(PassUntil([&] { return Held().empty(); })) << Log();

  // A remote server bounces a request in Postfix's format, another in Exchange's.
  // (A braced list holds and challenges in order.)
  for (const auto& [name, subject] :
       {std::pair{"postfix", HeaderValue(HoldAndChallenge("dead@remote.test", "Offer"), "Subject")},
        {"exchange",
         HeaderValue(HoldAndChallenge("gone@remote.test", "Another offer"), "Subject")}}) {
    const std::string bounce =
        ReadFile(QUELLOR_SOURCE_DIR "/tests/data/e2e/bounce_" + std::string(name) + ".eml");
    EXPECT_TRUE(SendSmtp("", "alice@example.test", ReplaceAll(bounce, "@SUBJECT@", subject)));
  }
  EXPECT_TRUE(PassUntil([&] { return Held().empty(); })) << Log();

  // Nothing looped, nothing is left: no bounce reached alice, no request went to the null
  // sender, Postfix's queue is empty.
  std::string queue;
  EXPECT_TRUE(PassUntil([&] {
    Shell("postqueue -c '" + p_ + "/etc' -p", &queue);
    return queue.find("Mail queue is empty") != std::string::npos && tree.List("IN").empty() &&
           tree.List("LOCAL").empty() && tree.List("OUT").empty();
  })) << queue
      << Log();
  EXPECT_EQ(Mailbox("alice").size(), 2u);
  EXPECT_EQ(Mailbox("bob").size(), 1u);
  EXPECT_EQ(Files(p_ + "/sink").size(), 3u);
  for (const std::string& f : Files(p_ + "/sink")) {
    EXPECT_EQ(ReadFile(f).find("MAILER-DAEMON"), std::string::npos) << f;
  }

  // Uninstall takes out exactly what install put in.
  std::string out;
  EXPECT_EQ(Ctl("postfix uninstall --config-dir '" + p_ + "/etc' --user nobody", &out), 0) << out;
  std::string master;
  Shell("postconf -c '" + p_ + "/etc' -M -P", &master);
  EXPECT_EQ(master.find("quellor"), std::string::npos) << master;
  EXPECT_NE(Ctl("postfix check --config-dir '" + p_ + "/etc' --user nobody", &out), 0);
}

}  // namespace
}  // namespace quellor::testing
