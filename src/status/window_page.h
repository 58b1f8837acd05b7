#pragma once
// The status window as a local web page, served over HTTP on 127.0.0.1 by the service's event
// loop. A hidden window (DEBUG exactly "OFF") is not served at all.
//
//   GET  /        the page, with the window's state and a per-process token
//   GET  /state   the state as JSON (the page refreshes itself from it)
//   POST /check1  body "1" or "0": ticks or clears "Accept External Query"
//   GET  /held    the held-mail view as JSON: counts per user and the newest held messages
//   POST /release body "<user>\n<id>": releases that held message (as `quellorctl release`)
//   POST /drop    body "<user>\n<id>": drops it (as `quellorctl drop`)
//
// Only the page itself may use these: the request must carry the token in the
// X-Quellor-Token header, name this server in Host (no DNS rebinding), and a POST must come with
// this server's Origin and, where the browser says so, from the same origin. A cross-site page
// can therefore neither read the state or the held mail, nor tick the box, nor release or drop.

#include <boost/asio/io_context.hpp>
#include <chrono>
#include <cstdint>
#include <memory>
#include <string>

#include "core/context.h"

namespace quellor {

inline constexpr uint16_t kDefaultWindowPort = 10052;

// QUELLOR_WINDOW_PORT, or 10052.
uint16_t WindowPortFromEnvironment();

class WindowServer {
 public:
  WindowServer(boost::asio::io_context& io, Context& ctx, uint16_t port);
  ~WindowServer();
  WindowServer(const WindowServer&) = delete;
  WindowServer& operator=(const WindowServer&) = delete;

  // Starts serving when the window is visible; returns whether it serves. A failure to bind the
  // port raises the socket error.
  bool Start();
  // Stops serving and drops every open connection.
  void Stop();

  bool serving() const;
  uint16_t port() const;
  // The secret the page carries (for tests).
  const std::string& token() const;
  // How long one request may take to arrive or its answer to leave (default 10 s).
  void set_timeout(std::chrono::milliseconds timeout);

 private:
  struct Impl;
  std::shared_ptr<Impl> impl_;
};

}  // namespace quellor
