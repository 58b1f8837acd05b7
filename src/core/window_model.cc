#include "core/window_model.h"

#include <algorithm>

#include "platform/errors.h"
#include "platform/text.h"

namespace quellor {

double Counter::Value() const {
  return Val(text_);
}

void Counter::Increment() {
  text_ = DecimalText(Value() + 1);
}

void Counter::Decrement() {
  text_ = DecimalText(Value() - 1);
}

const std::string& ListModel::At(size_t i) const {
  if (i >= items_.size()) Raise(kErrInvalidCall);
  return items_[i];
}

void ListModel::Set(size_t i, std::string line) {
  if (i >= items_.size()) Raise(kErrInvalidCall);
  items_[i] = std::move(line);
  ++version_;
}

bool ListModel::InsertSorted(std::string line, bool (*less)(std::string_view, std::string_view)) {
  const auto at = std::lower_bound(
      items_.begin(), items_.end(), line,
      [less](const std::string& item, const std::string& value) { return less(item, value); });
  if (at != items_.end() && *at == line) return false;
  items_.insert(at, std::move(line));
  ++version_;
  return true;
}

bool ListModel::RemoveSorted(const std::string& line,
                             bool (*less)(std::string_view, std::string_view)) {
  const auto at = std::lower_bound(
      items_.begin(), items_.end(), line,
      [less](const std::string& item, const std::string& value) { return less(item, value); });
  if (at == items_.end() || *at != line) return false;
  items_.erase(at);
  ++version_;
  return true;
}

void WindowModel::ResetToday() {
  for (Counter* c :
       {&todayforward, &todaylearn, &todayignore, &todayvalidations, &todaypurged, &todayinvalid}) {
    c->Set("0");
  }
}

}  // namespace quellor
