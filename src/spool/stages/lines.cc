#include "spool/stages/lines.h"

#include "platform/files.h"
#include "platform/message.h"
#include "platform/names.h"
#include "spool/ids.h"

namespace quellor {

std::string OneLine(std::string value) {
  // On purpose unlike every other text, which is written as it stands: CR and LF inside a value
  // written as one line become blanks, so no subject can add a header line and no address an
  // envelope line.
  for (char& c : value) {
    if (c == '\r' || c == '\n') c = ' ';
  }
  return value;
}

std::string FreeQueueName(Context& ctx, const std::string& folder) {
  const auto taken = [&](const std::string& id) {
    for (const char* extension : {".WAI", ".EML", ".TMP"}) {
      if (AnyFileExists(ctx.Path(folder + id + extension))) return true;
    }
    return false;
  };
  std::string id = nextid(ctx);
  // Bounded: with a frozen clock every draw could repeat, and a name is still better than none.
  for (int tries = 0; tries < 1000 && taken(id); ++tries) id = nextid(ctx);
  return id;
}

bool OpenForMarking(PassRun& p, const std::string& message) {
  bool small = false;
  int status = -1;
  p.Step([&] { small = static_cast<double>(FileLength(message)) / 1024.0 < 1000.0; });
  if (!small) return false;
  p.Step([&] { status = p.ctx.component().Open(message); });
  return status == 0;
}

}  // namespace quellor
