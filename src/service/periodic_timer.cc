#include "service/periodic_timer.h"

#include <utility>

namespace quellor {

PeriodicTimer::PeriodicTimer(boost::asio::io_context& io, std::chrono::milliseconds interval,
                             std::function<void()> tick)
    : timer_(io), interval_(interval), tick_(std::move(tick)) {}

void PeriodicTimer::Start() {
  due_ = std::chrono::steady_clock::now() + interval_;
  Arm();
}

void PeriodicTimer::Cancel() {
  timer_.cancel();
}

void PeriodicTimer::Arm() {
  timer_.expires_at(due_);
  timer_.async_wait([this](const boost::system::error_code& ec) {
    if (ec) return;
    // The next tick is armed when this one ends, also when it ends by an exception.
    struct Next {
      PeriodicTimer* timer;
      ~Next() {
        // Keep the rhythm; after a handler that overran one or more ticks, one tick at once.
        timer->due_ += timer->interval_;
        const auto now = std::chrono::steady_clock::now();
        if (timer->due_ < now) timer->due_ = now;
        timer->Arm();
      }
    } next{this};
    tick_();
  });
}

}  // namespace quellor
