// Fuzzes a whole pass over one input pair. The input is the envelope, a NUL byte and the message
// (no NUL: all envelope and an empty message). The tree holds a protected user, a learning user
// and the templates, so that every way through the pass can be taken.
#include <cstdint>
#include <string_view>

#include "fuzz_tree.h"
#include "service/startup.h"
#include "spool/pass.h"

using namespace quellor;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  fuzz::FuzzTree& tree = fuzz::Tree();
  tree.Reset();
  const std::string_view in(reinterpret_cast<const char*>(data), size);
  const size_t cut = in.find('\0');
  const std::string_view envelope = in.substr(0, cut);
  const std::string_view message = cut == std::string_view::npos ? "" : in.substr(cut + 1);
  tree.Write("quellor.ini",
             "POSTMASTERS=postmaster@example.org\r\nDOMAINS_AUTO=YES\r\nUSERS_AUTO=YES\r\n"
             "DEBUG=ON\r\n");
  tree.Write("DOMAIN.LST", "example.org\r\n");
  tree.Write("Users/bob@example.org.CONF", "MODE=QUELLOR\r\n");
  tree.Write("Users/bob@example.org.WLT", "friend@example.net\r\n*@trusted.example\r\n");
  tree.Write("Users/carol@example.org.CONF", "MODE=LEARN\r\n");
  tree.Write("Users/alias@example.org.ALS", "bob@example.org\r\n");
  tree.Write("SYSTEM/NEW_USER.CONF", "MODE=LEARN\r\n");
  tree.Write("SYSTEM/validation.txt", "Please reply to this message, $email.\r\n");
  tree.Write("SYSTEM/validation.htm", "<p>Please reply to this message, $email.</p>\r\n");
  tree.Write("WAIT/bob@example.org/20261116093000123.WAI",
             "stranger@example.net\r\n<bob@example.org>\r\nHello\r\n");
  tree.Write("WAIT/bob@example.org/20261116093000123.EML", "Subject: Hello\r\n\r\nHi\r\n");
  tree.Write("IN/20261116100000001.WAI", envelope);
  tree.Write("IN/20261116100000001.EML", message);
  Context& ctx = tree.ctx;
  LoadStartup(ctx);
  ctx.pause_ms = 0;
  ctx.Seed(1);
  quellor::quellor(ctx);
  return 0;
}
