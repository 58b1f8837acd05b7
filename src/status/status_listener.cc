#include "status/status_listener.h"

#include <boost/asio/ip/tcp.hpp>
#include <boost/asio/steady_timer.hpp>
#include <boost/asio/write.hpp>
#include <cerrno>
#include <cstdlib>
#include <string>

#include "logs/error_sink.h"
#include "platform/errors.h"
#include "platform/guard.h"
#include "status/status_reply.h"

namespace quellor {

namespace asio = boost::asio;
using tcp = asio::ip::tcp;

uint16_t PortFromEnvironment(const char* name, uint16_t fallback) {
  const char* value = std::getenv(name);
  if (value == nullptr || *value == '\0') return fallback;
  char* end = nullptr;
  errno = 0;
  const long port = std::strtol(value, &end, 10);
  if (errno != 0 || *end != '\0' || port < 1 || port > 65535) return fallback;
  return static_cast<uint16_t>(port);
}

uint16_t StatusPortFromEnvironment() {
  return PortFromEnvironment("QUELLOR_STATUS_PORT", kDefaultStatusPort);
}

namespace {

constexpr const char* kRequestLabel = "Quellor - statusws_connectionRequest";
constexpr const char* kSendCompleteLabel = "Quellor - statusws_sendcomplete";

// Socket errors are logged with the numbers and texts the socket component has always used.
[[noreturn]] void RaiseSocketError(const boost::system::error_code& ec) {
  int number = 40006;
  std::string text = "Wrong protocol or connection state for the requested transaction or request";
  switch (ec.value()) {
    case EADDRINUSE:
      number = 10048, text = "Address in use";
      break;
    case EADDRNOTAVAIL:
      number = 10049, text = "Address not available from the local machine";
      break;
    case EACCES:
      number = 10013, text = "Permission denied";
      break;
    case ECONNABORTED:
      number = 10053, text = "Connection is aborted due to timeout or other failure";
      break;
    case ECONNRESET:
    case EPIPE:
      number = 10054, text = "The connection is reset by remote side";
      break;
    case ENOTCONN:
      number = 10057, text = "Socket is not connected";
      break;
    case ETIMEDOUT:
      number = 10060, text = "Connection is timed out";
      break;
    case EMFILE:
    case ENFILE:
    case ENOBUFS:
      number = 10055, text = "No buffer space is available";
      break;
    default:
      break;
  }
  throw RuntimeError(number, text);
}

}  // namespace

struct StatusListener::Impl : std::enable_shared_from_this<StatusListener::Impl> {
  Impl(asio::io_context& io, Context& ctx, uint16_t port)
      : ctx(ctx), port(port), acceptor(io), socket(io), send_timer(io), retry_timer(io) {}

  Context& ctx;
  const uint16_t port;
  tcp::acceptor acceptor;
  tcp::socket socket;  // the accepted connection while a reply is in flight
  asio::steady_timer send_timer;
  asio::steady_timer retry_timer;
  std::chrono::milliseconds send_timeout{10000};
  std::chrono::milliseconds retry_interval{10000};
  std::string reply;        // kept alive until the send completes
  unsigned generation = 0;  // numbers the connections, so a late timeout never hits a newer one
  bool closed = false;
  bool timed_out = false;

  void Listen() {
    // A reply in flight: listening resumes when its send completes.
    if (socket.is_open()) return;
    closed = false;
    retry_timer.cancel();
    boost::system::error_code ec;
    if (acceptor.is_open()) acceptor.close(ec);
    const tcp::endpoint endpoint(asio::ip::address_v4::any(), port);
    acceptor.open(endpoint.protocol(), ec);
    // Connections closed a moment ago linger in TIME_WAIT on this port; listening again must
    // not wait for them.
    if (!ec) acceptor.set_option(tcp::acceptor::reuse_address(true), ec);
    if (!ec) acceptor.bind(endpoint, ec);
    if (!ec) acceptor.listen(asio::socket_base::max_listen_connections, ec);
    if (!ec) {
      acceptor.async_accept(socket, [self = shared_from_this()](boost::system::error_code e) {
        self->OnConnectionRequest(e);
      });
      return;
    }
    boost::system::error_code ignored;
    acceptor.close(ignored);
    ScheduleRetry();
    RaiseSocketError(ec);
  }

