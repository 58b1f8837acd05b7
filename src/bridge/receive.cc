#include "bridge/receive.h"

#include "bridge/bounce_scan.h"
#include "bridge/in_pair.h"
#include "platform/text.h"

namespace quellor::bridge {

namespace {

// An envelope line must stay one line: no control characters, no blanks around it.
bool SafeEnvelopeField(std::string_view field) {
  for (unsigned char c : field) {
    if (c < 0x20 || c == 0x7f) return false;
  }
  return true;
}

}  // namespace

bool IsNullSender(std::string_view sender) {
  return sender.empty() || sender == "<>" || UCase(sender) == "MAILER-DAEMON";
}

std::string ToCrLf(std::string_view text) {
  std::string out;
  out.reserve(text.size() + text.size() / 32 + 2);
  for (size_t i = 0; i < text.size(); ++i) {
    if (text[i] == '\n' && (i == 0 || text[i - 1] != '\r')) out += '\r';
    out += text[i];
  }
  return out;
}

std::string InMessage(std::string_view envelope_sender, bool null_sender,
                      std::string_view message) {
  std::string body = ToCrLf(message);
  if (null_sender) {
    const QuotedRequest request = FindQuotedRequest(body);
    if (!request.id.empty() && !request.in_top_subject)
      body = MarkReturnedRequest(body, request.id);
  }
  const std::string path = null_sender ? "<>" : "<" + std::string(envelope_sender) + ">";
  return "Return-Path: " + path + "\r\n" + body;
}

int Receive(const ReceiveOptions& options, std::string_view sender, std::string_view recipient,
            std::string_view message, const std::string& first_stem, std::string* error) {
  const bool null_sender = IsNullSender(sender);
  const std::string envelope_sender = null_sender ? options.null_sender : Trim(sender);
  const std::string rcpt = Trim(recipient);
  if (rcpt.empty() || envelope_sender.empty() || !SafeEnvelopeField(envelope_sender) ||
      !SafeEnvelopeField(rcpt)) {
    *error = "unusable envelope: sender \"" + std::string(sender) + "\", recipient \"" +
             std::string(recipient) + "\"";
    return kExitTryAgain;
  }
  const PairResult result =
      WriteInPair(options.in_folder, first_stem, envelope_sender + "\r\n" + rcpt + "\r\n",
                  InMessage(envelope_sender, null_sender, message));
  if (!result.written) {
    *error = result.error;
    return kExitTryAgain;
  }
  return kExitDelivered;
}

}  // namespace quellor::bridge
