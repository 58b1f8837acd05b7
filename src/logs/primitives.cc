#include "logs/primitives.h"

#include <chrono>
#include <cstdint>
#include <exception>
#include <optional>

#include "logs/logs.h"
#include "platform/names.h"
#include "platform/regional.h"
#include "platform/text.h"

namespace quellor {

namespace {

constexpr int16_t kAttempts = 8;
constexpr std::chrono::milliseconds kPause{100};

// The warnings and retry-log switches that OpenFile reads instead of DEBUG and LOG. Nothing in
// the system ever sets them, so OpenFile retries silently; they keep its lines in place.
struct OpenFileSwitches {
  std::string debug;
  std::string log;
};
const OpenFileSwitches kOpenFileSwitches{};

// Where the lines of one primitive go: the status window's warnings and/or the retry log.
struct Reporting {
  bool warnings;
  bool retry_log;
};

Reporting FromSettings(const Context& ctx) {
  return {ctx.settings.DebugOn(), ctx.settings.LogOn()};
}

// Posts one line: "<short date>,<long time><text>" to List3 and " <text>" to the retry log.
void Report(Context& ctx, Reporting to, const std::string& text) {
  if (to.warnings) {
    LocalTime now = ctx.clock.LocalNow();
    ctx.window.List3.Add(ShortDate(now) + "," + LongTime(now) + text);
  }
  if (to.retry_log) {
    std::string line = " " + text;
    log(ctx, line, 1, ".iwr");
  }
}

// Runs `step` until it succeeds or has failed 8 times, sleeping 100 ms after every failure.
// `what` is the tag and details of the lines ("###KILL <path>"), `give_up` the marker of the
// last line. Returns false after a give-up; the failure itself is forgotten.
template <class Step>
bool WithRetries(Context& ctx, Reporting to, const std::string& what, std::string_view give_up,
                 Step&& step) {
  int16_t attempts = 0;
  while (true) {
    try {
      step();
      return true;
    } catch (const std::exception&) {
      // Any error of the underlying call counts as a failed attempt.
    }
    ++attempts;
    ctx.sleeper.Sleep(kPause);
    if (attempts < kAttempts) {
      Report(ctx, to, what + " Intento=" + SignedText(attempts));
    } else {
      Report(ctx, to, what + std::string(give_up));
      return false;
    }
  }
}

std::optional<OpenMode> ModeFromWord(std::string_view mode) {
  std::string word = UCase(mode);
  if (word == "INPUT") return OpenMode::kInput;
  if (word == "APPEND") return OpenMode::kAppend;
  if (word == "OUTPUT") return OpenMode::kOutput;
  if (word == "BINARY") return OpenMode::kBinary;
  return std::nullopt;
}

}  // namespace

TextFile OpenFile(Context& ctx, const std::string& path, std::string_view mode, int filenum) {
  TextFile file;
  std::optional<OpenMode> open_mode = ModeFromWord(mode);
  if (!open_mode) return file;  // an unknown mode opens nothing and is no error
  Reporting to{kOpenFileSwitches.debug == "ON", kOpenFileSwitches.log == "ON"};
  std::string what = "###OPEN " + path + "-" + SignedText(filenum) + "-" + std::string(mode);
  // OpenFile's give-up marker keeps its trailing blank, unlike the other three.
  WithRetries(ctx, to, what, " RESUME NEXT ", [&] { file = TextFile::Open(path, *open_mode); });
  return file;
}

void DeleteFile(Context& ctx, const std::string& archivo) {
  // A missing or hidden file is not looked for again: nothing to delete, nothing to log.
  if (!OrdinaryFileExists(archivo)) return;
  WithRetries(ctx, FromSettings(ctx), "###KILL " + archivo, " RESUME NEXT", [&] {
    // The file may have gone meanwhile (another holder deleted it): then the work is done.
    if (OrdinaryFileExists(archivo)) RemoveFile(archivo);
  });
}

void CopyFile(Context& ctx, const std::string& origen, const std::string& destino) {
  WithRetries(ctx, FromSettings(ctx), "###COPY " + origen + "-" + destino, " RESUME NEXT",
              [&] { CopyFileBytes(origen, destino); });
}

void NameFile(Context& ctx, const std::string& origen, const std::string& destino) {
  WithRetries(ctx, FromSettings(ctx), "###NAME " + origen + "-" + destino, " RESUME NEXT",
              [&] { RenameFile(origen, destino); });
}

}  // namespace quellor
