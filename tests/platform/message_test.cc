#include "platform/message.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <fstream>
#include <map>
#include <string>
#include <vector>

#include "platform/errors.h"
#include "platform/fs.h"
#include "support/table.h"
#include "support/temp_tree.h"

namespace quellor {
namespace {

using testing::TempTree;

TEST(MessageComponentTest, SubjectIsUnfoldedDecodedAndInWindows1252) {
  testing::CheckTable("message_subject", [](const auto& f) {
    TempTree tree;
    tree.Write("IN/Msg.Eml", f[0]);
    MessageComponent message;
    EXPECT_EQ(message.Open(tree.Path("in/MSG.EML")), 0);
    return message.Subject();
  });
}

TEST(MessageComponentTest, OpenFailuresReturnNonZeroAndForgetThePreviousMessage) {
  TempTree tree;
  tree.Write("IN/good.EML", "Subject: good\r\n\r\n");
  MessageComponent message;
  ASSERT_EQ(message.Open(tree.Path("IN/good.EML")), 0);
  EXPECT_EQ(message.Open(tree.Path("IN/missing.EML")), kErrFileNotFound);
  EXPECT_EQ(message.Subject(), "");
  EXPECT_THROW(message.Save(tree.Path("IN/out.EML")), RuntimeError);
  EXPECT_FALSE(tree.Exists("IN/out.EML"));
  EXPECT_NE(message.Open(tree.Path("IN")), 0);  // a folder

  FaultyFileSystem faulty;
  ScopedFileSystem scope(&faulty);
  faulty.FailNth(FsOp::kOpen, 1, EACCES, 1, "good.EML");
  EXPECT_EQ(message.Open(tree.Path("IN/good.EML")), kErrPermission);
  faulty.FailNth(FsOp::kRead, 1, EIO);
  EXPECT_NE(message.Open(tree.Path("IN/good.EML")), 0);
  EXPECT_EQ(message.Open(tree.Path("IN/good.EML")), 0);
  EXPECT_EQ(message.Subject(), "good");
}

// Fields: the message, a subject to put in place of the old one (- for none), a mark to add (-
// for none), a call that fails while saving (- for none) -> the saved file, after the error
// raised when the save failed. Only the removed and added lines change; added values are
// seven-bit one-line headers; unedited, a save reproduces the file byte for byte; a failed save
// leaves the file as it was. No temporary file is ever left.
TEST(MessageComponentTest, EditsChangeOnlyTheRemovedAndAddedLines) {
  const std::map<std::string, std::pair<FsOp, int>> faults = {{"write", {FsOp::kWrite, ENOSPC}},
                                                              {"sync", {FsOp::kSync, EIO}},
                                                              {"rename", {FsOp::kRename, EACCES}}};
  testing::CheckTable("message_edits", [&](const auto& f) {
    TempTree tree;
    tree.Write("WAIT/u/1.EML", f[0]);
    MessageComponent message;
    EXPECT_EQ(message.Open(tree.Path("WAIT/u/1.EML")), 0);
    if (f[1] != "-") message.RemoveHeader("Subject");
    if (f[1] != "-") message.AddHeader("Subject", f[1]);
    if (f[2] != "-") message.AddHeader("Spam-Quellor", f[2]);
    std::string error;
    {
      FaultyFileSystem faulty;
      ScopedFileSystem scope(&faulty);
      if (f[3] != "-") faulty.FailAlways(faults.at(f[3]).first, faults.at(f[3]).second);
      try {
        message.Save(tree.Path("WAIT/u/1.EML"));
      } catch (const RuntimeError& e) {
        error = "!" + std::to_string(e.number()) + " " + e.what() + " | ";
      }
    }
    const std::string saved = tree.Read("WAIT/u/1.EML");
    EXPECT_EQ(tree.List("WAIT/u").size(), 1u) << "a temporary file";
    if (!error.empty()) return error + saved;
    EXPECT_EQ(message.Open(tree.Path("WAIT/u/1.EML")), 0);
    if (f[1] != "-" && f[1].find('\r') == std::string::npos) {
      EXPECT_EQ(message.Subject(), f[1]);
    }
    message.Save(tree.Path("LOCAL/copy.EML"));
    EXPECT_EQ(tree.Read("LOCAL/copy.EML"), saved);
    return saved;
  });
  // A file changed since it was opened is not overwritten.
  TempTree tree;
  tree.Write("IN/m.EML", "Subject: first\r\n\r\nbody");
  MessageComponent message;
  ASSERT_EQ(message.Open(tree.Path("IN/m.EML")), 0);
  tree.Write("IN/m.EML", "Subject: other\r\n\r\nanother body");
  message.AddHeader("Spam-Quellor", "mark");
  EXPECT_THROW(message.Save(tree.Path("IN/m.EML")), RuntimeError);
  EXPECT_EQ(tree.Read("IN/m.EML"), "Subject: other\r\n\r\nanother body");
}

TEST(MessageComponentTest, OversizedHeaderBlockIsCutAtAHeaderLine) {
  // No empty line and far more header than any real message has: the edit lands between two
  // header lines (the limit falls inside a long continuation line) and every byte is kept.
  std::string bytes = "Subject: huge\r\n";
  for (int i = 0; bytes.size() < (3u << 20); ++i) {
    bytes += "X-Pad-" + std::to_string(i) + ": p\r\n" + (i % 2 ? "\t" : " ") +
             std::string(3000, 'c') + "\r\n";
  }
  TempTree tree;
  tree.Write("IN/m.EML", bytes);
  MessageComponent message;
  ASSERT_EQ(message.Open(tree.Path("IN/m.EML")), 0);
  EXPECT_EQ(message.Subject(), "huge");
  message.AddHeader("Spam-Quellor", "mark");
  message.Save(tree.Path("IN/m.EML"));
  std::string saved = tree.Read("IN/m.EML");
  const std::string mark = "\r\nSpam-Quellor: mark\r\n";
  size_t at = saved.find(mark);
  ASSERT_NE(at, std::string::npos);
  EXPECT_EQ(saved.substr(at + mark.size(), 6), "X-Pad-");
  EXPECT_EQ(saved.substr(0, at + 2) + saved.substr(at + mark.size()), bytes);
}

// Peak resident memory of this process in KiB.
long PeakRssKiB() {
  std::ifstream status("/proc/self/status");
  std::string line;
  while (std::getline(status, line)) {
    if (line.rfind("VmHWM:", 0) == 0) return std::stol(line.substr(6));
  }
  return -1;
}

TEST(MessageComponentTest, LargeMessageIsReadAndSavedWithoutLoadingItsBody) {
  TempTree tree;
  const std::string head = "From: a@b.org\r\nSubject: =?utf-8?q?big_caf=C3=A9?=\r\n\r\n";
  const size_t body_size = 50u << 20;
  {
    std::ofstream out(tree.Path("IN/big.EML"), std::ios::binary);
    out << head;
    std::string block(64 * 1024, 'x');
    for (size_t i = 75; i + 1 < block.size(); i += 77) block.replace(i, 2, "\r\n");
    for (size_t written = 0; written < body_size; written += block.size()) out << block;
  }
  std::ofstream("/proc/self/clear_refs") << "5";  // restart the peak count where supported
  long before = PeakRssKiB();
  ASSERT_GT(before, 0);

  MessageComponent message;
  ASSERT_EQ(message.Open(tree.Path("IN/big.EML")), 0);
  EXPECT_EQ(message.Subject(), "big caf\xe9");
  message.AddHeader("Spam-Quellor", "mark");
  message.Save(tree.Path("LOCAL/big.EML"));
  long growth_kib = PeakRssKiB() - before;
  EXPECT_LT(growth_kib, 8 * 1024) << "peak memory grew by " << growth_kib << " KiB";

  std::ifstream saved(tree.Path("LOCAL/big.EML"), std::ios::binary | std::ios::ate);
  const std::string mark = "Spam-Quellor: mark\r\n";
  EXPECT_EQ(static_cast<size_t>(saved.tellg()), head.size() + mark.size() + body_size);
  std::string start(head.size() + mark.size(), '\0');
  saved.seekg(0);
  saved.read(start.data(), static_cast<std::streamsize>(start.size()));
  EXPECT_EQ(start, head.substr(0, head.size() - 2) + mark + "\r\n");
}

}  // namespace
}  // namespace quellor
