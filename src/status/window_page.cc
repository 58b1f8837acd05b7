#include "status/window_page.h"

#include <boost/asio/ip/tcp.hpp>
#include <boost/asio/steady_timer.hpp>
#include <boost/beast/core.hpp>
#include <boost/beast/http.hpp>
#include <cstdio>
#include <optional>
#include <random>
#include <string_view>
#include <vector>

#include "platform/errors.h"
#include "platform/text.h"
#include "spool/held.h"
#include "status/held_view.h"
#include "status/status_listener.h"
#include "status/window_html.h"

namespace quellor {

namespace asio = boost::asio;
namespace beast = boost::beast;
namespace http = beast::http;
using tcp = asio::ip::tcp;

uint16_t WindowPortFromEnvironment() {
  return PortFromEnvironment("QUELLOR_WINDOW_PORT", kDefaultWindowPort);
}

namespace {

// At most this many connections at a time; more are closed at once, so a flood of connections
// costs the loop nothing but an accept and a close each.
constexpr size_t kMaxSessions = 16;
// The held-mail view lists at most this many messages, newest first (the counts are complete).
constexpr size_t kHeldShown = 200;

std::string RandomHex(size_t bytes) {
  std::random_device device;
  std::string out;
  for (size_t i = 0; i < bytes; ++i) {
    char buf[3];
    std::snprintf(buf, sizeof buf, "%02x", static_cast<unsigned>(device() & 0xFF));
    out += buf;
  }
  return out;
}

// Compares in time independent of where the texts differ.
bool SameSecret(std::string_view a, std::string_view b) {
  if (a.size() != b.size()) return false;
  unsigned char diff = 0;
  for (size_t i = 0; i < a.size(); ++i) diff |= static_cast<unsigned char>(a[i] ^ b[i]);
  return diff == 0;
}

}  // namespace

struct WindowServer::Impl : std::enable_shared_from_this<WindowServer::Impl> {
  Impl(asio::io_context& io, Context& ctx, uint16_t port)
      : ctx(ctx), port(port), acceptor(io), pause(io), token(RandomHex(16)) {}

  Context& ctx;
  const uint16_t port;
  tcp::acceptor acceptor;
  asio::steady_timer pause;  // after a failed accept (no descriptors left), before the next
  const std::string token;
  std::chrono::milliseconds timeout{10000};
  bool serving = false;
  class Session;
  std::vector<std::weak_ptr<Session>> sessions;

  bool Start();
  void Stop();
  void Accept();
  size_t LiveSessions();
  // The answer to one request; nothing when the window is hidden (the connection is dropped).
  std::optional<http::response<http::string_body>> Handle(
      const http::request<http::string_body>& req);
  bool HostIsThisServer(std::string_view host) const;
  bool OriginIsThisServer(std::string_view origin) const;
};

// One connection to the page: requests are read and answered in turn while it stays open.
class WindowServer::Impl::Session : public std::enable_shared_from_this<Session> {
 public:
  Session(tcp::socket socket, std::shared_ptr<WindowServer::Impl> server)
      : stream_(std::move(socket)), server_(std::move(server)) {}

  void Start() { Read(); }
  void Close() {
    beast::error_code ignored;
    stream_.socket().close(ignored);
  }

 private:
  void Read() {
    parser_.emplace();
    parser_->header_limit(8192);
    parser_->body_limit(4096);
    stream_.expires_after(server_->timeout);
    http::async_read(
        stream_, buffer_, *parser_,
        [self = shared_from_this()](beast::error_code ec, size_t) { self->OnRead(ec); });
  }

  void OnRead(beast::error_code ec) {
    if (ec || !server_->serving) return Shutdown();
    std::optional<http::response<http::string_body>> res = server_->Handle(parser_->get());
    if (!res) return Shutdown();
    response_ = std::move(*res);
    stream_.expires_after(server_->timeout);
    http::async_write(stream_, response_, [self = shared_from_this()](beast::error_code e, size_t) {
      self->OnWrite(e);
    });
  }

