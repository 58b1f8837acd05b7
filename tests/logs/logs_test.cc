// The error, activity and retry logs, and the file primitives that retry and log.
#include "logs/logs.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <map>
#include <sstream>
#include <string>
#include <vector>

#include "logs/retrying_files.h"
#include "platform/errors.h"
#include "platform/fs.h"
#include "platform/names.h"
#include "spool/activity_log.h"
#include "support/table.h"
#include "support/temp_tree.h"

namespace quellor {
namespace {

using testing::TempTree;

class LogsTest : public ::testing::Test {
 protected:
  std::vector<std::string> ErrorLines() const { return t.ReadLines("LOG/system.log"); }
  std::vector<std::string> Activity() const { return t.ReadLines("LOG/16-11-2026.log"); }

  TempTree t;
};

TEST_F(LogsTest, ErrorLogLineFormAndRaisingWhenItCannotWrite) {
  ErrorLog(t.ctx, "Quellor - nextid", 53, "File not found");
  t.clock.SetLocal(2026, 1, 2, 3, 4, 5);
  ErrorLog(t.ctx, " - Alias", -2147221504, "Automation error");
  ErrorLog(t.ctx, "Quellor - readini", 0, "");
  EXPECT_EQ(t.Read("LOG/system.log"),
            "16/11/2026 10:00:00 : Quellor - nextid - # 53 - File not found\r\n"
            "02/01/2026 03:04:05 :  - Alias - #-2147221504 - Automation error\r\n"
            "02/01/2026 03:04:05 : Quellor - readini - # 0 - \r\n");
  t.Remove("LOG");
  EXPECT_THROW(ErrorLog(t.ctx, "Quellor - nextid", 53, "File not found"), RuntimeError);
}

TEST(LogTables, RetryLogAndStatuslogLines) {
  testing::CheckTable("retry_log", [](const auto& f) {
    TempTree t;
    std::string text = f[0];
    log(t.ctx, text, 1, ".iwr");
    return text + "\n" + t.Read("LOG/quellor/16-11-2026.iwr");
  });
  testing::CheckTable("statuslog", [](const auto& f) {
    TempTree t;
    Statuslog(t.ctx, f[0], 2, ".log");
    return t.Read("LOG/16-11-2026.log") + t.Read("LOG/system.log");
  });
}

TEST_F(LogsTest, DayNameIsTakenForEveryLine) {
  t.clock.SetLocal(2026, 12, 31, 23, 59, 59);
  std::string a = "before", b = "after";
  log(t.ctx, a, 1, ".iwr");
  Statuslog(t.ctx, "one", 2, ".log");
  t.clock.Advance(std::chrono::seconds(1));
  log(t.ctx, b, 1, ".iwr");
  Statuslog(t.ctx, "two", 2, ".log");
  EXPECT_EQ(t.Read("LOG/quellor/31-12-2026.iwr") + "|" + t.Read("LOG/quellor/01-01-2027.iwr") +
                "|" + t.Read("LOG/31-12-2026.log") + "|" + t.Read("LOG/01-01-2027.log"),
            "23:59:59  before\r\n|00:00:00  after\r\n|23:59:59 one\r\n|00:00:00 two\r\n");
}

TEST_F(LogsTest, RetryLogInMissingFolderReportsEachFailingStatement) {
  t.Remove("LOG/quellor");
  std::string text = "###KILL x Intento= 1";
  log(t.ctx, text, 1, ".iwr");
  std::vector<std::string> errors = ErrorLines();
  ASSERT_EQ(errors.size(), 2u);  // the open, then the write to the file that did not open
  EXPECT_EQ(errors[0].rfind("16/11/2026 10:00:00 : Quellor - log - #", 0), 0u) << errors[0];
  EXPECT_EQ(errors[1], "16/11/2026 10:00:00 : Quellor - log - # 52 - Bad file name or number");
  EXPECT_FALSE(t.Exists("LOG/quellor"));
}

TEST_F(LogsTest, LogSwitchOffSilencesOnlyTheRetryLog) {
  t.ctx.settings.log = "OFF";
  CopyFile(t.ctx, t.Path("IN/none"), t.Path("IN/other"));  // gives up
  Statuslog(t.ctx, "Sent     - <a@x> to <u@y> - learn mode", 2, ".log");
  ErrorLog(t.ctx, "Quellor - nextid", 53, "File not found");
  EXPECT_FALSE(t.Exists("LOG/quellor/16-11-2026.iwr"));
  EXPECT_EQ(Activity().size(), 1u);
  EXPECT_EQ(ErrorLines().size(), 1u);
}

TEST_F(LogsTest, StatuslogFirstFailureEndsTheCall) {
  FaultyFileSystem fs;
  ScopedFileSystem scope(&fs);
  t.MakeFolder("WAIT/u@y");
  fs.FailAlways(FsOp::kOpen, EACCES, "16-11-2026.log");
  Statuslog(t.ctx, "Sent     - <a@x> to <u@y> - learn mode", 2, ".log");
  // Before the user was found: an empty user and two blanks before the description.
  EXPECT_EQ(ErrorLines(),
            std::vector<std::string>{
                "16/11/2026 10:00:00 : Statuslog - log: - # 70 -  Permission denied"});
  EXPECT_FALSE(t.Exists("WAIT/u@y/stats.log"));
  EXPECT_EQ(fs.calls(FsOp::kOpen), 2);  // no retries: the activity log and the error log

  // A failure in the statistics names the user being counted.
  fs.Clear();
  t.Write("WAIT/u@y/stats.log", "");
  ForgetNameIndexes();
  Statuslog(t.ctx, "Sent     - <a@x> to <u@y> - learn mode", 2, ".log");
  EXPECT_EQ(ErrorLines().back(),
            "16/11/2026 10:00:00 : Statuslog - log:u@y - # 62 -  Input past end of file");
  EXPECT_EQ(t.Read("WAIT/u@y/stats.log"), "");
  EXPECT_EQ(Activity().size(), 1u);
}

// Runs one retrying primitive on a fresh tree. Fields: the primitive, its two arguments (paths
// relative to the root; OpenFile's second is the mode), the files to write first ("path=bytes"
// or "folder/", blank-separated), the calls to fail ("op path-part times [errno]", from the
// first), and the LOG and DEBUG switches. The outcome: sleeps, the retry log and the warnings
// (root taken out), the error log, what the call returned, the files of IN, LOCAL and OUT.
std::string RunPrimitive(const std::vector<std::string>& f) {
  static const std::map<std::string, FsOp> kOps = {{"open", FsOp::kOpen},
                                                   {"stat", FsOp::kStat},
                                                   {"unlink", FsOp::kUnlink},
                                                   {"rename", FsOp::kRename}};
  TempTree t;
  t.ctx.settings.log = f[5];
  t.ctx.settings.debug = f[6];
  std::istringstream setup(f[3]);
  for (std::string w; std::getline(setup, w, ' ');) {
    if (w.ends_with("/")) t.MakeFolder(w);
    if (!w.ends_with("/")) t.Write(w.substr(0, w.find('=')), w.substr(w.find('=') + 1));
  }
  ForgetNameIndexes();
  FaultyFileSystem fs;
  ScopedFileSystem scope(&fs);
  std::istringstream failure(f[4]);
  std::string op, part, err = std::to_string(EACCES);
  int times = 0;
  if (failure >> op >> part >> times >> err || times > 0)
    fs.FailNth(kOps.at(op), 1, std::stoi(err), times, part);

  std::string result;
  if (f[0] == "DeleteFile") DeleteFile(t.ctx, t.Path(f[1]));
  if (f[0] == "CopyFile") CopyFile(t.ctx, t.Path(f[1]), t.Path(f[2]));
  if (f[0] == "NameFile") NameFile(t.ctx, t.Path(f[1]), t.Path(f[2]));
  if (f[0] == "OpenFile") {
    TextFile file = OpenFile(t.ctx, t.Path(f[1]), f[2]);
    result = file.is_open() ? "open" : "closed";
    try {
      if (!file.is_open() || (f[2][0] | 0x20) == 'i') result += " read " + file.ReadLine();
      if (file.is_open() && (f[2][0] | 0x20) != 'i') file.WriteLine("x");
    } catch (const RuntimeError& e) {
      result += " !" + std::to_string(e.number());
    }
    result += " opens " + std::to_string(fs.calls(FsOp::kOpen)) + "\n";
  }
  fs.Clear();
  std::string out = "sleeps " + std::to_string(t.sleeper.count()) + " " +
                    std::to_string(t.sleeper.total().count()) + "ms\n" +
                    t.Read("LOG/quellor/16-11-2026.iwr");
  for (const std::string& w : t.ctx.window.List3.items()) out += "warning " + w + "\n";
  out += t.Read("LOG/system.log") + result;
  for (size_t at; (at = out.find(t.root())) != std::string::npos;) out.erase(at, t.root().size());
  for (const char* folder : {"IN/", "LOCAL/", "OUT/"}) {
    for (const std::string& name : t.List(folder))
      out += folder + name + "=" + t.Read(folder + name) + "\n";
  }
  return out;
}

// Success at once sleeps never and writes nothing; each failure is logged and retried after
// 100 ms; the eighth attempt is logged as " RESUME NEXT " and the call returns.
TEST(RetryingFilesTest, FailuresAreLoggedRetriedAndGivenUpAfterEight) {
  testing::CheckTable("retrying_files", RunPrimitive);
}

}  // namespace
}  // namespace quellor
