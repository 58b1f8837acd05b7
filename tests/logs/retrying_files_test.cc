#include "logs/retrying_files.h"

#include <gtest/gtest.h>

#include <map>
#include <sstream>
#include <string>
#include <vector>

#include "platform/errors.h"
#include "platform/fs.h"
#include "platform/names.h"
#include "support/table.h"
#include "support/temp_tree.h"

namespace quellor {
namespace {

using testing::TempTree;

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
