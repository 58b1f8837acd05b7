#include "status/window_page.h"

#include <gtest/gtest.h>

#include <boost/beast/core.hpp>
#include <boost/beast/http.hpp>
#include <map>
#include <memory>
#include <string>

#include "loop_fixture.h"
#include "support/temp_tree.h"

namespace quellor {
namespace {

namespace asio = boost::asio;
namespace beast = boost::beast;
namespace http = beast::http;
using tcp = asio::ip::tcp;
using testing::FreePort;
using testing::LoopThread;

struct Reply {
  int status = 0;
  std::string body;
  std::string csp;
};

// One HTTP request over a real connection. `headers` without "Host" get this server's Host.
Reply Request(uint16_t port, http::verb verb, const std::string& target,
              std::map<std::string, std::string> headers = {}, const std::string& body = "") {
  asio::io_context io;
  beast::tcp_stream stream(io);
  stream.connect(tcp::endpoint(asio::ip::address_v4::loopback(), port));
  http::request<http::string_body> req{verb, target, 11};
  if (!headers.count("Host")) headers["Host"] = "127.0.0.1:" + std::to_string(port);
  for (const auto& [name, value] : headers) req.set(name, value);
  req.body() = body;
  req.prepare_payload();
  http::write(stream, req);
  beast::flat_buffer buffer;
  http::response<http::string_body> res;
  http::read(stream, buffer, res);
  return {static_cast<int>(res.result_int()), res.body(),
          std::string(res["Content-Security-Policy"])};
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
    server = std::make_unique<WindowServer>(loop.io, tree.ctx, port);
  }
  void TearDown() override {
    loop.Do([&] { server.reset(); });
  }
  bool Start() {
    return loop.Do([&] { return server->Start(); });
  }
  bool Check1() {
    return loop.Do([&] { return tree.ctx.window.check1; });
  }

