#include "config/readini.h"

#include <cstdint>
#include <string>
#include <string_view>

#include "logs/retrying_files.h"
#include "platform/files.h"
#include "platform/guard.h"
#include "platform/text.h"

namespace quellor {

namespace {

// The keys in the order they are tested; a setting is either a port or a text.
struct Key {
  std::string_view name;
  int16_t Settings::*port;
  std::string Settings::*text;
};

constexpr Key kKeys[] = {
    {"LISTENING_PORT=", &Settings::listening_port, nullptr},
    {"SERVER_PORT=", &Settings::server_port, nullptr},
    {"GATEWAY_PORT=", &Settings::gateway_port, nullptr},
    {"SERVER=", nullptr, &Settings::server},
    {"GATEWAY=", nullptr, &Settings::gateway},
    {"POSTMASTERS=", nullptr, &Settings::postmasters},
    {"VALIDATION_METHOD=", nullptr, &Settings::validation_method},
    {"DOMAINS_AUTO=", nullptr, &Settings::domains_auto},
    {"USERS_AUTO=", nullptr, &Settings::users_auto},
    {"LOG=", nullptr, &Settings::log},
    {"DEBUG=", nullptr, &Settings::debug},
    {"SAFE_DELIVERY=", nullptr, &Settings::safe_delivery},
    {"CHALLENGE_FILTER=", nullptr, &Settings::challenge_filter},
    {"MESSAGES_PER_PASS=", nullptr, &Settings::messages_per_pass},
    {"MESSAGE_PAUSE=", nullptr, &Settings::message_pause},
};

}  // namespace

void readini(Context& ctx) {
  Settings& s = ctx.settings;
  // LOG and DEBUG keep the start values that start-up gave them.
  s.listening_port = s.server_port = s.gateway_port = 0;
  for (std::string* text :
       {&s.server, &s.gateway, &s.postmasters, &s.validation_method, &s.domains_auto, &s.users_auto,
        &s.safe_delivery, &s.challenge_filter, &s.messages_per_pass, &s.message_pause}) {
    text->clear();
  }

  Guard guard(ctx.error_sink(), "Quellor - readini");
  TextFile file;
  guard([&] { file = OpenFile(ctx, ctx.Path("quellor.ini"), "INPUT"); });
  while (true) {
    bool end = true;
    std::string line;
    // A file that did not open, or a read that fails, ends the reading: the settings keep
    // what they have, and the loop never spins on a dead file.
    if (!guard([&] { end = file.Eof(); }) || end) break;
    if (!guard([&] { line = file.ReadLine(); })) break;
    std::string upper = UCase(line);
    for (const Key& key : kKeys) {
      if (upper.compare(0, key.name.size(), key.name) != 0) continue;
      std::string value = Trim(std::string_view(line).substr(key.name.size()));
      if (key.port) {
        // An overflowing port is logged and the assignment skipped.
        guard([&] { s.*key.port = CInt16(Val(value)); });
      } else {
        s.*key.text = value;
      }
    }
  }
  guard([&] { file.Close(); });
}

}  // namespace quellor
