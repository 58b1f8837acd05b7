#pragma once
// The four file primitives with retries: at most 8 attempts, 100 ms apart, then the operation is
// abandoned silently (only counted in Context::give_ups). DeleteFile, CopyFile and NameFile post
// warnings (DEBUG exactly "ON") and retry-log lines (LOG exactly "ON"); OpenFile retries silently.

#include <string>
#include <string_view>

#include "core/context.h"
#include "platform/files.h"

namespace quellor {

// Opens `path` in the mode named by `mode` ("INPUT", "APPEND", "OUTPUT", "BINARY", compared
// after upper-casing). After a give-up, or for an unknown mode, the returned file is unopened,
// so the caller's next use of it fails in the caller. `filenum` appears only in its log lines.
TextFile OpenFile(Context& ctx, const std::string& path, std::string_view mode, int filenum = 1);
// OpenFile "OUTPUT" for a new queue file: the file is created exclusively, so a file that
// another writer made under the same name is never truncated (the attempt fails instead).
TextFile OpenNewFile(Context& ctx, const std::string& path, int filenum = 1);
// Deletes an ordinary file; a missing or hidden file is silent and immediate.
void DeleteFile(Context& ctx, const std::string& archivo);
// How a copy is made: byte by byte, or, for the input message that goes away with its pair,
// as a second name when the file is ours alone (see ShareOrCopyFile).
enum class CopyHow { kBytes, kShareInput };
// Copies `origen` over `destino`.
void CopyFile(Context& ctx, const std::string& origen, const std::string& destino,
              CopyHow how = CopyHow::kBytes);
// CopyFile onto a new queue file that must not exist yet, created exclusively.
void CopyNewFile(Context& ctx, const std::string& origen, const std::string& destino,
                 CopyHow how = CopyHow::kBytes);
// Renames `origen` to `destino`; an existing `destino` makes every attempt fail.
void NameFile(Context& ctx, const std::string& origen, const std::string& destino);
// Creates `folder` (one level, no retries) unless it exists; raises when that fails.
void MakeMissingFolder(Context& ctx, const std::string& folder);

// While a pass holds a write record (Context::written), every file these primitives create,
// fill or name, and every folder MakeMissingFolder creates, is noted in it.

}  // namespace quellor
