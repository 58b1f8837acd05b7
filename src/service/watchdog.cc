#include "service/watchdog.h"

#include <string>

#include "logs/error_sink.h"
#include "logs/retrying_files.h"
#include "platform/guard.h"
#include "platform/names.h"
#include "platform/regional.h"
#include "platform/text.h"

namespace quellor {

void Watchdog::KeepAlive_Timer() {
  Guard step(CarryOnSink(ctx_), "Quellor - KeepAlive");

  // Only an ordinary file counts: a hidden marker leaves the watchdog on. A root that cannot be
  // searched is logged and counts as no marker.
  bool marker = false;
  step([&] { marker = FindOrdinaryFile(ctx_.Path("nostart.txt")); });
  if (marker) return;

  std::string state;
  step([&] { state = manager_.QueryStateText(manager_.ComputerName(), kCompanionService); });
  if (UCase(state) != "STOPPED") return;

  // The start log records the attempt, not its success: a refused start is tried again and
  // logged again a minute later.
  step([&] { manager_.StartService(manager_.ComputerName(), kCompanionService); });
  TextFile file;
  step([&] { file = OpenFile(ctx_, ctx_.Path("LOG/START.LOG"), "APPEND"); });
  step([&] { file.WriteLine(GeneralDateTime(ctx_.clock.LocalNow()) + " - " + kCompanionService); });
  step([&] { file.Close(); });
}

}  // namespace quellor
