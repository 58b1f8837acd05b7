#pragma once
// Writes one input pair into IN/ so that the pass never sees half of it: the envelope under its
// final name first, the message under "<stem>.TMP", both flushed, then renamed to "<stem>.EML".

#include <ctime>
#include <string>
#include <string_view>

namespace quellor::bridge {

// What became of one attempt to write a pair.
struct PairResult {
  bool written = false;
  std::string stem;   // the stem used (on success)
  std::string error;  // what failed, for the mail server's log (on failure)
};

// The stem for a moment: UTC "YYYYMMDDHHMMSS" and six digits of microseconds, so that stems
// sort by name in arrival order and hold digits only (a held pair's stem is its wait identifier).
std::string StemAt(const struct timespec& when);
// The next stem after `stem` (the digit string plus one, same length unless it overflows).
std::string NextStem(std::string stem);

// Writes "<stem>.WAI" (O_EXCL) and "<stem>.EML" into `folder` (with trailing "/"), taking the
// first stem from `first_stem` on whose names nothing exists yet. On failure nothing of the pair
// is left behind.
PairResult WriteInPair(const std::string& folder, const std::string& first_stem,
                       std::string_view envelope, std::string_view message);

}  // namespace quellor::bridge