  // The failure that led here has been logged where it happened; the retries stay quiet.
  void ScheduleRetry() {
    retry_timer.expires_after(retry_interval);
    retry_timer.async_wait([self = shared_from_this()](boost::system::error_code e) {
      if (e || self->closed) return;
      Guard quiet([](const std::string&, int, const std::string&) {}, kSendCompleteLabel);
      quiet([&] { self->Listen(); });
    });
  }

  void OnConnectionRequest(boost::system::error_code accept_error) {
    if (closed || accept_error == asio::error::operation_aborted) return;
    Guard step(CarryOnSink(ctx), kRequestLabel);
    // The listening socket ends here: no other connection is taken until the send completed.
    step([&] {
      boost::system::error_code ec;
      acceptor.close(ec);
    });
    if (accept_error) {
      // No connection to answer (out of descriptors, or aborted by the peer): listen again.
      step([&] { RaiseSocketError(accept_error); });
      return ResumeListening();
    }
    std::string peer;
    step([&] {
      boost::system::error_code ec;
      const tcp::endpoint remote = socket.remote_endpoint(ec);
      if (ec) RaiseSocketError(ec);
      peer = remote.address().to_string();
    });
    // Only the exact text "127.0.0.1" is local: other loopback forms and the machine's own
    // external addresses count as external.
    const bool allowed = peer == "127.0.0.1" || ctx.window.check1;
    reply = "\r\n";
    if (allowed) step([&] { reply = BuildStatusReply(ctx.window); });

    timed_out = false;
    const unsigned connection = ++generation;
    send_timer.expires_after(send_timeout);
    send_timer.async_wait([self = shared_from_this(), connection](boost::system::error_code e) {
      if (e || self->closed || connection != self->generation) return;
      // The client does not take the reply: drop the connection at once.
      self->timed_out = true;
      boost::system::error_code ignored;
      self->socket.set_option(asio::socket_base::linger(true, 0), ignored);
      self->socket.close(ignored);
    });
    asio::async_write(socket, asio::buffer(reply),
                      [self = shared_from_this()](boost::system::error_code e, size_t) {
                        self->OnSendComplete(e);
                      });
  }

  // Runs whether the send succeeded, failed or timed out, so that listening always resumes.
  void OnSendComplete(boost::system::error_code send_error) {
    if (closed) return;
    send_timer.cancel();
    ++generation;
    {
      Guard step(CarryOnSink(ctx), kRequestLabel);
      step([&] {
        if (timed_out)
          RaiseSocketError(boost::system::error_code(ETIMEDOUT, boost::system::system_category()));
        if (send_error) RaiseSocketError(send_error);
      });
    }
    ResumeListening();
  }

  void ResumeListening() {
    Guard step(CarryOnSink(ctx), kSendCompleteLabel);
    step([&] {
      boost::system::error_code ec;
      socket.close(ec);
    });
    step([&] { Listen(); });
  }

  void Close() {
    closed = true;
    boost::system::error_code ignored;
    acceptor.close(ignored);
    socket.close(ignored);
    send_timer.cancel();
    retry_timer.cancel();
  }
};

StatusListener::StatusListener(asio::io_context& io, Context& ctx, uint16_t port)
    : impl_(std::make_shared<Impl>(io, ctx, port)) {}

StatusListener::~StatusListener() {
  impl_->Close();
}

void StatusListener::Listen() {
  impl_->Listen();
}

void StatusListener::Close() {
  impl_->Close();
}

bool StatusListener::listening() const {
  return impl_->acceptor.is_open();
}

uint16_t StatusListener::port() const {
  return impl_->port;
}

void StatusListener::set_send_timeout(std::chrono::milliseconds timeout) {
  impl_->send_timeout = timeout;
}

void StatusListener::set_retry_interval(std::chrono::milliseconds interval) {
  impl_->retry_interval = interval;
}

}  // namespace quellor
