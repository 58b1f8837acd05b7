// The error sink of the context lives apart so that programs without logs need not link them.
#include "core/context.h"
#include "logs/logs.h"

namespace quellor {

ErrorSink Context::error_sink() {
  return [this](const std::string& label, int number, const std::string& description) {
    ErrorLog(*this, label, number, description);
  };
}

}  // namespace quellor
