#include "core/window_model.h"

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
}

void WindowModel::ResetToday() {
  for (Counter* c :
       {&todayforward, &todaylearn, &todayignore, &todayvalidations, &todaypurged, &todayinvalid}) {
    c->Set("0");
  }
}

}  // namespace quellor
