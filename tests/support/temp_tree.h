#pragma once
// A fresh temporary installation tree for tests, with a fake clock and a recording sleeper.

#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "core/context.h"
#include "platform/clock.h"

namespace quellor::testing {

class TempTree {
 public:
  // Creates every folder of an installation (IN, LOCAL, OUT, WAIT, DEBUG, Users, SYSTEM, LOG,
  // LOG/quellor) under a new temporary root, in memory (/dev/shm) when asked and possible. The
  // clock reads 16/11/2026 10:00:00, zone +01:00.
  explicit TempTree(bool in_memory = false);
  ~TempTree();
  TempTree(const TempTree&) = delete;
  TempTree& operator=(const TempTree&) = delete;

  const std::string& root() const { return root_; }
  std::string Path(std::string_view relative) const { return root_ + std::string(relative); }
  // Writes bytes exactly as given (creating missing folders on the way).
  void Write(std::string_view relative, std::string_view bytes) const;
  // Writes lines, each ended with CR LF.
  void WriteLines(std::string_view relative, const std::vector<std::string>& lines) const;
  // The bytes of a file ("" when it does not exist).
  std::string Read(std::string_view relative) const;
  // The lines of a CR LF file.
  std::vector<std::string> ReadLines(std::string_view relative) const;
  bool Exists(std::string_view relative) const;
  void MakeFolder(std::string_view relative) const;
  void Remove(std::string_view relative) const;
  // Names in a folder, sorted.
  std::vector<std::string> List(std::string_view relative) const;

  FakeClock clock;
  RecordingSleeper sleeper;
  Context ctx;

 private:
  std::string root_;
};

}  // namespace quellor::testing
