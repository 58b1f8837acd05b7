#pragma once
// Text helpers for addresses and subjects used across the pass.

#include <string>
#include <string_view>

#include "core/context.h"

namespace quellor {

// Printable ASCII without the blank and without ?|()\/,;:<>[]" .
bool IsAddressChar(std::string_view ch);
bool IsAddressChar(char c);
// The longest run of address characters around the first occurrence of `mark`; "" when absent.
std::string ExtractAddress(std::string_view text, std::string_view mark);
// The text after the first "@"; the whole address when it holds none.
std::string DomainOf(std::string_view address);
// Every occurrence of `find`, searched without regard to case, replaced; inserted text is not
// searched again.
std::string ReplaceNoCase(std::string_view text, std::string_view find,
                          std::string_view replacement);
// The trimmed text after the first `key` (given in upper case) in the upper-cased text, up to
// the first `terminator` after it; "" when the key is absent. Raises "Invalid procedure call or
// argument" when the terminator does not follow the key.
std::string ValueAfter(std::string_view key, std::string_view text, std::string_view terminator);
// The mailbox name of an address: the first line of Users/<address>.ALS, trimmed, when that
// file exists; otherwise the address. Errors are logged with the label " - Alias".
std::string ResolveAlias(Context& ctx, const std::string& address);

}  // namespace quellor
