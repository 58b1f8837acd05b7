#pragma once
// A queue of input pairs whose messages each carry a token (a line of the body), and where the
// tokens are afterwards: for the tests that kill passes or fail their file calls.

#include <filesystem>
#include <map>
#include <string>
#include <vector>

#include "support/process.h"
#include "support/temp_tree.h"

namespace quellor::testing {

struct Queued {
  std::string stem;
  std::string token;
  std::vector<std::string> held_for;
  int delivered = 0;  // recipients that get a LOCAL/ copy
  int recipients() const { return delivered + static_cast<int>(held_for.size()); }
};

// Every kind of route: held (three protected users), forwarded, learned, and a message to all
// three; every tenth message starts with an envelope line, which the pass strips by a rewrite.
// Every other message file is writable by its group, so that it is copied byte by byte, not
// given a second name.
inline std::vector<Queued> FillQueue(TempTree& tree, int messages) {
  tree.Write("SYSTEM/validation.txt", "Reply to $email.\r\n");
  tree.Write("SYSTEM/validation.htm", "<p>Reply.</p>\r\n");
  tree.Write("Users/l@y.org.CONF", "MODE=LEARN\r\n");
  for (int u = 0; u < 3; ++u)
    tree.Write("Users/p" + std::to_string(u) + "@y.org.CONF", "MODE=QUELLOR\r\n");
  std::vector<Queued> queue;
  for (int i = 0; i < messages; ++i) {
    Queued q;
    q.stem = "20261116" + std::to_string(100000000 + i);
    q.token = "token-" + std::to_string(i);
    const std::string protected_user = "p" + std::to_string(i % 3) + "@y.org";
    std::vector<std::string> envelope = {"s" + std::to_string(i) + "@x.org"};
    if (i % 4 == 0 || i % 4 == 3) q.held_for = {protected_user};
    if (i % 4 == 1) envelope.push_back("f" + std::to_string(i % 7) + "@y.org");
    if (i % 4 == 2) envelope.push_back("l@y.org");
    if (i % 4 == 3) envelope.push_back("f1@y.org");
    if (!q.held_for.empty()) envelope.push_back(protected_user);
    if (i % 4 == 3) envelope.push_back("l@y.org");
    q.delivered = static_cast<int>(envelope.size()) - 1 - static_cast<int>(q.held_for.size());
    tree.WriteLines("IN/" + q.stem + ".WAI", envelope);
    const std::string from_line = i % 10 == 0 ? "From s@x.org Mon Nov 16 09:00:00 2026\r\n" : "";
    tree.Write("IN/" + q.stem + ".EML", from_line + "From: s@x.org\r\nSubject: Hi " +
                                            std::to_string(i) + "\r\n\r\n" + q.token + "\r\n");
    if (i % 2 == 1) {
      std::filesystem::permissions(tree.Path("IN/" + q.stem + ".EML"),
                                   std::filesystem::perms::group_write,
                                   std::filesystem::perm_options::add);
    }
    queue.push_back(q);
  }
  return queue;
}

// How many message files (and rewrite copies) under a folder hold each token.
inline std::map<std::string, int> CountTokens(const std::string& folder) {
  std::map<std::string, int> counts;
  if (!std::filesystem::exists(folder)) return counts;
  for (const auto& entry : std::filesystem::recursive_directory_iterator(folder)) {
    const std::string ext = entry.path().extension().string();
    if (!entry.is_regular_file() || (ext != ".EML" && ext != ".HDR")) continue;
    const std::string text = ReadFile(entry.path());
    const size_t at = text.find("token-");
    if (at != std::string::npos) ++counts[text.substr(at, text.find('\r', at) - at)];
  }
  return counts;
}

// The tokens of the queue found nowhere (LOCAL/, WAIT/, IN/, DEFER/).
inline std::vector<Queued> Lost(const TempTree& tree, const std::vector<Queued>& queue) {
  std::map<std::string, int> kept;
  for (const char* folder : {"LOCAL", "WAIT", "IN", "DEFER"}) {
    for (const auto& [token, n] : CountTokens(tree.Path(folder))) kept[token] += n;
  }
  std::vector<Queued> lost;
  for (const Queued& q : queue) {
    if (!kept.count(q.token)) lost.push_back(q);
  }
  return lost;
}

}  // namespace quellor::testing
