#pragma once
// A timer on the service's event loop that ticks at a fixed interval for the life of the process.
// A tick handler runs to its end; ticks that fall due meanwhile are not queued up: at most one
// tick follows at once when a long handler returns.

#include <boost/asio/io_context.hpp>
#include <boost/asio/steady_timer.hpp>
#include <chrono>
#include <functional>

namespace quellor {

class PeriodicTimer {
 public:
  PeriodicTimer(boost::asio::io_context& io, std::chrono::milliseconds interval,
                std::function<void()> tick);
  // The first tick falls due one interval from now.
  void Start();
  void Cancel();

 private:
  void Arm();

  boost::asio::steady_timer timer_;
  std::chrono::milliseconds interval_;
  std::function<void()> tick_;
  std::chrono::steady_clock::time_point due_;
};

}  // namespace quellor
