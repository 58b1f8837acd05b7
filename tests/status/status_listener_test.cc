#include "status/status_listener.h"

#include <gtest/gtest.h>

#include <atomic>
#include <boost/asio/ip/tcp.hpp>
#include <boost/asio/read.hpp>
#include <boost/asio/steady_timer.hpp>
#include <memory>
#include <string>
#include <vector>

#include "loop_fixture.h"
#include "platform/errors.h"
#include "status/status_reply.h"
#include "support/process.h"
#include "support/temp_tree.h"

namespace quellor {
namespace {

namespace asio = boost::asio;
using tcp = asio::ip::tcp;
using namespace std::chrono_literals;
using testing::WaitUntil;

const tcp::endpoint Local(uint16_t port) {
  return {asio::ip::address_v4::loopback(), port};
}

// Connects from `source` (a loopback address) and reads until the service closes; how the read
// ended goes to `end` (eof: closed in order).
std::string Query(uint16_t port, const std::string& source = "127.0.0.1",
                  boost::system::error_code* end = nullptr) {
  asio::io_context io;
  tcp::socket s(io);
  // Nothing listens while another reply is in flight: retry, as clients must.
  const bool connected = WaitUntil([&] {
    boost::system::error_code ec;
    s.close(ec);
    s.open(tcp::v4());
    s.bind(tcp::endpoint(asio::ip::make_address(source), 0));
    s.connect(Local(port), ec);
    return !ec;
  });
  std::string bytes = connected ? "" : "not connected";
  boost::system::error_code ec;
  if (connected) asio::read(s, asio::dynamic_buffer(bytes), ec);
  if (end) *end = ec;
  return bytes;
}

// A client that connects and then never reads.
std::unique_ptr<tcp::socket> ConnectIdle(asio::io_context& io, uint16_t port) {
  auto s = std::make_unique<tcp::socket>(io);
  s->open(tcp::v4());
  s->set_option(asio::socket_base::receive_buffer_size(4096));
  s->connect(Local(port));
  return s;
}

class StatusListenerTest : public ::testing::Test {
 protected:
  void SetUp() override {
    tree.ctx.window.Forward.Set("132");
    tree.ctx.window.domainlist.Add("x.org: 12");
    reply = BuildStatusReply(tree.ctx.window);
    loop.Do([&] { listener->Listen(); });
  }
  void TearDown() override {
    loop.Do([&] {
      listener.reset();
      timer.reset();
    });
  }
  // A 5 ms timer on the service's loop that counts its ticks, as the pass timer would run.
  void Tick() {
    if (!timer) timer = std::make_unique<asio::steady_timer>(loop.io);
    timer->expires_after(5ms);
    timer->async_wait([this](boost::system::error_code ec) {
      if (!ec && timer) ++ticks, Tick();  // none after the timer was dropped
    });
  }
  bool Listening() {
    return loop.Do([&] { return listener->listening(); });
  }
  // True once the timer has ticked `n` more times.
  bool WaitTicks(int n) {
    const int seen = ticks.load();
    return WaitUntil([&] { return ticks.load() >= seen + n; });
  }