  testing::TempTree tree;
  const uint16_t port = FreePort();
  LoopThread loop;
  std::unique_ptr<WindowServer> server;
};

TEST_F(WindowPageTest, HiddenWindowIsNotServedAtAll) {
  tree.ctx.window.visible = false;
  EXPECT_FALSE(Start());
  asio::io_context io;
  tcp::socket s(io);
  boost::system::error_code ec;
  s.connect(tcp::endpoint(asio::ip::address_v4::loopback(), port), ec);
  EXPECT_EQ(ec, asio::error::connection_refused);
}

TEST_F(WindowPageTest, PageShowsTheWindowWithEveryLineEscaped) {
  ASSERT_TRUE(Start());
  const Reply r = Request(port, http::verb::get, "/");
  ASSERT_EQ(r.status, 200);
  const std::string& page = r.body;
  for (const char* part : {
           "<title>Spam Quellor - Running since 16 Nov 2026 08:05:09</title>",
           "<th scope=\"row\">Forward:</th><td class=\"n\" id=\"Forward\">132</td>",
           "<th scope=\"row\">Invalid Val:</th>",
           "id=\"todayinvalid\">7</td>",
           "Learn:",
           "Quellor:",
           "Validations:",
           "Purged:",
           "In Queue:",
           "Header:",
           "<legend>Start Up Time</legend><span id=\"starttime\">16 Nov 2026 08:05:09</span>",
           "id=\"Command1\" disabled>Start</button>",
           "<legend>Config</legend>",
           "> Accept External Query</label>",
           "<legend>Incoming Mails</legend>",
           "<legend>Local Mails</legend>",
           "<legend>Validations</legend>",
           "<legend>Warnings</legend>",
           "<legend>Purged Emails</legend>",
           "<legend>Local postmasters</legend>",
           "<legend>In Queue</legend>",
           "<option>&lt;script&gt;alert(&#39;x&#39;)&lt;/script&gt; &amp; &quot;q&quot;</option>",
           "<option>Ren\xC3\xA9 \xEF\xBF\xBD</option>",  // Windows-1252 shown as UTF-8
           "<option>x.org: 12</option>",
       }) {
    EXPECT_NE(page.find(part), std::string::npos) << part;
  }
  EXPECT_EQ(page.find("<script>alert"), std::string::npos);
  EXPECT_NE(page.find(server->token()), std::string::npos);
  EXPECT_NE(r.csp.find("default-src 'none'"), std::string::npos);
  EXPECT_NE(r.csp.find("frame-ancestors 'none'"), std::string::npos);
}

TEST_F(WindowPageTest, StateNeedsTheTokenAndEscapesForScript) {
  ASSERT_TRUE(Start());
  EXPECT_EQ(Request(port, http::verb::get, "/state").status, 403);
  EXPECT_EQ(Request(port, http::verb::get, "/state", {{"X-Quellor-Token", "0"}}).status, 403);
  const Reply r = Request(port, http::verb::get, "/state", {{"X-Quellor-Token", server->token()}});
  ASSERT_EQ(r.status, 200);
  EXPECT_NE(r.body.find("\"Forward\":\"132\""), std::string::npos);
  EXPECT_NE(r.body.find("\"domainlist\":[\"x.org: 12\"]"), std::string::npos);
  EXPECT_NE(
      r.body.find("\"\\u003cscript\\u003ealert('x')\\u003c/script\\u003e \\u0026 \\\"q\\\"\""),
      std::string::npos);
  EXPECT_NE(r.body.find("\"Ren\xC3\xA9 \\u0001\""), std::string::npos);
  EXPECT_EQ(Request(port, http::verb::get, "/nothing").status, 404);
}

TEST_F(WindowPageTest, OnlyThePageItselfCanTickTheBox) {
  ASSERT_TRUE(Start());
  const std::string host = "127.0.0.1:" + std::to_string(port);
  const std::string origin = "http://" + host;
  const std::string token = server->token();
  struct Case {
    const char* what;
    std::map<std::string, std::string> headers;
    std::string body;
    int status;
  };
  const Case cases[] = {
      {"no token", {{"Origin", origin}}, "1", 403},
      {"wrong token", {{"Origin", origin}, {"X-Quellor-Token", token + "0"}}, "1", 403},
      {"token in the body only", {{"Origin", origin}}, token, 403},
      {"no origin", {{"X-Quellor-Token", token}}, "1", 403},
      {"cross-site origin",
       {{"Origin", "http://evil.example"}, {"X-Quellor-Token", token}},
       "1",
       403},
      {"cross-site fetch",
       {{"Origin", origin}, {"X-Quellor-Token", token}, {"Sec-Fetch-Site", "cross-site"}},
       "1",
       403},
      {"rebound host name",
       {{"Host", "evil.example:" + std::to_string(port)},
        {"Origin", "http://evil.example:" + std::to_string(port)},
        {"X-Quellor-Token", token}},
       "1",
       403},
      {"bad value", {{"Origin", origin}, {"X-Quellor-Token", token}}, "yes", 400},
  };
  for (const Case& c : cases) {
    EXPECT_EQ(Request(port, http::verb::post, "/check1", c.headers, c.body).status, c.status)
        << c.what;
    EXPECT_FALSE(Check1()) << c.what;
  }
  const std::map<std::string, std::string> page_headers = {
      {"Origin", origin}, {"X-Quellor-Token", token}, {"Sec-Fetch-Site", "same-origin"}};
  Reply r = Request(port, http::verb::post, "/check1", page_headers, "1");
  EXPECT_EQ(r.status, 200);
  EXPECT_TRUE(Check1());
  EXPECT_NE(r.body.find("\"check1\":true"), std::string::npos);
  EXPECT_NE(Request(port, http::verb::get, "/").body.find("id=\"Check1\" checked>"),
            std::string::npos);
  EXPECT_EQ(Request(port, http::verb::post, "/check1", page_headers, "0").status, 200);
  EXPECT_FALSE(Check1());
  EXPECT_EQ(Request(port, http::verb::get, "/", {{"Host", "evil.example"}}).status, 403);
}

}  // namespace
}  // namespace quellor
