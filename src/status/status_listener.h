#pragma once
// The status socket `statusws`: answers status queries on TCP with the status reply.
//
// One connection at a time: when a client connects the listening socket is closed and the
// accepted connection takes its place; the reply (or CR LF alone for a refused client) is sent,
// the connection closed, and only then does the socket listen again. A client on 127.0.0.1 is
// answered; any other peer only while "Accept External Query" (`check1`) is ticked. Whatever a
// client sends is never read. Everything runs as asynchronous operations on the service's one
// event loop, so a client that never reads cannot hold up the timers or the pass.

#include <boost/asio/io_context.hpp>
#include <chrono>
#include <cstdint>
#include <memory>

#include "core/context.h"

namespace quellor {

inline constexpr uint16_t kDefaultStatusPort = 10051;

// The port named by an environment variable (1..65535), or the fallback when it is unset or
// does not read as a port.
uint16_t PortFromEnvironment(const char* name, uint16_t fallback);
// QUELLOR_STATUS_PORT, or 10051.
uint16_t StatusPortFromEnvironment();

class StatusListener {
 public:
  // Binds 0.0.0.0 on `port` when Listen() is called; nothing happens before.
  StatusListener(boost::asio::io_context& io, Context& ctx, uint16_t port);
  ~StatusListener();
  StatusListener(const StatusListener&) = delete;
  StatusListener& operator=(const StatusListener&) = delete;

  // Puts the status socket into listening state (the Start command's hook). Raises the socket
  // error when the port cannot be bound; a retry is then scheduled so that a port held briefly
  // by another program does not leave the service deaf for good.
  void Listen();
  // Closes the status socket and any connection in progress.
  void Close();

  bool listening() const;
  uint16_t port() const;
  // How long a reply may take to be sent before the connection is dropped (default 10 s).
  void set_send_timeout(std::chrono::milliseconds timeout);
  // How long to wait before listening again after a failed listen (default 10 s).
  void set_retry_interval(std::chrono::milliseconds interval);

 private:
  struct Impl;
  std::shared_ptr<Impl> impl_;
};

}  // namespace quellor
