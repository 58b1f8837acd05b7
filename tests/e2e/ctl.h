#pragma once
// Runs the built quellorctl on a temporary installation, for the end-to-end tests.

#include <gtest/gtest.h>
#include <sys/wait.h>

#include <algorithm>
#include <cctype>
#include <cstdio>
#include <filesystem>
#include <string>
#include <string_view>
#include <vector>

#include "support/temp_tree.h"

namespace quellor::testing {

struct CtlResult {
  int status = -1;
  std::string out;
  std::string err;
};

// `quellorctl <args>` with QUELLOR_ROOT=`root` and any further VAR=value words in `env`.
inline CtlResult Ctl(const TempTree& tree, const std::string& root, const std::string& args,
                     const std::string& env = "") {
  const std::string err_file = tree.Path("ctl.err");
  const std::string command = "env QUELLOR_ROOT='" + root + "' " + env + " '" + QUELLOR_BINARY_DIR +
                              "/quellorctl' " + args + " 2>'" + err_file + "'";
  CtlResult r;
  FILE* pipe = popen(command.c_str(), "r");
  if (!pipe) return r;
  char buffer[4096];
  for (size_t n; (n = fread(buffer, 1, sizeof buffer, pipe)) > 0;) r.out.append(buffer, n);
  const int status = pclose(pipe);
  r.status = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
  r.err = tree.Read("ctl.err");
  return r;
}

// A pair in IN/: message file first, then the envelope.
inline void Drop(const TempTree& tree, const std::string& stem, const std::string& sender,
                 const std::string& recipient, const std::string& subject) {
  tree.Write("IN/" + stem + ".EML", "From: <" + sender + ">\r\nTo: <" + recipient +
                                        ">\r\nSubject: " + subject + "\r\n\r\nBody of " + stem +
                                        "\r\n");
  tree.WriteLines("IN/" + stem + ".WAI", {sender, recipient});
}

// True when `text` has the shape of `form`: "9" a digit, "A" a capital, "a" a small letter,
// any other character itself.
inline bool HasShape(std::string_view text, std::string_view form) {
  if (text.size() != form.size()) return false;
  for (size_t i = 0; i < form.size(); ++i) {
    const unsigned char c = static_cast<unsigned char>(text[i]);
    const bool ok = form[i] == '9'   ? std::isdigit(c) != 0
                    : form[i] == 'A' ? std::isupper(c) != 0
                    : form[i] == 'a' ? std::islower(c) != 0
                                     : text[i] == form[i];
    if (!ok) return false;
  }
  return true;
}

// The lines of the day logs of `folder` ("dd-mm-yyyy<ext>", oldest first: a run across midnight
// writes two) after their time of day, which must be "hh:mm:ss" followed by `gap`.
inline std::vector<std::string> DayLogLines(const TempTree& tree, const std::string& folder,
                                            const std::string& ext, const std::string& gap) {
  std::vector<std::filesystem::path> days;
  for (const auto& entry : std::filesystem::directory_iterator(tree.Path(folder))) {
    if (HasShape(entry.path().filename().string(), "99-99-9999" + ext)) days.push_back(entry);
  }
  std::sort(days.begin(), days.end(), [](const auto& a, const auto& b) {
    return std::filesystem::last_write_time(a) < std::filesystem::last_write_time(b);
  });
  std::vector<std::string> lines;
  for (const auto& day : days) {
    const std::string name = folder + "/" + day.filename().string();
    EXPECT_TRUE(tree.Read(name).ends_with("\r\n")) << name;
    for (const std::string& line : tree.ReadLines(name)) {
      EXPECT_TRUE(HasShape(line.substr(0, 8 + gap.size()), "99:99:99" + gap)) << line;
      lines.push_back(line.substr(std::min(line.size(), 8 + gap.size())));
    }
  }
  return lines;
}

}  // namespace quellor::testing
