// The status port and the window page over real sockets, each served on an event loop of its own
// thread; the status reply and the state dump they report.
#include <gtest/gtest.h>

#include <atomic>
#include <boost/asio/executor_work_guard.hpp>
#include <boost/asio/io_context.hpp>
#include <boost/asio/ip/tcp.hpp>
#include <boost/asio/post.hpp>
#include <boost/asio/read.hpp>
#include <boost/asio/steady_timer.hpp>
#include <boost/beast/core.hpp>
#include <boost/beast/http.hpp>
#include <future>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "platform/text.h"
#include "status/held_view.h"
#include "status/status_listener.h"
#include "status/status_reply.h"
#include "status/window_html.h"
#include "status/window_page.h"
#include "support/process.h"
#include "support/table.h"
#include "support/temp_tree.h"

namespace quellor {
namespace {

namespace asio = boost::asio;
namespace beast = boost::beast;
namespace http = beast::http;
using tcp = asio::ip::tcp;
using namespace std::chrono_literals;
using testing::WaitUntil;

// An event loop on its own thread.
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
  LoopThread loop;
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

TEST_F(StatusListenerTest, PortHeldByAnotherProgramIsRetriedUntilFree) {
  loop.Do([&] { listener->Close(); });
  asio::io_context io;
  auto holder =
      std::make_unique<tcp::acceptor>(io, tcp::endpoint(asio::ip::address_v4::any(), port));
  const int number = loop.Do([&] {
    listener->set_retry_interval(20ms);
    return testing::ErrorOf([&] { listener->Listen(); });
  });
  EXPECT_EQ(number, 10048);  // "Address in use"
  EXPECT_FALSE(Listening());
  std::this_thread::sleep_for(100ms);  // retries meet the held port meanwhile, however many run
  holder.reset();
  ASSERT_TRUE(WaitUntil([&] { return Listening(); }));
  EXPECT_EQ(Query(port), reply);
}

class WindowPageTest : public ::testing::Test {
 protected:
  void SetUp() override {
    WindowModel& w = tree.ctx.window;
    w.title = "Spam Quellor - Running since 16 Nov 2026 08:05:09";
    w.starttime = "16 Nov 2026 08:05:09";
    w.start_enabled = false;
    w.Forward.Set("132");
    w.todayinvalid.Set("7");
    w.domainlist.Add("x.org: 12");
    w.List2.Add("<script>alert('x')</script> & \"q\"");
    w.List3.Add("Ren\xE9 \x01");
  }
  void TearDown() override {
    loop.Do([&] { server.reset(); });
  }

  // One request over a real connection: `headers` are "Name: value" lines in which $token,
  // $origin and $port stand for this server's; without "Host" this server's is sent. The result
  // is the status, "ticked" when the box is, and the body (for the page, whether it is the
  // window rendered with this server's token and the nonce of its security policy).
  std::string Request(const std::string& verb, const std::string& target, std::string headers,
                      std::string body) {
    const std::string token = server->token(), p = std::to_string(port);
    headers = ReplaceAll(ReplaceAll(headers, "$token", token), "$origin", "http://127.0.0.1:$port");
    headers = ReplaceAll(headers, "$port", p);
    body = ReplaceAll(body, "$token", token);
    if (headers.find("Host:") == std::string::npos) headers += "\nHost: 127.0.0.1:" + p;
    http::request<http::string_body> req{http::string_to_verb(verb), target, 11};
    for (size_t at = 0, end; at < headers.size(); at = end + 1) {
      end = std::min(headers.find('\n', at), headers.size());
      const size_t colon = headers.find(": ", at);
      if (colon < end)
        req.set(headers.substr(at, colon - at), headers.substr(colon + 2, end - colon - 2));
    }
    req.body() = body;
    req.prepare_payload();
    asio::io_context io;
    beast::tcp_stream stream(io);
    stream.connect(tcp::endpoint(asio::ip::address_v4::loopback(), port));
    http::write(stream, req);
    beast::flat_buffer buffer;
    http::response<http::string_body> res;
    http::read(stream, buffer, res);
    std::string got = std::to_string(res.result_int());
    if (loop.Do([&] { return tree.ctx.window.check1; })) got += " ticked";
    if (target != "/" || res.result_int() != 200) return got + " " + res.body();
    const std::string csp(res["Content-Security-Policy"]);
    const std::string nonce = csp.substr(csp.find("'nonce-") + 7, 24);
    const bool page =
        res.body() == RenderWindowPage(tree.ctx.window, token, nonce, RenderHeldSection(nonce));
    return got + (page ? " the window; " : " another page; ") + ReplaceAll(csp, nonce, "NONCE");
  }

  testing::TempTree tree;
  const uint16_t port = testing::FreePort();
  LoopThread loop;
  std::unique_ptr<WindowServer> server = std::make_unique<WindowServer>(loop.io, tree.ctx, port);
};

// Every line converted from Windows-1252 to UTF-8 and escaped; the token and nonce in place.
TEST_F(WindowPageTest, PageShowsTheWindowWithEveryLineEscaped) {
  tree.ctx.window.check1 = true;
  testing::CheckGolden("status/window_page.html",
                       RenderWindowPage(tree.ctx.window, "TOKEN", "NONCE"));
}

TEST_F(WindowPageTest, HiddenWindowIsNotServedAtAll) {
  tree.ctx.window.visible = false;
  EXPECT_FALSE(loop.Do([&] { return server->Start(); }));
  asio::io_context io;
  tcp::socket s(io);
  boost::system::error_code ec;
  s.connect(tcp::endpoint(asio::ip::address_v4::loopback(), port), ec);
  EXPECT_EQ(ec, asio::error::connection_refused);
}

// The state needs the token; only the page itself (its token, origin and host) ticks the box.
TEST_F(WindowPageTest, RequestsNeedTokenOriginAndHost) {
  ASSERT_TRUE(loop.Do([&] { return server->Start(); }));
  testing::CheckTable("window_requests",
                      [&](const auto& f) { return Request(f[0], f[1], f[2], f[3]); });
}

// The dump is the status reply (counters as their text, one line per domain; neither the invalid
// count nor the queue) followed by the other counters and the lists in order.
TEST(StatusReply, ReplyThenCountersThenListsInOrder) {
  WindowModel w;
  w.starttime = "16 Nov 2026 08:05:09";
  const std::pair<Counter*, const char*> counters[] = {
      {&w.Forward, "132"}, {&w.Ignore, "57"},      {&w.Validations, "9"},
      {&w.purged, "3"},    {&w.todayignore, "4"},  {&w.todayvalidations, "1"},
      {&w.invalid, "2"},   {&w.todayinvalid, "1"}, {&w.total, "2"},
      {&w.kelpo, "5"}};
  for (const auto& [counter, value] : counters) counter->Set(value);
  ListModel* lists[] = {&w.domainlist, &w.domainlist, &w.outlist, &w.List1,
                        &w.List2,      &w.List2,      &w.List3,   &w.purgedlist};
  const char* items[] = {"x.org:12", "y.org: 0", "x.org:3", "postmaster@x.org",
                         "e1",       "e2",       "w1",      "p1"};
  for (size_t i = 0; i < std::size(items); ++i) lists[i]->Add(items[i]);
  const std::string dump = BuildStateDump(w);
  testing::CheckGolden("status/state_dump.txt", dump);
  EXPECT_EQ(BuildStatusReply(w), dump.substr(0, dump.find("INVALID=")));
}

}  // namespace
}  // namespace quellor
