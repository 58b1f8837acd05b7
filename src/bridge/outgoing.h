#pragma once
// What the delivery service hands to Postfix for a LOCAL/ or OUT/ message file.

#include <string>
#include <string_view>

namespace quellor::bridge {

// A LOCAL/ message as Postfix takes it on standard input: the leading "Return-Path:" line that
// quellor-receive added (when the pass has not stripped it) is dropped, CR LF becomes LF.
std::string LocalForSendmail(std::string_view message);

// An OUT/ request made valid mail: the lone "." end line removed, header texts with 8-bit bytes
// written as RFC 2047 words (windows-1252), a Message-ID naming the wait identifier and the
// request's stem, "Auto-Submitted: auto-replied", LF line ends.
std::string RequestForSendmail(std::string_view message, std::string_view stem,
                               std::string_view hostname);

// A header value with its 8-bit words written as RFC 2047 Q-encoded words in windows-1252
// (folded onto continuation lines when long); ASCII text around them stays as it is.
std::string EncodeEightBitWords(std::string_view value);

}  // namespace quellor::bridge
