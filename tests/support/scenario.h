#pragma once
// Golden scenarios: a temporary installation set up from `<case>.in`, run, and compared with
// `<case>.ref` as the list of files it changed plus the window's counters and lists.
//
// Both files are read line by line. A line "== path" starts a file whose following lines are
// each written with CR LF; "=~ path" starts a file whose following lines are joined as they are,
// with the escapes \r \n \t \0 \\ and \xHH; "-- path" in a result names a removed file; a path
// ending in "/" is a folder. Lines beginning with "@" are directives ("@fill <size>" pads the file
// before it with "x", "@link <path> <target>" makes a symbolic link, "@fifo <path>" a FIFO; the
// test adds the rest); lines beginning with "#" are comments. Set
// QUELLOR_BLESS=1 to write the results as the new references.

#include <gtest/gtest.h>

#include <functional>
#include <map>
#include <string>
#include <vector>

#include "support/temp_tree.h"

namespace quellor::testing {

class Scenario {
 public:
  // A directive's name and its words.
  using Directive = std::function<void(TempTree&, const std::vector<std::string>&)>;

  // The cases of a folder of tests/data: every "*.in", sorted, named without the extension.
  static std::vector<std::string> Cases(const std::string& folder);

  explicit Scenario(TempTree& tree) : tree_(tree) {}
  void On(const std::string& name, Directive run) { directives_[name] = std::move(run); }
  // Sets the tree up and runs the directives in order; returns what changed, for the reference.
  std::string Run(const std::string& in_path);
  // Compares with `<case>.ref`, or writes it when blessing.
  static void Check(const std::string& ref_path, const std::string& result);
  // Every file and folder that differs from what the case wrote, removed ones included.
  std::string Changes() const;

 private:
  void Snapshot();

  TempTree& tree_;
  std::map<std::string, Directive> directives_;
  std::map<std::string, std::string> before_;  // path -> bytes ("/" suffix for folders)
};

// The escaped form of bytes, a line break after each "\n" and at the end.
std::string Escape(const std::string& bytes);
// Bytes from the escaped form of a "=~" file (\r \n \t \0 \\ \xHH).
std::string Unescape(const std::string& text);
// A case's name as a test name (letters and digits kept, anything else "_").
std::string ScenarioName(const ::testing::TestParamInfo<std::string>& info);

// The window's nonzero counters and every list line, one per line (a run of equal lines once).
std::string WindowText(const WindowModel& w);

}  // namespace quellor::testing
