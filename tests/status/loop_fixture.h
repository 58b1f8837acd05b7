#pragma once
// An event loop on its own thread for tests that talk to the service over real sockets, a free
// port found at run time, and a wait for a condition that does not depend on the machine's speed.

#include <boost/asio/executor_work_guard.hpp>
#include <boost/asio/io_context.hpp>
#include <boost/asio/ip/tcp.hpp>
#include <boost/asio/post.hpp>
#include <chrono>
#include <cstdint>
#include <future>
#include <thread>

namespace quellor::testing {

// A port nothing listens on right now.
inline uint16_t FreePort() {
  boost::asio::io_context io;
  boost::asio::ip::tcp::acceptor probe(
      io, boost::asio::ip::tcp::endpoint(boost::asio::ip::address_v4::any(), 0));
  return probe.local_endpoint().port();
}

// Polls `done` until it holds; false only when it still does not after a deadline far longer
// than any machine, however busy, should need.
template <class F>
bool WaitUntil(F done, std::chrono::seconds deadline = std::chrono::seconds(30)) {
  const auto end = std::chrono::steady_clock::now() + deadline;
  while (!done()) {
    if (std::chrono::steady_clock::now() > end) return false;
    std::this_thread::sleep_for(std::chrono::milliseconds(5));
  }
  return true;
}

class LoopThread {
 public:
  LoopThread() : work_(io.get_executor()), thread_([this] { io.run(); }) {}
  ~LoopThread() {
    work_.reset();
    io.stop();
    thread_.join();
  }

  // Runs `f` on the loop and waits for its result.
  template <class F>
  auto Do(F f) {
    std::packaged_task<decltype(f())()> task(std::move(f));
    auto result = task.get_future();
    boost::asio::post(io, [&task] { task(); });
    return result.get();
  }

  boost::asio::io_context io;

 private:
  boost::asio::executor_work_guard<boost::asio::io_context::executor_type> work_;
  std::thread thread_;
};

}  // namespace quellor::testing
