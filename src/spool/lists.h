#pragma once
// List files: white lists, learned lists and DOMAIN.LST, with "*" patterns.

#include <string>
#include <string_view>

#include "core/context.h"

namespace quellor {

// True when the entry (a pattern with "*") matches the value, case-insensitively.
bool MatchEntry(std::string_view entry, std::string_view value);
// True when some line of the list file (an ordinary file) matches `buscado`; stops at the first.
bool buscaenlista(Context& ctx, const std::string& nombrelista, const std::string& buscado);
// Adds `nuevo` in sorted position unless a line equals it (trimmed, case-insensitive), rewriting
// the list through the work file with the list's extension replaced by ".TMP".
void AddListEntry(Context& ctx, const std::string& lista, const std::string& nuevo);
// Appends every address ("@") and pattern ("*") token of `cadena` to the postmasters list
// List1, in text order. `lista` is not used.
void ScanEmailsinString(Context& ctx, const std::string& cadena, const std::string& lista);

}  // namespace quellor
