#pragma once
// An event loop on its own thread for tests that talk to the service over real sockets.

#include <boost/asio/executor_work_guard.hpp>
#include <boost/asio/io_context.hpp>
#include <boost/asio/post.hpp>
#include <future>
#include <thread>

namespace quellor::testing {

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
