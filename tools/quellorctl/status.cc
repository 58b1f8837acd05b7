// quellorctl status [HOST [PORT]]: asks a running service for its counters and prints the reply.
#include <CLI/CLI.hpp>
#include <boost/asio/connect.hpp>
#include <boost/asio/io_context.hpp>
#include <boost/asio/ip/tcp.hpp>
#include <boost/asio/read.hpp>
#include <boost/asio/streambuf.hpp>
#include <chrono>
#include <cstdlib>
#include <iostream>
#include <optional>
#include <string>
#include <vector>

#include "commands.h"

namespace quellor::ctl {

namespace {

namespace asio = boost::asio;
using tcp = asio::ip::tcp;

// A TCP port written as decimal digits, 1 to 65535.
std::optional<unsigned> ParsePort(const std::string& text) {
  if (text.empty() || text.size() > 5) return std::nullopt;
  unsigned value = 0;
  for (char c : text) {
    if (c < '0' || c > '9') return std::nullopt;
    value = value * 10 + static_cast<unsigned>(c - '0');
  }
  if (value == 0 || value > 65535) return std::nullopt;
  return value;
}

// How long a connection may take to be made, and the whole exchange to end. The service
// answers a query only after a running pass has returned, so the reply may take a while.
constexpr auto kConnectTimeout = std::chrono::seconds(10);
constexpr auto kReplyTimeout = std::chrono::seconds(120);

}  // namespace

int RunStatus(const std::vector<std::string>& args) {
  CLI::App app{"Prints the status reply of a running Quellor service.", "quellorctl status"};
  std::string host = "127.0.0.1";
  std::string port_text;
  app.add_option("HOST", host, "host of the service (default 127.0.0.1)");
  app.add_option("PORT", port_text, "status port (default QUELLOR_STATUS_PORT, else 10051)");
  try {
    std::vector<std::string> reversed(args.rbegin(), args.rend());
    app.parse(reversed);
  } catch (const CLI::ParseError& e) {
    return app.exit(e) == 0 ? 0 : 2;
  }

  if (port_text.empty()) {
    const char* env = std::getenv("QUELLOR_STATUS_PORT");
    port_text = env && *env ? env : "10051";
  }
  const std::optional<unsigned> port = ParsePort(port_text);
  if (!port) {
    std::cerr << "quellorctl status: invalid port \"" << port_text << "\" (1 to 65535)\n";
    return 2;
  }

  asio::io_context io;
  tcp::socket socket(io);
  boost::system::error_code failure;
  std::string stage = "connect to";
  asio::streambuf reply;

  tcp::resolver resolver(io);
  boost::system::error_code ec;
  const auto endpoints = resolver.resolve(host, std::to_string(*port), ec);
  if (ec) {
    std::cerr << "quellorctl status: cannot resolve " << host << ": " << ec.message() << '\n';
    return 1;
  }

  asio::async_connect(socket, endpoints, [&](const boost::system::error_code& e, const auto&) {
    if (e) {
      failure = e;
      return;
    }
    stage = "read the reply of";
    // The service sends one reply and closes the connection: read until end of stream.
    asio::async_read(socket, reply, [&](const boost::system::error_code& r, size_t) {
      if (r && r != asio::error::eof) failure = r;
      stage.clear();
    });
  });

  io.run_for(kConnectTimeout);
  if (!io.stopped() && !failure && stage == "read the reply of") {
    io.run_for(kReplyTimeout - kConnectTimeout);
  }
  if (!failure && !stage.empty()) failure = asio::error::timed_out;
  if (failure) {
    std::cerr << "quellorctl status: cannot " << stage << " " << host << " port " << *port << ": "
              << failure.message() << '\n';
    return 1;
  }
  std::cout << &reply;
  std::cout.flush();
  return 0;
}

}  // namespace quellor::ctl
