#pragma once
// The encoded-word subject decoder.

#include <cstdint>
#include <string>
#include <string_view>

#include "core/context.h"

namespace quellor {

// Replaces encoded words "=?charset?Q|B?text?=" by their decoded bytes (charset ignored);
// posts a warning to List2 while no word has been decoded.
std::string DecodeSubject(Context& ctx, std::string_view subject);
// Decodes "=XX" escapes whose two characters hold no lower-case letter.
std::string DecodeQP(std::string_view text);
// Hexadecimal value of up to two characters, read leniently.
int32_t HexValue(std::string_view text);

}  // namespace quellor
