#pragma once
// Recognises a delivery-status notification that returns one of our validation requests: it
// finds the request's wait identifier where bounce formats quote it, so that the IN/ pair can
// carry it in its subject, where the bounce stage of the pass looks.

#include <string>
#include <string_view>

namespace quellor::bridge {

// The marker that precedes a wait identifier in a request's subject.
inline constexpr std::string_view kRequestMarker = "Request-ID:";
// The Message-ID that outgoing requests carry: "<quellor." id "." stem "@" host ">".
inline constexpr std::string_view kRequestMessageIdPrefix = "<quellor.";

// The identifier in a subject text: blanks and tabs removed, the digits right after the marker
// (in any letter case); "" when there are none.
std::string IdentifierInSubject(std::string_view subject);
// A header value with its RFC 2047 words decoded (to UTF-8; only the digits matter here).
std::string DecodeWords(std::string_view value);

struct QuotedRequest {
  std::string id;               // the wait identifier found, "" when none
  bool in_top_subject = false;  // the message's own subject already carries it
};

// Looks for the identifier of a request in a message with CR LF line ends: in its own subject,
// then in every "Subject:" header line quoted in its body (Postfix, Exim and Exchange quote the
// returned message or its headers there), then in a quoted request Message-ID.
QuotedRequest FindQuotedRequest(std::string_view message);

// The message with its own Subject (or a new one, when it has none) followed by " // " and the
// marker with `id`, so that the bounce stage finds the identifier.
std::string MarkReturnedRequest(std::string_view message, std::string_view id);

}  // namespace quellor::bridge