  testing::TempTree tree;
  const uint16_t port = testing::FreePort();
  testing::LoopThread loop;
  std::unique_ptr<StatusListener> listener =
      std::make_unique<StatusListener>(loop.io, tree.ctx, port);
  std::unique_ptr<asio::steady_timer> timer;
  std::atomic<int> ticks{0};
  std::string reply;
};

TEST_F(StatusListenerTest, OnlyExactly127001IsLocalUnlessExternalQueriesAreAccepted) {
  // 127.0.0.2 stands for any other peer: another loopback form reads as external too.
  const struct {
    const char* source;
    bool check1, answered;
  } cases[] = {{"127.0.0.1", false, true},
               {"127.0.0.2", false, false},
               {"127.0.0.2", true, true},
               {"127.0.0.1", true, true}};
  for (const auto& c : cases) {
    SCOPED_TRACE(std::string(c.source) + (c.check1 ? " ticked" : " unticked"));
    loop.Do([&] { tree.ctx.window.check1 = c.check1; });
    boost::system::error_code end;
    EXPECT_EQ(Query(port, c.source, &end), c.answered ? reply : "\r\n");
    EXPECT_EQ(end, asio::error::eof);  // an orderly close right after the reply
  }
}

TEST_F(StatusListenerTest, SecondClientIsTurnedAwayWhileOneIsServedAndAnsweredAfterwards) {
  // Hold the loop as a pass would; both clients are queued by the kernel meanwhile.
  std::promise<void> release;
  asio::post(loop.io, [f = release.get_future().share()] { f.wait(); });
  asio::io_context io;
  tcp::socket first(io), second(io);
  first.connect(Local(port));
  second.connect(Local(port));
  release.set_value();
  std::string a, b;
  boost::system::error_code ea, eb;
  asio::read(first, asio::dynamic_buffer(a), ea);
  asio::read(second, asio::dynamic_buffer(b), eb);
  EXPECT_EQ(a, reply);
  EXPECT_EQ(b, "");  // the listening socket was closed under it
  EXPECT_TRUE(eb);
  EXPECT_EQ(Query(port), reply);
}

TEST_F(StatusListenerTest, ClientThatNeverReadsDoesNotStallTheLoopAndIsDroppedAfterTimeout) {
  // A reply far larger than the socket buffers (the domain walk stops at a 16-bit count, so
  // the lines are long), so its send cannot complete.
  loop.Do([&] {
    for (int i = 0; i < 20000; ++i)
      tree.ctx.window.domainlist.Add(std::string(500, 'd') + std::to_string(i));
    listener->set_send_timeout(1h);
  });
  loop.Do([&] { Tick(); });

  // While the reply waits on the stalled client, the timer keeps ticking.
  asio::io_context io;
  auto stalled = ConnectIdle(io, port);
  ASSERT_TRUE(WaitUntil([&] { return !Listening(); }));  // taken: the reply is in flight
  ASSERT_TRUE(WaitTicks(5));
  EXPECT_FALSE(Listening());  // still in flight
  // That client goes away with a reset; the failed send ends its connection.
  stalled->set_option(asio::socket_base::linger(true, 0));
  stalled->close();
  ASSERT_TRUE(WaitUntil([&] { return Listening(); }));

  // The next stalled client is dropped once the send timeout runs out.
  loop.Do([&] { listener->set_send_timeout(100ms); });
  stalled = ConnectIdle(io, port);
  EXPECT_TRUE(WaitUntil([&] {
    return tree.Read("LOG/system.log")
               .find(
                   " : Quellor - statusws_connectionRequest - # 10060 - Connection is "
                   "timed out\r\n") != std::string::npos;
  })) << tree.Read("LOG/system.log");

  const std::string big = loop.Do([&] {
    listener->set_send_timeout(10s);
    return BuildStatusReply(tree.ctx.window);
  });
  EXPECT_EQ(Query(port), big);
}

TEST_F(StatusListenerTest, BurstOfConnectionsLeavesTimersRunningAndTheServiceAnswering) {
  loop.Do([&] { Tick(); });
  asio::io_context io;
  std::vector<std::unique_ptr<tcp::socket>> held;
  for (int i = 0; i < 200; ++i) {
    held.push_back(std::make_unique<tcp::socket>(io));
    boost::system::error_code ec;
    held.back()->connect(Local(port), ec);  // kept open and never read
  }
  EXPECT_TRUE(WaitTicks(5));
  held.clear();
  EXPECT_EQ(Query(port), reply);
}

TEST_F(StatusListenerTest, PortHeldByAnotherProgramIsRetriedUntilFree) {
  loop.Do([&] { listener->Close(); });
  asio::io_context io;
  auto holder =
      std::make_unique<tcp::acceptor>(io, tcp::endpoint(asio::ip::address_v4::any(), port));
  const int number = loop.Do([&] {
    listener->set_retry_interval(20ms);
    try {
      listener->Listen();
    } catch (const RuntimeError& e) {
      return e.number();
    }
    return 0;
  });
  EXPECT_EQ(number, 10048);  // "Address in use"
  EXPECT_FALSE(Listening());
  std::this_thread::sleep_for(100ms);  // retries meet the held port meanwhile, however many run
  holder.reset();
  ASSERT_TRUE(WaitUntil([&] { return Listening(); }));
  EXPECT_EQ(Query(port), reply);
}

}  // namespace
}  // namespace quellor
