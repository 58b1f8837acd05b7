// Robot mail: senders that never answer a validation request (delivery reports, postmasters,
// auto-responders, mailing lists). A request to them is backscatter that can get the server
// blacklisted, so with CHALLENGE_FILTER=ON their mail is held without one.
#include <string>
#include <string_view>

#include "platform/message.h"
#include "platform/text.h"
#include "spool/address.h"
#include "spool/stages.h"

namespace quellor {

namespace {

// The first word of a header value (before any ";" parameter or comment), trimmed, lower case.
std::string Keyword(std::string_view value) {
  value = value.substr(0, value.find_first_of(";("));
  return LCase(Trim(OneLine(value)));
}

// The local part of an address, upper case.
std::string LocalPart(const std::string& address) {
  std::string local = address.substr(0, address.find('@'));
  if (!local.empty() && local.front() == '<') local.erase(0, 1);
  return UCase(Trim(local));
}

}  // namespace

std::string RobotMail(PassRun& p) {
  Context& ctx = p.ctx;
  const PassState& s = p.s;
  const std::string local = LocalPart(s.sender);
  // An empty sender holds no address and gets no request anyway; the Postfix bridge writes the
  // null sender as MAILER-DAEMON@<host>.
  if (local == "MAILER-DAEMON") return "null sender";
  if (local == "POSTMASTER") return "postmaster";
  for (const std::string& postmaster : ctx.window.List1.items()) {
    if (UCase(Trim(postmaster)) == UCase(Trim(s.sender))) return "postmaster";
  }

  std::string reason;
  p.Step([&] {
    MessageComponent& message = ctx.component();
    if (message.Open(ctx.Path("IN/" + s.message_file)) != 0) return;
    const std::string auto_submitted = Keyword(message.Header("Auto-Submitted"));
    const std::string precedence = Keyword(message.Header("Precedence"));
    if (message.HasHeader("Auto-Submitted") && auto_submitted != "no") {
      reason = "Auto-Submitted: " + auto_submitted.substr(0, 40);
    } else if (precedence == "bulk" || precedence == "junk" || precedence == "list") {
      reason = "Precedence: " + precedence;
    } else if (message.HasHeader("List-Id")) {
      reason = "List-Id";
    } else if (message.HasHeader("List-Unsubscribe")) {
      reason = "List-Unsubscribe";
    }
  });
  return reason;
}

}  // namespace quellor
