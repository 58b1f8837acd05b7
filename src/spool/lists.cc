#include "spool/lists.h"

#include <memory>

#include "logs/retrying_files.h"
#include "platform/errors.h"
#include "platform/files.h"
#include "platform/guard.h"
#include "platform/names.h"
#include "platform/text.h"
#include "spool/address.h"
#include "spool/stages/lines.h"

namespace quellor {

namespace {

// MatchEntry on an entry and a value that are both upper-cased already; `core` is scratch space
// reused from call to call.
bool MatchUpper(std::string_view entry, std::string_view value, std::string& core) {
  if (entry.empty()) return false;
  core.clear();
  for (char c : entry) {
    if (c != '*') core += c;
  }
  if (core.empty()) return true;  // only stars: every value, the empty one included
  size_t first = value.find(core);
  if (first == std::string_view::npos) return false;
  size_t last = value.rfind(core);
  // The two anchors look at different occurrences, so "abc" matches "abcabc".
  if (entry.front() != '*' && first > 0) return false;
  if (entry.back() != '*' && last + core.size() < value.size()) return false;
  return true;
}

// The entry of a list line: blanks trimmed, upper-cased, into a reused buffer.
void EntryOf(std::string_view line, std::string& entry) {
  size_t b = line.find_first_not_of(' ');
  size_t e = line.find_last_not_of(' ');
  entry.clear();
  if (b == std::string_view::npos) return;
  for (size_t i = b; i <= e; ++i) entry += UpperChar(line[i]);
}

// Reads the next line into `line`; false at the end of the file or when the read failed (the
// guard has logged it), so that no loop keeps spinning on a file that cannot be read.
bool NextLine(Guard& guard, TextFile& file, std::string& line) {
  bool end = true;
  if (!guard([&] { end = file.Eof(); }) || end) return false;
  return guard([&] { line = file.ReadLine(); });
}

}  // namespace

bool MatchEntry(std::string_view entry, std::string_view value) {
  std::string core;
  return MatchUpper(UCase(entry), UCase(value), core);
}

bool buscaenlista(Context& ctx, const std::string& nombrelista, const std::string& buscado) {
  Guard guard(ctx.error_sink(), "Quellor - buscaenlista");
  bool found = false;
  bool exists = false;
  // A search that fails is logged and finds nothing.
  guard([&] { exists = FindOrdinaryFile(nombrelista); });
  if (!exists) return false;
  std::string value = UCase(buscado);
  TextFile file;
  guard([&] { file = OpenFile(ctx, nombrelista, "INPUT"); });
  std::string line, entry, core;
  while (NextLine(guard, file, line)) {
    EntryOf(line, entry);
    if (MatchUpper(entry, value, core)) {
      found = true;
      break;
    }
  }
  guard([&] { file.Close(); });
  return found;
}

void AddListEntry(Context& ctx, const std::string& lista, const std::string& nuevo) {
  Guard guard(ctx.error_sink(), "Quellor - AddListEntry");
  std::string entry = Trim(nuevo);
  if (entry.empty()) return;
  if (lista.size() < 4) {
    guard([] { Raise(kErrInvalidCall); });  // no extension to replace
    return;
  }
  std::string lower = LCase(entry);
  std::string upper = UCase(entry);

  bool exists = false;
  // A list that cannot be searched is not rewritten: taken for missing, it would be replaced by
  // the new entry alone.
  if (!guard([&] { exists = FindOrdinaryFile(lista); })) return;
  std::string line;
  if (exists) {
    TextFile in;
    bool listed = false;
    guard([&] { in = OpenFile(ctx, lista, "INPUT"); });
    while (!listed && NextLine(guard, in, line)) listed = LCase(Trim(line)) == lower;
    guard([&] { in.Close(); });
    if (listed) return;
  }

  // The list is rewritten as a whole into a fresh temporary file beside it and put in place in
  // one rename: a crash leaves the old list or the new one, and no work file of an earlier call
  // is ever written into again.
  bool ok = true;
  auto step = [&](auto&& statement) { ok = guard(statement) && ok; };
  // The list is opened before the work file. A missing list is not opened at all: the new list
  // holds the new entry alone.
  TextFile in;
  std::unique_ptr<AtomicReplacement> out;
  if (exists) step([&] { in = OpenFile(ctx, lista, "INPUT"); });
  step([&] { out = std::make_unique<AtomicReplacement>(lista); });
  if (!out) return;
  bool written = false;
  if (exists) {
    bool end = true;
    while (true) {
      if (!guard([&] { end = in.Eof(); })) ok = false;
      if (!ok || end) break;
      step([&] { line = in.ReadLine(); });
      if (!ok) break;
      if (!written && Trim(UCase(line)).compare(upper) >= 0) {
        step([&] { out->file().WriteLine(OneLine(entry)); });
        written = true;
      }
      step([&] { out->file().WriteLine(line); });
    }
    step([&] { in.Close(); });
  }
  if (!written) step([&] { out->file().WriteLine(OneLine(entry)); });
  // An incomplete copy must not replace the list (entries would be lost): the old list stays.
  if (ok) guard([&] { out->Commit(); });
}

void ScanEmailsinString(Context& ctx, const std::string& cadena, const std::string& /*lista*/) {
  Guard guard(ctx.error_sink(), "Quellor - scanemailsinstring");
  std::string rest = cadena;
  std::string current = " ";
  while (!rest.empty() && !current.empty()) {
    bool ok = guard([&] {
      std::string a = ExtractAddress(rest, "@");
      std::string s = ExtractAddress(rest, "*");
      size_t pa = a.empty() ? rest.size() + 1 : InStr(rest, a);
      size_t ps = s.empty() ? rest.size() + 1 : InStr(rest, s);
      const std::string& token = pa <= ps ? a : s;
      size_t pos = pa <= ps ? pa : ps;
      current = token;
      rest = pos > rest.size() ? std::string() : rest.substr(pos - 1 + token.size());
      if (!current.empty()) ctx.window.List1.Add(current);
    });
    if (!ok) break;
  }
}

}  // namespace quellor
