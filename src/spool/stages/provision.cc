// New-user provisioning: the first message to an unconfigured user of a local domain gives the
// user a configuration file copied from SYSTEM/NEW_USER.CONF.
#include <string>

#include "logs/retrying_files.h"
#include "platform/files.h"
#include "platform/names.h"
#include "platform/text.h"
#include "spool/address.h"
#include "spool/stages.h"

namespace quellor {

void Provision(PassRun& p) {
  Context& ctx = p.ctx;
  PassState& s = p.s;
  p.Mark(34);
  if (ctx.settings.users_auto != "YES") return;
  // A mailbox name that could leave Users/ is never given a file.
  if (!SafeName(s.user)) return;

  const std::string domain = LCase(DomainOf(s.user));
  const std::string conf = ctx.Path(ctx.users + "/" + s.user + ".CONF");
  TextFile list;
  p.Step([&] { list = OpenFile(ctx, ctx.Path("DOMAIN.LST"), "INPUT", 2); });
  p.Step([&] {
    bool done = false;
    while (!done && !list.Eof()) {
      const std::string entry = LCase(Trim(list.ReadLine()));
      if (domain == entry) {
        CopyFile(ctx, ctx.Path("SYSTEM/NEW_USER.CONF"), conf);
        done = true;
      }
      // The list is kept sorted: a greater entry means the domain is not listed.
      if (domain < entry) done = true;
    }
  });
  p.Step([&] { list.Close(); });
}

}  // namespace quellor
