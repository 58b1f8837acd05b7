#pragma once
// The quoted-printable encoder of the validation request's text parts.

#include <string>
#include <string_view>

namespace quellor {

// Escapes "=" and bytes above 127 as "=XX" and adds a soft break "=" CR LF after every 73rd
// input character, counted over the whole input.
std::string EncodeQP(std::string_view text);

}  // namespace quellor
