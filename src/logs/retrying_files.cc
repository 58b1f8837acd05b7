#include "logs/retrying_files.h"

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

// The retries of one call: one attempt counter for the whole call, so that every failing step
// of it (DeleteFile has two) draws on the same 8 attempts.
class Attempts {
 public:
  // `what` is the tag and details of the lines ("###KILL <path>"), `give_up` the marker of the
  // last line.
  Attempts(Context& ctx, Reporting to, std::string what, std::string_view give_up)
      : ctx_(ctx), to_(to), what_(std::move(what)), give_up_(give_up) {}

  // Runs `step` until it succeeds or the call has failed 8 times, sleeping 100 ms after every
  // failure. Returns false after a give-up; the failure itself is forgotten.
  template <class Step>
  bool Run(Step&& step) {
    while (true) {
      try {
        step();
        return true;
      } catch (const std::exception&) {
        // Any error of the underlying call counts as a failed attempt.
      }
      ++failures_;
      ctx_.sleeper.Sleep(kPause);
      if (failures_ >= kAttempts) {
        ++ctx_.give_ups;
        Report(ctx_, to_, what_ + std::string(give_up_));
        return false;
      }
      Report(ctx_, to_, what_ + " Intento=" + SignedText(failures_));
    }
  }

 private:
  Context& ctx_;
  Reporting to_;
  std::string what_;
  std::string_view give_up_;
  int16_t failures_ = 0;
};

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
  Attempts(ctx, to, what, " RESUME NEXT ").Run([&] { file = TextFile::Open(path, *open_mode); });
  // A file set out to be written is noted even when it did not open: whatever stands under its
  // name must reach the disk (or fail to) before the input pair goes.
  if (*open_mode == OpenMode::kOutput || *open_mode == OpenMode::kAppend) ctx.NoteWritten(path);
  return file;
}

TextFile OpenNewFile(Context& ctx, const std::string& path, int filenum) {
  TextFile file;
  Reporting to{kOpenFileSwitches.debug == "ON", kOpenFileSwitches.log == "ON"};
  std::string what = "###OPEN " + path + "-" + SignedText(filenum) + "-OUTPUT";
  Attempts(ctx, to, what, " RESUME NEXT ").Run([&] {
    file = TextFile::Open(path, OpenMode::kCreateNew);
  });
  if (file.is_open()) ctx.NoteWritten(file.path());
  return file;
}

namespace {
// One attempt at a copy, made as `how` says.
void CopyOnce(CopyHow how, const std::string& from, const std::string& to, bool exclusive) {
  if (how == CopyHow::kShareInput) {
    ShareOrCopyFile(from, to, exclusive);
  } else {
    CopyFileBytes(from, to, exclusive);
  }
}
}  // namespace

void CopyNewFile(Context& ctx, const std::string& origen, const std::string& destino, CopyHow how) {
  Attempts(ctx, FromSettings(ctx), "###COPY " + origen + "-" + destino, " RESUME NEXT").Run([&] {
    CopyOnce(how, origen, destino, true);
  });
  ctx.NoteWritten(destino);
}

void DeleteFile(Context& ctx, const std::string& archivo) {
  Attempts attempts(ctx, FromSettings(ctx), "###KILL " + archivo, " RESUME NEXT");
  bool found = false;
  // The search admits ordinary files only: a missing or hidden file (or a folder) is silent and
  // immediate. A search that fails is retried like the delete itself.
  if (!attempts.Run([&] { found = FindOrdinaryFile(archivo); }) || !found) return;
  // A retry deletes again; a file that another holder removed meanwhile fails like any other.
  attempts.Run([&] { RemoveFile(archivo); });
}

void CopyFile(Context& ctx, const std::string& origen, const std::string& destino, CopyHow how) {
  Attempts(ctx, FromSettings(ctx), "###COPY " + origen + "-" + destino, " RESUME NEXT").Run([&] {
    CopyOnce(how, origen, destino, false);
  });
  ctx.NoteWritten(destino);
}

void NameFile(Context& ctx, const std::string& origen, const std::string& destino) {
  Attempts(ctx, FromSettings(ctx), "###NAME " + origen + "-" + destino, " RESUME NEXT").Run([&] {
    RenameFile(origen, destino);
  });
  ctx.NoteWritten(destino);
}

void MakeMissingFolder(Context& ctx, const std::string& folder) {
  if (FolderExists(folder)) return;
  MakeFolder(folder);
  ctx.NoteFolderMade(folder);
}

}  // namespace quellor
