// quellorctl, the administrator's tool: creates installation trees, runs passes by hand, asks a
// running service for its status, and lists, releases and drops held mail.
#include <CLI/CLI.hpp>
#include <functional>
#include <iostream>
#include <string>
#include <vector>

#include "commands.h"

int main(int argc, char** argv) {
  CLI::App app{
      "quellorctl - the administrator's tool of Quellor, the challenge-response spam "
      "filter. The installation root is QUELLOR_ROOT (default /var/spool/quellor)."};
  app.require_subcommand(1);

  struct Command {
    const char* name;
    const char* description;
    std::function<int(const std::vector<std::string>&)> run;
    CLI::App* sub = nullptr;
  };
  std::vector<Command> commands = {
      {"init", "create a complete installation tree (never overwrites a file)",
       quellor::ctl::RunInit},
      {"pass", "run the start-up and a pass over IN/ (--all: until it is empty), print the state",
       quellor::ctl::RunPass},
      {"status", "print the status reply of a running service", quellor::ctl::RunStatus},
      {"held", "list the held messages (user, identifier, date, sender, subject, size)",
       quellor::ctl::RunHeld},
      {"release", "release a held message as a validation reply would", quellor::ctl::RunRelease},
      {"drop", "drop a held message as a bounce of its request would", quellor::ctl::RunDrop},
      {"postfix", "install|uninstall|check: make Postfix the host mail server in one command",
       quellor::ctl::RunPostfix},
  };
  // Each command parses its own arguments (and its own --help).
  for (Command& c : commands) {
    c.sub = app.add_subcommand(c.name, c.description);
    c.sub->prefix_command();
    c.sub->set_help_flag();
  }
  if (argc > 1 && argv[1][0] != '-') {
    bool known = false;
    for (const Command& c : commands) known = known || c.sub->check_name(argv[1]);
    if (!known) {
      std::cerr << "quellorctl: unknown command \"" << argv[1]
                << "\" (init, pass, status, held, release, drop or postfix; --help for more)\n";
      return 2;
    }
  }
  try {
    app.parse(argc, argv);
  } catch (const CLI::ParseError& e) {
    // Usage errors end with status 2, as the service's own "Invalid command option" does.
    return app.exit(e) == 0 ? 0 : 2;
  }
  for (const Command& c : commands) {
    if (c.sub->parsed()) return c.run(c.sub->remaining());
  }
  return 2;
}
