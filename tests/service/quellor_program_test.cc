// The real program: its command line, the unit files of -install and -uninstall, and a -debug run
// on a temporary tree that takes mail dropped into IN/ and ends cleanly on SIGTERM.

#include <gtest/gtest.h>
#include <netinet/in.h>
#include <sys/socket.h>

#include <chrono>
#include <csignal>
#include <string>
#include <thread>

#include "service/program.h"
#include "service/unit_files.h"
#include "support/temp_tree.h"

namespace quellor {
namespace {

using testing::Program;
using testing::TempTree;

// A TCP port nobody listens on right now.
std::string FreePort() {
  const int fd = socket(AF_INET, SOCK_STREAM, 0);
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  socklen_t length = sizeof address;
  bind(fd, reinterpret_cast<sockaddr*>(&address), sizeof address);
  getsockname(fd, reinterpret_cast<sockaddr*>(&address), &length);
  close(fd);
  return std::to_string(ntohs(address.sin_port));
}

// Everything a status query on 127.0.0.1 receives.
std::string StatusReply(const std::string& port) {
  const int fd = socket(AF_INET, SOCK_STREAM, 0);
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  address.sin_port = htons(static_cast<uint16_t>(std::stoi(port)));
  std::string reply;
  if (connect(fd, reinterpret_cast<sockaddr*>(&address), sizeof address) == 0) {
    char buffer[4096];
    for (ssize_t n; (n = read(fd, buffer, sizeof buffer)) > 0;) reply.append(buffer, n);
  }
  close(fd);
  return reply;
}

TEST(CommandLineTest, UnknownOptionIsReportedWithStatusTwo) {
  TempTree tree;
  Program program({"-INSTALL"}, {{"QUELLOR_UNIT_DIR", tree.root()}, {"QUELLOR_ROOT", tree.root()}});
  ASSERT_TRUE(program.started());
  EXPECT_EQ(program.Wait(), 2);
  EXPECT_EQ(program.error_text(), "Invalid command option\n");
  EXPECT_FALSE(tree.Exists("Quellor_Quellor.service"));
}

TEST(UnitFilesTest, InstallWritesUnitAndParametersAndUninstallRemovesBoth) {
  TempTree units;
  const std::string root = units.root() + "spool/";
  // A unit folder that does not exist: no registration, so no parameters either.
  Program failed({"-install"}, {{"QUELLOR_UNIT_DIR", units.Path("none/")}, {"QUELLOR_ROOT", root}});
  EXPECT_EQ(failed.Wait(), 1);
  EXPECT_FALSE(units.Exists("none"));

  Program install({"-install"}, {{"QUELLOR_UNIT_DIR", units.root()}, {"QUELLOR_ROOT", root}});
  ASSERT_EQ(install.Wait(), 0);
  EXPECT_EQ(install.error_text(), "");
  EXPECT_EQ(units.Read("Quellor_Quellor.service"),
            "[Unit]\n"
            "Description=Spam Quellor - Quellor\n"
            "\n"
            "[Service]\n"
            "Type=notify\n"
            "Environment=QUELLOR_ROOT=" +
                root +
                "\n"
                "ExecStart=" QUELLOR_BINARY_DIR "/quellor\n" +
                *ConfinementText(root, ServiceUserIfPresent()) +
                "\n"
                "[Install]\n"
                "WantedBy=multi-user.target\n");
  EXPECT_EQ(units.Read("Quellor_Quellor.service.d/parameters.conf"), ParametersText());
  EXPECT_NE(ParametersText().find("\nTimerInterval=1000\n"), std::string::npos);

  Program uninstall({"-uninstall"}, {{"QUELLOR_UNIT_DIR", units.root()}});
  ASSERT_EQ(uninstall.Wait(), 0);
  EXPECT_FALSE(units.Exists("Quellor_Quellor.service"));
  EXPECT_FALSE(units.Exists("Quellor_Quellor.service.d"));
}

TEST(QuellorProgramTest, DebugRunPassesDroppedMailAndStopsOnSigterm) {
  TempTree tree;
  tree.Write("quellor.ini", "LOG=ON\r\nDEBUG=OFF\r\n");
  const std::string status_port = FreePort();
  Program program({"-debug"}, {{"QUELLOR_ROOT", tree.root()},
                               {"QUELLOR_STATUS_PORT", status_port},
                               {"QUELLOR_WINDOW_PORT", FreePort()}});
  ASSERT_TRUE(program.started());
  // The Start event's entry, echoed on standard error, comes once start-up is over.
  ASSERT_TRUE(program.WaitForError("[type 109, id 1] [0] \n", std::chrono::seconds(30)))
      << program.error_text();

  tree.WriteLines("IN/20261116100000001.WAI", {"alice@far.example", "bob@x.org"});
  tree.Write("IN/20261116100000001.EML",
             "From: alice@far.example\r\nTo: bob@x.org\r\nSubject: hi\r\n\r\nHello.\r\n");
  const auto limit = std::chrono::steady_clock::now() + std::chrono::seconds(30);
  while (std::chrono::steady_clock::now() < limit &&
         !(tree.List("IN").empty() && tree.List("LOCAL").size() == 2)) {
    std::this_thread::sleep_for(std::chrono::milliseconds(100));
  }
  EXPECT_TRUE(tree.List("IN").empty());
  EXPECT_EQ(tree.List("LOCAL").size(), 2u) << tree.Read("LOG/system.log");

  // The Start command opened the status port: the reply counts the forwarded message.
  EXPECT_NE(StatusReply(status_port).find("FORWARD=1\r\n"), std::string::npos);

  program.Signal(SIGTERM);
  EXPECT_EQ(program.Wait(), 0);
  EXPECT_TRUE(program.error_text().ends_with("Quellor_Quellor [type 109, id 1] [0] \n"))
      << program.error_text();
}

}  // namespace
}  // namespace quellor