  void OnWrite(beast::error_code ec) {
    if (ec || !response_.keep_alive() || !server_->serving) return Shutdown();
    Read();
  }

  void Shutdown() {
    beast::error_code ignored;
    stream_.socket().shutdown(tcp::socket::shutdown_send, ignored);
    stream_.socket().close(ignored);
  }

  beast::tcp_stream stream_;
  beast::flat_buffer buffer_{8192};
  std::optional<http::request_parser<http::string_body>> parser_;
  http::response<http::string_body> response_;
  std::shared_ptr<WindowServer::Impl> server_;
};

namespace {

http::response<http::string_body> Answer(const http::request<http::string_body>& req,
                                         http::status status, std::string body,
                                         std::string_view type) {
  http::response<http::string_body> res{status, req.version()};
  res.set(http::field::server, "Quellor");
  res.set(http::field::content_type, type);
  res.set(http::field::cache_control, "no-store");
  res.set("X-Content-Type-Options", "nosniff");
  res.set("X-Frame-Options", "DENY");
  res.set("Referrer-Policy", "no-referrer");
  res.keep_alive(req.keep_alive());
  res.body() = std::move(body);
  res.prepare_payload();
  // HEAD: the length of the page, without the page.
  if (req.method() == http::verb::head) res.body().clear();
  return res;
}

http::response<http::string_body> Plain(const http::request<http::string_body>& req,
                                        http::status status) {
  return Answer(req, status, std::string(http::obsolete_reason(status)) + "\n",
                "text/plain; charset=utf-8");
}

}  // namespace

bool WindowServer::Impl::HostIsThisServer(std::string_view host) const {
  const std::string p = std::to_string(port);
  return host == "127.0.0.1:" + p || host == "localhost:" + p;
}

bool WindowServer::Impl::OriginIsThisServer(std::string_view origin) const {
  const std::string p = std::to_string(port);
  return origin == "http://127.0.0.1:" + p || origin == "http://localhost:" + p;
}

std::optional<http::response<http::string_body>> WindowServer::Impl::Handle(
    const http::request<http::string_body>& req) {
  if (!ctx.window.visible) return std::nullopt;
  // A page of another site that reaches this port through a name of its own (DNS rebinding)
  // names that site in Host.
  if (!HostIsThisServer(req[http::field::host])) return Plain(req, http::status::forbidden);

  std::string_view path = req.target();
  path = path.substr(0, path.find('?'));
  const bool get = req.method() == http::verb::get || req.method() == http::verb::head;

  if (path == "/" || path == "/index.html") {
    if (!get) return Plain(req, http::status::method_not_allowed);
    const std::string nonce = RandomHex(12);
    http::response<http::string_body> res = Answer(
        req, http::status::ok, RenderWindowPage(ctx.window, token, nonce, RenderHeldSection(nonce)),
        "text/html; charset=utf-8");
    res.set("Content-Security-Policy",
            "default-src 'none'; script-src 'nonce-" + nonce + "'; style-src 'nonce-" + nonce +
                "'; connect-src 'self'; base-uri 'none'; form-action 'none'; "
                "frame-ancestors 'none'");
    return res;
  }

  if (path != "/state" && path != "/check1" && path != "/held" && path != "/release" &&
      path != "/drop") {
    return Plain(req, http::status::not_found);
  }
  if (!SameSecret(req["X-Quellor-Token"], token)) return Plain(req, http::status::forbidden);

  if (path == "/state" || path == "/held") {
    if (!get) return Plain(req, http::status::method_not_allowed);
    return Answer(
        req, http::status::ok,
        path == "/state" ? RenderWindowState(ctx.window) : RenderHeldState(ctx, kHeldShown),
        "application/json");
  }

  // Every change: a POST from the page itself.
  if (req.method() != http::verb::post) return Plain(req, http::status::method_not_allowed);
  // Browsers send Origin with every POST and, when they know it, Sec-Fetch-Site.
  if (!OriginIsThisServer(req[http::field::origin])) return Plain(req, http::status::forbidden);
  const auto site = req.find("Sec-Fetch-Site");
  if (site != req.end() && site->value() != "same-origin")
    return Plain(req, http::status::forbidden);
  const std::string& body = req.body();
  if (path == "/check1") {
    if (body != "1" && body != "0") return Plain(req, http::status::bad_request);
    ctx.window.check1 = body == "1";
    return Answer(req, http::status::ok, RenderWindowState(ctx.window), "application/json");
  }

  // "<user>\n<id>" in UTF-8: release or drop one held message, as the commands do.
  const size_t newline = body.find('\n');
  if (newline == std::string::npos) return Plain(req, http::status::bad_request);
  const std::string user = Utf8ToCp1252(std::string_view(body).substr(0, newline));
  const std::string id = Utf8ToCp1252(std::string_view(body).substr(newline + 1));
  const HeldAction done = path == "/release" ? ReleaseHeld(ctx, user, id) : DropHeld(ctx, user, id);
  return Answer(req, done.status == 0 ? http::status::ok : http::status::conflict,
                "{\"status\":" + std::to_string(done.status) +
                    ",\"message\":" + JsonString(Cp1252ToUtf8(done.message)) + "}",
                "application/json");
}

bool WindowServer::Impl::Start() {
  if (!ctx.window.visible) return false;
  if (serving) return true;
  const tcp::endpoint endpoint(asio::ip::address_v4::loopback(), port);
  beast::error_code ec;
  acceptor.open(endpoint.protocol(), ec);
  if (!ec) acceptor.set_option(tcp::acceptor::reuse_address(true), ec);
  if (!ec) acceptor.bind(endpoint, ec);
  if (!ec) acceptor.listen(asio::socket_base::max_listen_connections, ec);
  if (ec) {
    beast::error_code ignored;
    acceptor.close(ignored);
    throw RuntimeError(ErrorNumberFromErrno(ec.value()), ec.message());
  }
  serving = true;
  Accept();
  return true;
}

void WindowServer::Impl::Stop() {
  serving = false;
  beast::error_code ignored;
  acceptor.close(ignored);
  pause.cancel();
  for (const std::weak_ptr<Session>& weak : sessions)
    if (std::shared_ptr<Session> session = weak.lock()) session->Close();
  sessions.clear();
}

size_t WindowServer::Impl::LiveSessions() {
  std::erase_if(sessions, [](const std::weak_ptr<Session>& s) { return s.expired(); });
  return sessions.size();
}

void WindowServer::Impl::Accept() {
  acceptor.async_accept([self = shared_from_this()](beast::error_code ec, tcp::socket socket) {
    if (!self->serving || ec == asio::error::operation_aborted) return;
    if (ec) {
      // Out of descriptors or similar: try again shortly instead of spinning.
      self->pause.expires_after(std::chrono::milliseconds(100));
      self->pause.async_wait([self](beast::error_code e) {
        if (!e && self->serving) self->Accept();
      });
      return;
    }
    if (self->LiveSessions() >= kMaxSessions) {
      beast::error_code ignored;
      socket.close(ignored);
    } else {
      auto session = std::make_shared<Session>(std::move(socket), self);
      self->sessions.push_back(session);
      session->Start();
    }
    self->Accept();
  });
}

WindowServer::WindowServer(asio::io_context& io, Context& ctx, uint16_t port)
    : impl_(std::make_shared<Impl>(io, ctx, port)) {}

WindowServer::~WindowServer() {
  impl_->Stop();
}

bool WindowServer::Start() {
  return impl_->Start();
}

void WindowServer::Stop() {
  impl_->Stop();
}

bool WindowServer::serving() const {
  return impl_->serving;
}

uint16_t WindowServer::port() const {
  return impl_->port;
}

const std::string& WindowServer::token() const {
  return impl_->token;
}

void WindowServer::set_timeout(std::chrono::milliseconds timeout) {
  impl_->timeout = timeout;
}

}  // namespace quellor
