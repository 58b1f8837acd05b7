#include "platform/message.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <fstream>
#include <string>
#include <vector>

#include "platform/errors.h"
#include "platform/fs.h"
#include "support/table.h"
#include "support/temp_tree.h"

namespace quellor {
namespace {

using testing::TempTree;

// The header lines of a message (up to the first empty line), each without its line end.
std::vector<std::string> HeaderLines(const std::string& bytes) {
  std::vector<std::string> lines;
  for (size_t pos = 0, lf; pos < bytes.size(); pos = lf + 1) {
    lf = std::min(bytes.find('\n', pos), bytes.size());
    std::string line = bytes.substr(pos, lf - pos);
    if (!line.empty() && line.back() == '\r') line.pop_back();
    if (line.empty()) break;
    lines.push_back(line);
  }
  return lines;
}

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

// A multipart message whose preamble and epilogue end with CR LF: the bytes GMime's own writer
// does not keep.
const std::string kMultipart =
    "Return-Path: <a@b.org>\r\nSubject: Quarterly\r\n  figures\r\nMIME-Version: 1.0\r\n"
    "Content-Type: multipart/mixed; boundary=\"XX\"\r\n\r\n"
    "This is the preamble.\r\n--XX\r\nContent-Type: text/plain; charset=iso-8859-1\r\n"
    "Content-Transfer-Encoding: 8bit\r\nSubject: not a message header\r\n\r\n"
    "Caf\xe9\r\n--XX--\r\nepilogue\r\n\r\n";

TEST(MessageComponentTest, EditsChangeOnlyTheRemovedAndAddedLines) {
  const std::string mark = "Spam-Quellor: a@b.org found in white list of c@d.org";
  const std::string subject = "Subject: (New in white list) Quarterly figures";
  const std::string body_8bit = std::string("\x00\xff\r\r\n\n\x80 binary\r", 15) + "\r\n";
  const size_t head_end = kMultipart.find("\r\n\r\n") + 2;
  struct Case {
    std::string before;
    bool replace_subject;  // remove "Subject" and add a new one
    std::string after;
  } cases[] = {
      {kMultipart, false,
       kMultipart.substr(0, head_end) + mark + "\r\n" + kMultipart.substr(head_end)},
      {kMultipart, true,
       "Return-Path: <a@b.org>\r\nMIME-Version: 1.0\r\n"
       "Content-Type: multipart/mixed; boundary=\"XX\"\r\n" +
           subject + "\r\n" + mark + "\r\n" + kMultipart.substr(head_end)},
      {"From: a@b.org\nsubject: x\n\tfolded\n\nbody\nline\n", true,
       "From: a@b.org\n" + subject + "\n" + mark + "\n\nbody\nline\n"},
      {"Subject: s\r\n\r\n" + body_8bit, false, "Subject: s\r\n" + mark + "\r\n\r\n" + body_8bit},
      {"From: a@b.org", false, "From: a@b.org\r\n" + mark + "\r\n"},
      {"\r\nbody", false, mark + "\r\n\r\nbody"},
  };
  TempTree tree;
  for (const auto& c : cases) {
    SCOPED_TRACE(c.before);
    tree.Write("WAIT/u/1.EML", c.before);
    MessageComponent message;
    ASSERT_EQ(message.Open(tree.Path("WAIT/u/1.EML")), 0);
    if (c.replace_subject) {
      message.RemoveHeader("Subject");
      message.AddHeader("Subject", "(New in white list) Quarterly figures");
    }
    message.AddHeader("Spam-Quellor", "a@b.org found in white list of c@d.org");
    message.Save(tree.Path("WAIT/u/1.EML"));
    EXPECT_EQ(tree.Read("WAIT/u/1.EML"), c.after);
    // Unedited, a save reproduces the file byte for byte.
    ASSERT_EQ(message.Open(tree.Path("WAIT/u/1.EML")), 0);
    message.Save(tree.Path("LOCAL/copy.EML"));
    EXPECT_EQ(tree.Read("LOCAL/copy.EML"), c.after);
  }
  // No temporary files remain.
  EXPECT_EQ(tree.List("WAIT/u"), std::vector<std::string>{"1.EML"});
  EXPECT_EQ(tree.List("LOCAL"), std::vector<std::string>{"copy.EML"});
}

TEST(MessageComponentTest, AddedValuesAreSevenBitOneLineHeaders) {
  const std::vector<std::string> values = {
      "(New in white list) R\xe9union \xe0 10h \x80",
      std::string(30, '\xe9') + " " + std::string(50, 'a') + " \xfc " + std::string(120, '\xe8'),
      "x\r\nBcc: victim@x.org\r\n\r\nforged body",
      "\xe9\rBcc: victim@x.org",
  };
  TempTree tree;
  for (const auto& value : values) {
    SCOPED_TRACE(value);
    tree.Write("IN/m.EML", "From: a@b.org\r\n\r\nbody");
    MessageComponent message;
    ASSERT_EQ(message.Open(tree.Path("IN/m.EML")), 0);
    message.AddHeader("Subject", value);
    message.Save(tree.Path("IN/m.EML"));
    std::string bytes = tree.Read("IN/m.EML");
    for (unsigned char c : bytes) ASSERT_LT(c, 128);
    std::vector<std::string> lines = HeaderLines(bytes);
    ASSERT_GE(lines.size(), 2u);
    EXPECT_EQ(lines[0], "From: a@b.org");
    EXPECT_EQ(lines[1].rfind("Subject: ", 0), 0u);
    for (size_t i = 2; i < lines.size(); ++i)
      EXPECT_TRUE(lines[i][0] == ' ' || lines[i][0] == '\t');
    for (const auto& line : lines) EXPECT_LE(line.size(), 998u);
    EXPECT_EQ(bytes.substr(bytes.size() - 8), "\r\n\r\nbody");
    if (value.find('\r') == std::string::npos) {
      ASSERT_EQ(message.Open(tree.Path("IN/m.EML")), 0);
      EXPECT_EQ(message.Subject(), value);
    }
  }
}

TEST(MessageComponentTest, FailedSaveRaisesAndLeavesTheFileAsItWas) {
  const std::string original = "Subject: s\r\n\r\nbody\r\n";
  struct Fault {
    FsOp op;
    int err;
    int number;  // 0: any
  } faults[] = {
      {FsOp::kWrite, ENOSPC, kErrDiskFull},
      {FsOp::kSync, EIO, 0},
      {FsOp::kRename, EACCES, kErrPermission},
  };
  TempTree tree;
  for (const auto& f : faults) {
    SCOPED_TRACE(static_cast<int>(f.op));
    tree.Write("IN/m.EML", original);
    MessageComponent message;
    ASSERT_EQ(message.Open(tree.Path("IN/m.EML")), 0);
    message.AddHeader("Spam-Quellor", "mark");
    FaultyFileSystem faulty;
    ScopedFileSystem scope(&faulty);
    faulty.FailAlways(f.op, f.err);
    try {
      message.Save(tree.Path("IN/m.EML"));
      ADD_FAILURE() << "no error raised";
    } catch (const RuntimeError& e) {
      if (f.number != 0) {
        EXPECT_EQ(e.number(), f.number);
      }
    }
    faulty.Clear();
    EXPECT_EQ(tree.Read("IN/m.EML"), original);
    EXPECT_EQ(tree.List("IN"), std::vector<std::string>{"m.EML"});
  }
  // A file changed since it was opened is not overwritten.
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
