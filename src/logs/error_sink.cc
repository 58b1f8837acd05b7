#include "logs/error_sink.h"

#include <cstdio>
#include <exception>

#include "logs/logs.h"

namespace quellor {

ErrorSink CarryOnSink(Context& ctx) {
  return [&ctx](const std::string& label, int number, const std::string& description) {
    try {
      ErrorLog(ctx, label, number, description);
    } catch (const std::exception&) {
      // The journal receives standard error under systemd: the line is not lost.
      std::fprintf(stderr, "%s - #%d - %s\n", label.c_str(), number, description.c_str());
    }
  };
}

}  // namespace quellor
