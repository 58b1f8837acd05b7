#include "spool/stages/lines.h"

#include <chrono>
#include <unordered_map>

#include "logs/retrying_files.h"
#include "platform/files.h"
#include "platform/message.h"
#include "platform/names.h"
#include "spool/address.h"
#include "spool/ids.h"
#include "spool/lists.h"

namespace quellor {

std::string FreeQueueName(Context& ctx, const std::string& folder) {
  const auto taken = [&](const std::string& id) {
    for (const char* extension : {".WAI", ".EML", ".TMP"}) {
      if (AnyFileExists(ctx.Path(folder + id + extension))) return true;
    }
    return false;
  };
  // A second holds 1000 names (date and time, then 1 to 1000). When the drawn one is taken, the
  // others of its second are tried in turn from where the last search of that second stopped
  // (those before were all taken); when all are taken, the next second brings fresh ones.
  struct Cursor {
    std::string second;
    int next = 1;
  };
  static std::unordered_map<std::string, Cursor> cursors;
  for (;;) {
    std::string id = nextid(ctx);
    if (!taken(id)) return id;
    if (id.size() < 15) continue;  // not of the designed form: draw again
    Cursor& cursor = cursors[ctx.Path(folder)];
    if (cursor.second != id.substr(0, 14)) cursor = {id.substr(0, 14), 1};
    for (; cursor.next <= 1000; ++cursor.next) {
      std::string other = cursor.second + std::to_string(cursor.next);
      if (!taken(other)) return other;
    }
    ctx.sleeper.Sleep(std::chrono::milliseconds(1000));
  }
}

void WriteLocalMessage(PassRun& p, const std::string& message, const std::string& local) {
  Context& ctx = p.ctx;
  p.Step([&] { CopyNewFile(ctx, message, local + ".TMP", CopyHow::kShareInput); });
  // Flushed under its work name, so the name .EML never stands for a file not on the disk.
  const bool flushed = p.Step([&] { SyncFile(local + ".TMP"); });
  p.Step([&] { NameFile(ctx, local + ".TMP", local + ".EML"); });
  if (flushed) ctx.NoteFlushed(local + ".EML");
}

bool OpenForMarking(PassRun& p, const std::string& message) {
  bool small = false;
  int status = -1;
  p.Step([&] { small = static_cast<double>(FileLength(message)) / 1024.0 < 1000.0; });
  if (!small) return false;
  p.Step([&] { status = p.ctx.component().Open(message); });
  return status == 0;
}

bool WhiteListed(PassRun& p, const std::string& user, const std::string& sender) {
  Context& ctx = p.ctx;
  const std::string users = ctx.Path(ctx.users + "/");
  bool own = false;
  bool all = false;
  bool domain = false;
  p.Step([&] { own = buscaenlista(ctx, users + user + ".WLT", sender); });
  p.Step([&] { all = buscaenlista(ctx, users + "@.WLT", sender); });
  p.Step([&] { domain = buscaenlista(ctx, users + "@" + DomainOf(user) + ".WLT", sender); });
  return own || all || domain;
}

void AppendListLine(PassRun& p, const std::string& path, const std::string& entry) {
  bool unended = false;
  TextFile list;
  p.Step([&] { unended = LastLineUnended(path); });
  p.Step([&] { list = OpenFile(p.ctx, path, "APPEND", 2); });
  p.Step([&] {
    if (unended) list.WriteLine("");
    list.WriteLine(OneLine(entry));
  });
  p.Step([&] { list.Close(); });
}

}  // namespace quellor
