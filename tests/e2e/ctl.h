#pragma once
// Runs the built quellorctl on a temporary installation, for the end-to-end tests.

#include <gtest/gtest.h>

#include <algorithm>
#include <cctype>
#include <filesystem>
#include <string>
#include <string_view>
#include <vector>

#include "support/process.h"
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
  CtlResult r;
  r.status = Sh("env QUELLOR_ROOT='" + root + "' " + env + " '" QUELLOR_BINARY_DIR "/quellorctl' " +
                    args + " 2>'" + tree.Path("ctl.err") + "'",
                &r.out);
  r.err = tree.Read("ctl.err");
  return r;
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

// A status reply or state dump with its start-up time checked and taken out.
inline std::string AfterStartTime(const std::string& dump) {
  const std::string key = "START UP TIME=";
  const size_t end = dump.find("\r\n");
  const bool ok = dump.starts_with(key) && end != std::string::npos &&
                  HasShape(dump.substr(key.size(), end - key.size()), "99 Aaa 9999 99:99:99");
  EXPECT_TRUE(ok) << dump;
  return ok ? dump.substr(end + 2) : dump;
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
