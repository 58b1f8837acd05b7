#pragma once
// The status window's state: the counters (each a decimal number kept as text) and the lists of
// recent events. The pass writes it, the status protocol and the window page read it.

#include <algorithm>
#include <cstdint>
#include <deque>
#include <string>
#include <string_view>
#include <vector>

namespace quellor {

// A counter kept as decimal text, as the window shows it and the status protocol sends it.
class Counter {
 public:
  const std::string& text() const { return text_; }
  void Set(std::string text) { text_ = std::move(text); }
  // The numeric value of the text (leading number, blanks skipped, 0 if none).
  double Value() const;
  // Reads the numeric value, adds one and writes plain decimal back ("13").
  void Increment();
  // Lowers by one (the pass counting down the queue).
  void Decrement();

 private:
  std::string text_ = "0";
};

// A list of text lines; index 0 is the top. Taking the top line off and adding one near
// either end cost the same whatever the length, so the input listing can hold a long queue.
class ListModel {
 public:
  void Add(std::string line) {
    items_.push_back(std::move(line));
    ++version_;
  }
  void InsertTop(std::string line) {
    items_.push_front(std::move(line));
    ++version_;
  }
  void Clear() {
    items_.clear();
    ++version_;
  }
  // The 16-bit entry count the window reports. It stops at 32767 instead of wrapping round to
  // negative counts: a longer input queue must still read as a queue (a deliberate departure,
  // since a wrapped queue count stopped the passes for good).
  int16_t Count() const { return static_cast<int16_t>(std::min<size_t>(items_.size(), 32767)); }
  size_t size() const { return items_.size(); }
  // Line at an index; raises "Invalid procedure call or argument" outside the list.
  const std::string& At(size_t i) const;
  void Set(size_t i, std::string line);
  const std::deque<std::string>& items() const { return items_; }
  // For a list kept in an order `less`: puts a line in its place unless it is there, or takes
  // it out; true when the list changed.
  bool InsertSorted(std::string line, bool (*less)(std::string_view, std::string_view));
  bool RemoveSorted(const std::string& line, bool (*less)(std::string_view, std::string_view));
  // Changes with every change of the lines: equal versions, equal lines.
  uint64_t version() const { return version_; }

 private:
  std::deque<std::string> items_;
  uint64_t version_ = 0;
};

struct WindowModel {
  // Totals.
  Counter Forward, Learn, Ignore, Validations, purged, invalid;
  // The same six for the current day.
  Counter todayforward, todaylearn, todayignore, todayvalidations, todaypurged, todayinvalid;
  // Messages waiting in the input queue / still to be handled by the running pass.
  Counter total;
  // Messages copied to the debug folder.
  Counter kelpo;
  // Start-up time "dd mmm yyyy hh:mm:ss"; "xx" until the Start command ran.
  std::string starttime = "xx";

  ListModel List1;       // "Local postmasters"
  ListModel List2;       // "Validations"
  ListModel List3;       // "Warnings"
  ListModel purgedlist;  // "Purged Emails"
  ListModel domainlist;  // "Incoming Mails"
  ListModel outlist;     // "Local Mails"
  ListModel File1;       // "In Queue"

  bool check1 = false;        // "Accept External Query"
  bool start_enabled = true;  // the Start button Command1
  bool visible = true;        // hidden when DEBUG is exactly "OFF" at start-up
  std::string title = "Spam Quellor";

  // Resets the six today counters to "0" (the daily reset).
  void ResetToday();
};

}  // namespace quellor
