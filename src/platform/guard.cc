#include "platform/guard.h"

#include <new>
#include <stdexcept>

namespace quellor {

Guard::Guard(ErrorSink sink, std::string label)
    : sink_(std::move(sink)), label_([l = std::move(label)] { return l; }) {}

Guard::Guard(ErrorSink sink, std::function<std::string()> label)
    : sink_(std::move(sink)), label_(std::move(label)) {}

void Guard::Report(int number, const std::string& description) {
  last_number_ = number;
  last_description_ = description;
  // A failure of the sink itself (the error log cannot be written) escapes to the caller.
  if (sink_) sink_(label_(), number, description);
}

int Guard::Classify(const std::exception& e) {
  if (dynamic_cast<const std::bad_alloc*>(&e)) return 7;
  if (dynamic_cast<const std::out_of_range*>(&e)) return kErrSubscript;
  if (dynamic_cast<const std::overflow_error*>(&e)) return kErrOverflow;
  return kErrInvalidCall;
}

}  // namespace quellor
