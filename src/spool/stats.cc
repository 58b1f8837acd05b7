#include "spool/stats.h"

#include <array>
#include <cstdint>
#include <vector>

#include "logs/retrying_files.h"
#include "platform/errors.h"
#include "platform/files.h"
#include "platform/names.h"
#include "platform/regional.h"
#include "platform/text.h"
#include "spool/address.h"

namespace quellor {

namespace {

std::vector<std::string> SplitFields(const std::string& line) {
  std::vector<std::string> fields;
  size_t start = 0;
  while (true) {
    size_t bar = line.find('|', start);
    if (bar == std::string::npos) {
      fields.push_back(line.substr(start));
      return fields;
    }
    fields.push_back(line.substr(start, bar - start));
    start = bar + 1;
  }
}

// The pair of fields (0-based among the eight counts) that a text adds to, or -1.
int Category(const std::string& text) {
  if (InStr(text, "Received ")) return 0;
  if (InStr(text, "Deleted ")) return 1;
  if (InStr(text, "Rejected ")) return 2;
  if (InStr(text, "Delayed ")) return 3;
  return -1;
}

}  // namespace

void UpdateStatistics(Context& ctx, const std::string& text, std::string& user) {
  size_t to = InStr(text, "to <");
  if (to == 0) return;
  size_t start = to + 4;
  size_t end = InStr(text, ">", start);
  // No ">" after "to <": the address would have a negative length.
  if (end == 0) Raise(kErrInvalidCall);
  user = text.substr(start - 1, end - start);
  if (user.empty()) return;
  user = ResolveAlias(ctx, user);
  // Names that could leave WAIT/ never name a holding folder; the directory search for the
  // folder admits no hidden entry.
  if (!SafeName(user) || user.front() == '.' || !PathExists(ctx.Path("WAIT/" + user))) return;

  std::string path = ctx.Path("WAIT/" + user + "/stats.log");
  std::string date = ShortDate(ctx.clock.LocalNow());
  std::array<int32_t, 8> counts{};
  if (OrdinaryFileExists(path)) {
    TextFile in = OpenFile(ctx, path, "INPUT");
    // An empty file fails here, past its end, and so stays empty until someone removes it.
    std::string line = in.ReadLine();
    in.Close();
    std::vector<std::string> fields = SplitFields(line);
    if (fields.size() == 9) {
      date = fields[0];
      for (size_t i = 0; i < counts.size(); ++i) counts[i] = CLng(Val(fields[i + 1]));
    }
  }
  int category = Category(text);
  if (category >= 0) {
    // The four counts are kept twice, in fields 2-5 and again in 6-9.
    counts[category] = CLng(static_cast<double>(counts[category]) + 1);
    counts[category + 4] = CLng(static_cast<double>(counts[category + 4]) + 1);
  }
  std::string out = date;
  for (int32_t c : counts) {
    out += '|';
    out += std::to_string(c);
  }
  // Replaced as a whole: a crash leaves the old counts or the new ones.
  ReplaceWholeFile(path, out + "\r\n");
}

}  // namespace quellor
