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

TEST(Logs, DayNameIsTakenForEveryLine) {
  TempTree t;
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

// Runs one retrying primitive, or one of the logs, on a fresh tree. Fields: the call, its two
// arguments (paths relative to the root; OpenFile's second is the mode; ErrorLog's second is the
// number and the description), the files to write first ("path=bytes", "folder/", or "-path" to
// remove, blank-separated), the calls to fail ("op path-part times [errno]", from the first),
// and the LOG and DEBUG switches. The outcome: sleeps, the retry log and the warnings (root taken
// out), the error log, what the call returned, the activity log, the files of IN, LOCAL, OUT and
// WAIT/u@y.
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
    if (w.starts_with("-")) {
      t.Remove(w.substr(1));
    } else if (w.ends_with("/")) {
      t.MakeFolder(w);
    } else {
      t.Write(w.substr(0, w.find('=')), w.substr(w.find('=') + 1));
    }
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
  if (f[0] == "ErrorLog") ErrorLog(t.ctx, f[1], std::stoi(f[2]), f[2].substr(f[2].find(' ') + 1));
  if (f[0] == "Statuslog") Statuslog(t.ctx, f[1], 2, ".log");
  if (f[0] == "log") {
    std::string text = f[1];
    log(t.ctx, text, 1, ".iwr");
  }
  if (f[0] == "Statuslog" || f[0] == "log")
    result = "opens " + std::to_string(fs.calls(FsOp::kOpen)) + "\n";
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
  if (t.Exists("LOG/16-11-2026.log")) out += "activity " + t.Read("LOG/16-11-2026.log");
  for (size_t at; (at = out.find(t.root())) != std::string::npos;) out.erase(at, t.root().size());
  for (const char* folder : {"IN/", "LOCAL/", "OUT/", "WAIT/u@y/"}) {
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
