// Fuzzes the window page with raw HTTP requests over a loopback connection. The text "TOKEN" in
// an input stands for the page's per-process token, so that requests can pass the token check.
#include <boost/asio.hpp>
#include <chrono>
#include <cstdint>
#include <cstdlib>
#include <memory>
#include <string>
#include <string_view>

#include "fuzz_tree.h"
#include "status/window_page.h"

namespace asio = boost::asio;
using asio::ip::tcp;
using namespace quellor;

namespace {

uint16_t FreePort(asio::io_context& io) {
  tcp::acceptor probe(io, tcp::endpoint(asio::ip::address_v4::loopback(), 0));
  return probe.local_endpoint().port();
}

struct Page {
  asio::io_context io;
  WindowServer server{io, fuzz::Tree().ctx, FreePort(io)};
  Page() {
    fuzz::Tree().ctx.window.visible = true;
    server.set_timeout(std::chrono::milliseconds(2000));
    server.Start();
  }
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  static Page* page = new Page();
  std::string request(reinterpret_cast<const char*>(data), size);
  for (size_t at = request.find("TOKEN"); at != std::string::npos;
       at = request.find("TOKEN", at + page->server.token().size())) {
    request.replace(at, 5, page->server.token());
  }
  tcp::socket client(page->io);
  client.connect(tcp::endpoint(asio::ip::address_v4::loopback(), page->server.port()));
  std::string answer;
  // Both the write and the read end (the server closes at the latest after its timeout).
  int pending = 2;
  asio::async_write(client, asio::buffer(request), [&](boost::system::error_code, size_t) {
    boost::system::error_code ignored;
    client.shutdown(tcp::socket::shutdown_send, ignored);
    --pending;
  });
  auto buffer = asio::dynamic_buffer(answer);
  asio::async_read(client, buffer, [&](boost::system::error_code, size_t) { --pending; });
  page->io.restart();
  while (pending > 0 && page->io.run_one()) {
  }
  // Every answer starts with a status line.
  if (!answer.empty() && answer.rfind("HTTP/1.", 0) != 0) std::abort();
  return 0;
}
