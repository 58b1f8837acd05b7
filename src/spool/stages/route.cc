// Per-user configuration and modes: the recipient's Users/<user>.CONF chooses learn mode,
// protection mode or forward mode; a recipient without one is forwarded and may be provisioned.
#include <string>

#include "logs/retrying_files.h"
#include "platform/files.h"
#include "platform/names.h"
#include "platform/text.h"
#include "spool/address.h"
#include "spool/lists.h"
#include "spool/stages.h"
#include "spool/stages/lines.h"

namespace quellor {

namespace {

// The recipient's settings read from the configuration file.
struct UserConfig {
  std::string mode;             // the first non-empty "MODE=" value, upper case
  bool validation_off = false;  // a line "VALIDATION=OFF"
};

// The value after the first "MODE=" of the upper-cased line, trimmed; "" without one.
std::string ModeOf(const std::string& line) {
  const std::string upper = UCase(line);
  const size_t at = upper.find("MODE=");
  return at == std::string::npos ? "" : Trim(upper.substr(at + 5));
}

UserConfig ReadConfig(PassRun& p, const std::string& path) {
  UserConfig config;
  TextFile file;
  p.Step([&] { file = OpenFile(p.ctx, path, "INPUT", 2); });
  p.Mark(22);
  p.Step([&] {
    while (!file.Eof()) {
      const std::string line = file.ReadLine();
      if (config.mode.empty()) config.mode = ModeOf(line);
      if (Trim(UCase(line)) == "VALIDATION=OFF") config.validation_off = true;
    }
  });
  p.Step([&] { file.Close(); });
  p.Mark(23);
  return config;
}

// Learn mode: senders not on the user's own white list are recorded in <user>.LRN.
void LearnMode(PassRun& p, const std::string& users) {
  Context& ctx = p.ctx;
  PassState& s = p.s;
  p.Step([&] { ctx.window.Learn.Increment(); });
  p.Step([&] { ctx.window.todaylearn.Increment(); });

  bool listed = false;
  p.Step([&] { listed = buscaenlista(ctx, users + s.user + ".WLT", s.sender); });
  if (!listed) {
    const std::string learned = users + s.user + ".LRN";
    bool known = false;
    p.Step([&] {
      if (!OrdinaryFileExists(learned)) return;
      TextFile file = OpenFile(ctx, learned, "INPUT", 2);
      const std::string sender = UCase(s.sender);
      while (!known && !file.Eof()) known = UCase(Trim(file.ReadLine())) == sender;
      file.Close();
    });
    if (!known) {
      AppendListLine(p, learned, s.sender);
    }
  }
  p.Mark(24);
  Deliver(p, DeliveryRoute::kLearn);
}

// Protection mode: white-listed senders are delivered, everybody else is held and challenged.
void ProtectionMode(PassRun& p, bool validation_off) {
  Context& ctx = p.ctx;
  PassState& s = p.s;
  p.Step([&] { ctx.window.Ignore.Increment(); });
  p.Step([&] { ctx.window.todayignore.Increment(); });
  p.Mark(25);
  if (WhiteListed(p, s.user, s.sender)) {
    Deliver(p, DeliveryRoute::kWhiteListed);
  } else {
    Hold(p, validation_off);
  }
}

}  // namespace

void RouteRecipient(PassRun& p) {
  Context& ctx = p.ctx;
  PassState& s = p.s;
  p.Mark(21);
  // A validation reply (valid or invalid) is consumed for all its recipient lines.
  if (s.handled) return;

  const std::string users = ctx.Path(ctx.users + "/");
  const std::string conf = users + s.user + ".CONF";
  bool configured = false;
  // A mailbox name that could leave Users/ has no configuration.
  p.Step([&] { configured = SafeName(s.user) && OrdinaryFileExists(conf); });
  if (!configured) {
    Deliver(p, DeliveryRoute::kForwardUnconfigured);
    Provision(p);
    return;
  }

  const UserConfig config = ReadConfig(p, conf);
  // No keyword for forward mode: every other value forwards.
  if (config.mode == "LEARN") {
    LearnMode(p, users);
  } else if (config.mode == "QUELLOR") {
    ProtectionMode(p, config.validation_off);
  } else {
    Deliver(p, DeliveryRoute::kForwardConfigured);
  }
}

}  // namespace quellor
