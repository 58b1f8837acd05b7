#pragma once
// FuzzTree: one temporary installation tree per fuzzing process, emptied again before every
// input, with a fixed clock and a sleeper that does not sleep.

#include <string>
#include <string_view>

#include "core/context.h"
#include "platform/clock.h"

namespace quellor::fuzz {

class FuzzTree {
 public:
  FuzzTree();
  // Removes everything below the root, creates the installation's folders again and gives the
  // context fresh settings and window state.
  void Reset();
  // Writes bytes exactly as given to a file below the root.
  void Write(std::string_view relative, std::string_view bytes) const;

  FakeClock clock;
  RecordingSleeper sleeper;
  Context ctx;
};

// The process's one tree (made on first use; removed when the process ends).
FuzzTree& Tree();

}  // namespace quellor::fuzz
