#pragma once
// Message file names (nextid) and wait identifiers (findid2 on a subject, findid on a file).

#include <string>

#include "core/context.h"

namespace quellor {

// A fresh name: local date "YYYYMMDD", time "HHMMSS", and a random number 1..1000. A candidate
// is drawn again only while all nine files <name>.WAI/.EML/.TMP in IN/, OUT/ and LOCAL/ exist.
std::string nextid(Context& ctx);
// The wait identifier of a subject text; removes a trailing CR from the caller's text.
std::string findid2(Context& ctx, std::string& ssubject);
// The wait identifier found in IN/<mail>, going on past the own subject to later "Subject:"
// lines (quoted requests in bounce bodies).
std::string findid(Context& ctx, std::string& mail);
// The core rule shared by the readers: blanks and tabs removed, the digits right after
// "REQUEST-ID:" (any case). Raises nothing.
std::string IdFromSubjectText(std::string_view text);

}  // namespace quellor
