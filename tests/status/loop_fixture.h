#pragma once
// An event loop on its own thread for tests that talk to the service over real sockets, and a
// free port found at run time.

#include <boost/asio/executor_work_guard.hpp>
#include <boost/asio/io_context.hpp>
#include <boost/asio/ip/tcp.hpp>
#include <boost/asio/post.hpp>
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
