#pragma once
// Shared set-up for tests of held mail: held pairs in a temporary
// installation tree and a pass run standing at one recipient line.

#include <memory>
#include <string>
#include <vector>

#include "platform/names.h"
#include "spool/pass_run.h"
#include "support/temp_tree.h"

namespace quellor::testing {

// A small message with the given subject line (none when empty).
inline std::string MessageText(const std::string& from, const std::string& subject) {
  std::string text = "From: " + from + "\r\nTo: u@y.org\r\n";
  if (!subject.empty()) text += "Subject: " + subject + "\r\n";
  return text + "\r\nHello there.\r\n";
}

class HeldMailTest {
 public:
  HeldMailTest() = default;

  // Writes WAIT/<user>/<id>.WAI (sender, recipient, and the subject line unless `lines` is 2)
  // and WAIT/<user>/<id>.EML.
  void Hold(const std::string& user, const std::string& id, const std::string& sender,
            const std::string& recipient, const std::string& subject, int lines = 3) {
    std::vector<std::string> envelope = {sender, recipient};
    if (lines == 3) envelope.push_back(subject);
    tree.WriteLines("WAIT/" + user + "/" + id + ".WAI", envelope);
    tree.Write("WAIT/" + user + "/" + id + ".EML", MessageText(sender, subject));
  }

  // A pass run at one recipient line of a message carrying `wait_id`.
  PassRun& AtLine(const std::string& sender, const std::string& recipient, const std::string& user,
                  const std::string& wait_id) {
    ForgetNameIndexes();
    run = std::make_unique<PassRun>(tree.ctx);
    run->s.sender = sender;
    run->s.recipient = recipient;
    run->s.user = user;
    run->s.wait_id = wait_id;
    return *run;
  }

  // Names of the files in a folder matching a suffix ("" for all).
  std::vector<std::string> Files(const std::string& folder, const std::string& suffix = "") {
    std::vector<std::string> out;
    for (const auto& name : tree.List(folder)) {
      if (name.size() >= suffix.size() &&
          name.compare(name.size() - suffix.size(), suffix.size(), suffix) == 0) {
        out.push_back(name);
      }
    }
    return out;
  }

  // The day's activity log and retry log.
  std::string ActivityLog() { return tree.Read("LOG/16-11-2026.log"); }
  std::string RetryLog() { return tree.Read("LOG/quellor/16-11-2026.iwr"); }
  // The error log: empty unless some statement failed.
  std::string Errors() { return tree.Read("LOG/system.log"); }
  // Lines of a log that contain a text.
  static int CountLines(const std::string& log, const std::string& text) {
    int n = 0;
    size_t pos = 0;
    while ((pos = log.find(text, pos)) != std::string::npos) {
      ++n;
      pos += text.size();
    }
    return n;
  }

  TempTree tree;
  std::unique_ptr<PassRun> run;
};

}  // namespace quellor::testing
