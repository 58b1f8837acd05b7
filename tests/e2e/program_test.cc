// The quellor program itself: its command line, the unit files of -install and -uninstall, and a
// -debug run on a temporary tree that takes mail dropped into IN/, answers `quellorctl status`
// and ends cleanly on SIGTERM.
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/wait.h>

#include <string>

#include "e2e/ctl.h"
#include "service/unit_files.h"

namespace quellor::testing {
namespace {

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
