#pragma once
// quellor-receive: takes one message from Postfix's pipe(8) (sender and recipient as arguments,
// the message on standard input) and writes it into IN/ as a pair.

#include <string>
#include <string_view>

namespace quellor::bridge {

// Exit statuses of sysexits.h that Postfix understands: 0 delivered, 75 try again later.
inline constexpr int kExitDelivered = 0;
inline constexpr int kExitTryAgain = 75;

struct ReceiveOptions {
  std::string in_folder;    // the root's IN/ folder, with trailing "/"
  std::string null_sender;  // the address written for the null sender (one of POSTMASTERS)
};

// True for the forms in which pipe(8) can pass the null sender ("", "<>", "MAILER-DAEMON").
bool IsNullSender(std::string_view sender);
// Bare LF line ends become CR LF; CR LF stays.
std::string ToCrLf(std::string_view text);

// The IN/ message for a message as Postfix hands it over: a "Return-Path:" line first, then the
// message with CR LF line ends. A returned validation request also gets the identifier into its
// subject. The first line is the one the pass strips when it takes a body line beginning
// "From " for a leading envelope line; it is a trace line the delivery service drops again.
std::string InMessage(std::string_view envelope_sender, bool null_sender, std::string_view message);

// Writes the pair; returns the exit status for Postfix and, on failure, the reason in `error`.
int Receive(const ReceiveOptions& options, std::string_view sender, std::string_view recipient,
            std::string_view message, const std::string& first_stem, std::string* error);

}  // namespace quellor::bridge
