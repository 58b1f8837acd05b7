#include "spool/pass_run.h"

#include <exception>
#include <string>
#include <vector>

#include "logs/logs.h"
#include "platform/errors.h"
#include "platform/files.h"
#include "platform/names.h"

namespace quellor {

namespace {
// The folder that holds a path ("/a/b/c.EML" -> "/a/b"); "" when there is none.
std::string FolderOf(const std::string& path) {
  const size_t slash = path.find_last_of('/');
  if (slash == std::string::npos || slash == 0) return "";
  return path.substr(0, slash);
}

// A folder path without its trailing "/", so that "/a/b/" and "/a/b" are recorded once.
std::string WithoutTrailingSlash(std::string path) {
  while (path.size() > 1 && path.back() == '/') path.pop_back();
  return path;
}
}  // namespace

PassRun::PassRun(Context& context)
    : ctx(context),
      guard_(context.error_sink(), std::function<std::string()>([this] { return Label(); })),
      outer_record_(context.written) {
  ctx.written = &written_;
}

PassRun::~PassRun() {
  ctx.written = outer_record_;
}

std::string PassRun::Label() const {
  return "Quellor - quellor - errseek =" + std::to_string(s.errseek);
}

void PassRun::Report(int number, const std::string& description) {
  try {
    ErrorLog(ctx, Label(), number, description);
  } catch (const std::exception&) {
    // Without SAFE_DELIVERY an error log that cannot be written raises: this line is not worth
    // cutting the pass short for, so it goes to the journal like the safe switch does.
    ctx.Journal(Label() + " - #" + std::to_string(number) + " - " + description);
  }
}

void PassRun::FlushWritten() {
  // Folders whose entries must reach the disk: those of the written files, of the files
  // replaced whole, the folders created for this message, and the folders that hold those (a
  // new folder is an entry of its parent). Each is flushed once, in one batch with the files.
  std::set<std::string> folders = replaced_folders_.Take();
  folders.merge(written_.entry_folders);
  for (const std::string& path : written_.files) {
    const std::string folder = FolderOf(path);
    if (!folder.empty()) folders.insert(folder);
  }
  for (const std::string& made : written_.folders) {
    const std::string folder = WithoutTrailingSlash(made);
    folders.insert(folder);
    const std::string parent = FolderOf(folder);
    if (!parent.empty()) folders.insert(parent);
  }
  const std::vector<std::string> files = std::move(written_.files);
  written_ = WriteRecord{};
  std::vector<int> results;
  if (!Step([&] { results = SyncTogether(files, {folders.begin(), folders.end()}); })) {
    Unfinished(guard_.last_number());
    return;
  }
  for (const int result : results) {
    if (result == 0) continue;
    Step([&] { RaiseErrno(-result); });
    Unfinished(guard_.last_number());
  }
}

}  // namespace quellor
