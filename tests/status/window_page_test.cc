#include "status/window_page.h"

#include <gtest/gtest.h>

#include <boost/asio/ip/tcp.hpp>
#include <boost/beast/core.hpp>
#include <boost/beast/http.hpp>
#include <memory>
#include <string>

#include "loop_fixture.h"
#include "status/held_view.h"
#include "status/window_html.h"
#include "support/process.h"
#include "support/table.h"
#include "support/temp_tree.h"

namespace quellor {
namespace {

namespace asio = boost::asio;
namespace beast = boost::beast;
namespace http = beast::http;
using tcp = asio::ip::tcp;

std::string ReplaceAll(std::string s, const std::string& from, const std::string& to) {
  for (size_t at = 0; !from.empty() && (at = s.find(from, at)) != std::string::npos;
       at += to.size())
    s.replace(at, from.size(), to);
  return s;
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
  testing::LoopThread loop;
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

}  // namespace
}  // namespace quellor
