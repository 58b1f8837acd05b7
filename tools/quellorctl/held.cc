// quellorctl held [USER] [--json], release USER ID, drop USER ID: the held mail of WAIT/ in
// sight, and one held message let through or thrown away by hand, safely beside a running
// service (both wait for the tree's lock, which every pass holds).
#include "spool/held.h"

#include <CLI/CLI.hpp>
#include <algorithm>
#include <iostream>
#include <string>
#include <vector>

#include "commands.h"
#include "core/context.h"
#include "platform/clock.h"
#include "platform/names.h"
#include "platform/regional.h"
#include "platform/text.h"
#include "service/startup.h"
#include "status/held_view.h"

namespace quellor::ctl {

namespace {

// Parses the arguments of one subcommand; 0 to go on, else the exit status.
int Parse(CLI::App& app, const std::vector<std::string>& args) {
  try {
    std::vector<std::string> reversed(args.rbegin(), args.rend());
    app.parse(reversed);
  } catch (const CLI::ParseError& e) {
    return app.exit(e) == 0 ? -1 : 2;
  }
  return 0;
}

// The root, or a message and nothing when there is no installation.
bool Installation(const std::string& command, std::string& root) {
  root = RootFromEnvironment();
  if (FolderExists(root)) return true;
  std::cerr << "quellorctl " << command << ": no installation at " << root
            << " (set QUELLOR_ROOT, or create one with quellorctl init)\n";
  return false;
}

// Text from mail for a terminal: UTF-8, control characters (escape sequences) as "?".
std::string Shown(const std::string& cp1252) {
  std::string text = Cp1252ToUtf8(cp1252);
  for (char& c : text) {
    const unsigned char u = static_cast<unsigned char>(c);
    if (u < 0x20 || u == 0x7F) c = '?';
  }
  return text;
}

int RunAction(const std::string& command, const std::vector<std::string>& args) {
  const bool release = command == "release";
  CLI::App app{release ? "Releases a held message as a validation reply would: every held "
                         "message of its sender to that user goes to LOCAL/, and the sender is "
                         "white-listed."
                       : "Drops a held message as a bounce of its request would: the held pair "
                         "is removed and counted as purged.",
               "quellorctl " + command};
  std::string user;
  std::string id;
  app.add_option("USER", user, "the user (the folder name in WAIT/)")->required();
  app.add_option("ID", id, "the held message's identifier (as quellorctl held shows it)")
      ->required();
  if (const int status = Parse(app, args)) return status < 0 ? 0 : status;
  std::string root;
  if (!Installation(command, root)) return 1;

  SystemClock clock;
  RealSleeper sleeper;
  Context ctx(root, clock, sleeper);
  LoadStartup(ctx);
  const auto waiting = [&] {
    std::cerr << "quellorctl " << command << ": waiting for the pass that is running on " << root
              << "\n";
  };
  const HeldAction done =
      release ? ReleaseHeld(ctx, user, id, waiting) : DropHeld(ctx, user, id, waiting);
  (done.status == 0 ? std::cout : std::cerr)
      << (done.status == 0 ? "" : "quellorctl " + command + ": ") << Shown(done.message) << "\n";
  return done.status;
}

}  // namespace

int RunHeld(const std::vector<std::string>& args) {
  CLI::App app{
      "Lists the held messages (user, identifier, date, sender, subject, size), "
      "newest first.",
      "quellorctl held"};
  std::string user;
  bool json = false;
  app.add_option("USER", user, "only this user's held messages");
  app.add_flag("--json", json, "a JSON array instead of a table");
  if (const int status = Parse(app, args)) return status < 0 ? 0 : status;
  std::string root;
  if (!Installation("held", root)) return 1;

  SystemClock clock;
  RealSleeper sleeper;
  Context ctx(root, clock, sleeper);
  if (!user.empty() && WaitingArea(ctx, user).empty()) {
    std::cerr << "quellorctl held: unknown user "
              << (AdminName(user) ? user : std::string("(refused name)"))
              << ": no held mail in WAIT/\n";
    return 1;
  }
  const std::vector<HeldMessage> held = ListHeld(ctx, user);
  if (json) {
    std::cout << HeldListJson(held, clock) << "\n";
    return 0;
  }
  if (held.empty()) {
    std::cout << "no held mail\n";
    return 0;
  }
  // Aligned columns; the subject, last, runs on.
  std::vector<std::vector<std::string>> rows = {
      {"HELD SINCE", "USER", "ID", "SIZE", "SENDER", "SUBJECT"}};
  for (const HeldMessage& m : held) {
    rows.push_back({GeneralDateTime(clock.ToLocal(m.held)), Shown(m.user), Shown(m.id),
                    std::to_string(m.size), Shown(m.sender), Shown(m.subject)});
  }
  std::vector<size_t> width(rows[0].size(), 0);
  for (const auto& row : rows) {
    for (size_t i = 0; i < row.size(); ++i) width[i] = std::max(width[i], row[i].size());
  }
  for (const auto& row : rows) {
    std::string line;
    for (size_t i = 0; i + 1 < row.size(); ++i)
      line += row[i] + std::string(width[i] - row[i].size() + 2, ' ');
    std::cout << line << row.back() << "\n";
  }
  return 0;
}

int RunRelease(const std::vector<std::string>& args) {
  return RunAction("release", args);
}

int RunDrop(const std::vector<std::string>& args) {
  return RunAction("drop", args);
}

}  // namespace quellor::ctl
