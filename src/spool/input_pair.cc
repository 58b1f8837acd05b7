#include "spool/input_pair.h"

#include <algorithm>
#include <iterator>
#include <string>
#include <vector>

#include "logs/logs.h"
#include "logs/retrying_files.h"
#include "platform/errors.h"
#include "platform/files.h"
#include "platform/folder_listing.h"
#include "platform/names.h"
#include "platform/text.h"

namespace quellor {

namespace {

// How long a deferred pair waits in DEFER/ before it is taken again.
constexpr std::time_t kDeferSeconds = 60;

// Moves one file of the input pair into DEFER/ unless a file of that name is there already.
void MoveToDefer(PassRun& p, const std::string& from, const std::string& to) {
  Context& ctx = p.ctx;
  bool taken = false;
  p.Step([&] { taken = AnyFileExists(to); });
  if (taken) {
    p.Report(kErrFileExists, ErrorDescription(kErrFileExists) + ": " + to + "; " + from +
                                 " stays in " + ctx.Path("IN/"));
    return;
  }
  p.Step([&] { NameFile(ctx, from, to); });
}

// Moves what exists of the input pair into DEFER/, the message file first so that the listing
// of IN/ no longer shows the pair, then its envelope.
void DeferPair(PassRun& p, bool has_message, bool has_envelope) {
  Context& ctx = p.ctx;
  PassState& s = p.s;
  const std::string defer = ctx.Path("DEFER");
  p.Step([&] { MakeMissingFolder(ctx, defer); });
  if (has_message) MoveToDefer(p, ctx.Path("IN/" + s.message_file), defer + "/" + s.message_file);
  if (has_envelope) {
    MoveToDefer(p, ctx.Path("IN/" + s.envelope_name), defer + "/" + s.envelope_name);
  }
  p.FlushWritten();
  ctx.delivery.deferred[UCase(WithoutExtension(s.message_file))] = ctx.clock.Now();
}

// A message file still in IN/ after its pair was removed or deferred would be the head of every
// later listing: it is passed over from now on, logged once.
void PassOverIfStuck(PassRun& p) {
  Context& ctx = p.ctx;
  const std::string path = ctx.Path("IN/" + p.s.message_file);
  bool stuck = false;
  p.Step([&] { stuck = SafeName(p.s.message_file) && OrdinaryFileExists(path); });
  if (stuck && ctx.delivery.passed_over.insert(UCase(p.s.message_file)).second) {
    p.Report(kErrPathFileAccess, ErrorDescription(kErrPathFileAccess) + ": " + path +
                                     " cannot be taken out of " + ctx.Path("IN/") +
                                     "; the passes skip it until the service starts again");
  }
}

}  // namespace

void SettleInputPair(PassRun& p, bool complete) {
  Context& ctx = p.ctx;
  PassState& s = p.s;
  const bool safe = ctx.settings.SafeDeliveryOn();
  const std::string message_path = ctx.Path("IN/" + s.message_file);
  const std::string envelope_path = ctx.Path("IN/" + s.envelope_name);
  bool has_message = false;
  bool has_envelope = false;
  if (complete) {
    // A rewrite of the message file cut short leaves it as IN/<stem>.HDR: it takes its name back
    // so that it goes wherever its envelope goes.
    p.Step([&] {
      const std::string copy = ctx.Path("IN/" + WithoutExtension(s.message_file) + ".HDR");
      if (!AnyFileExists(message_path) && OrdinaryFileExists(copy)) {
        NameFile(ctx, copy, message_path);
      }
    });
  }
  p.Step([&] { has_message = SafeName(s.message_file) && OrdinaryFileExists(message_path); });
  p.Step([&] { has_envelope = SafeName(s.envelope_name) && OrdinaryFileExists(envelope_path); });

  const std::string fate = safe ? "moved to " + ctx.Path("DEFER/") : "deleted";
  const bool half = !complete && (has_message || has_envelope);
  if (half) {
    p.Report(kErrFileNotFound, ErrorDescription(kErrFileNotFound) + ": " +
                                   (has_message ? envelope_path : message_path) +
                                   "; the other half " +
                                   (has_message ? message_path : envelope_path) + " is " + fate);
  } else if (complete && p.UnfinishedError() != 0) {
    const int number = p.UnfinishedError();
    p.Report(number, ErrorDescription(number) + ": " + message_path +
                         " was not routed to all its recipients; the pair is " + fate);
  }

  if (safe && (half || (complete && p.UnfinishedError() != 0))) {
    DeferPair(p, has_message, has_envelope);
  } else {
    p.Step([&] {
      if (has_message) DeleteFile(ctx, message_path);
    });
    p.Step([&] {
      if (has_envelope) DeleteFile(ctx, envelope_path);
    });
  }
  if (safe) PassOverIfStuck(p);
  p.NextMessage();
}

bool RefreshInputListing(Context& ctx) {
  FolderListing& listing = ctx.input_listing();
  ListModel& files = ctx.window.File1;
  FolderListing::Changes changes;
  // File1 changed by someone else since it was last brought up to date: listed afresh.
  const bool listed = files.version() == ctx.input_listing_version ? listing.Refresh(&changes)
                                                                   : listing.Rescan(&changes);
  bool changed = false;
  if (changes.whole) {
    changed = !std::equal(files.items().begin(), files.items().end(), changes.names.begin(),
                          changes.names.end());
    if (changed || files.version() != ctx.input_listing_version) {
      files.Clear();
      for (std::string& name : changes.names) files.Add(std::move(name));
      changes.names = {};  // a long queue's listing is not held twice
    }
  } else {
    for (auto& [name, present] : changes.touched) {
      changed |= present ? files.InsertSorted(std::move(name), ListedBefore)
                         : files.RemoveSorted(name, ListedBefore);
    }
  }
  if (changed) ++ctx.input_listing_changes;
  ctx.input_listing_version = files.version();
  return listed;
}

bool SkipPassedOver(Context& ctx) {
  DeliveryMemory& memory = ctx.delivery;
  if (!ctx.settings.SafeDeliveryOn() || memory.passed_over.empty()) return true;
  for (auto it = memory.passed_over.begin(); it != memory.passed_over.end();) {
    it = OrdinaryFileExists(ctx.Path("IN/" + *it)) ? std::next(it) : memory.passed_over.erase(it);
  }
  ListModel& files = ctx.window.File1;
  std::vector<std::string> kept;
  for (const std::string& name : files.items()) {
    if (!memory.passed_over.count(UCase(name))) kept.push_back(name);
  }
  if (kept.size() != files.size()) {
    // Still the input listing, less the names passed over: later changes of IN/ apply to it.
    const bool current = files.version() == ctx.input_listing_version;
    files.Clear();
    for (std::string& name : kept) files.Add(std::move(name));
    if (current) ctx.input_listing_version = files.version();
  }
  if (files.size() > 0) return true;
  ctx.window.total.Set("0");
  return false;
}

void ReturnDeferred(Context& ctx) {
  const std::string defer = ctx.Path("DEFER");
  if (!FolderExists(defer)) return;
  const std::time_t now = ctx.clock.Now();
  for (const std::string& name : ListFiles(defer, "*.EML")) {
    const std::string stem = WithoutExtension(name);
    const auto deferred = ctx.delivery.deferred.find(UCase(stem));
    if (deferred != ctx.delivery.deferred.end() && now - deferred->second < kDeferSeconds) {
      continue;
    }
    const std::string message_in = ctx.Path("IN/" + name);
    const std::string envelope_in = ctx.Path("IN/" + stem + ".WAI");
    const std::string envelope_deferred = defer + "/" + stem + ".WAI";
    // A move back cut short between its link and its unlink left a file under both names: the
    // move is finished by removing the name in DEFER/.
    if (AnyFileExists(message_in)) {
      if (SameFile(defer + "/" + name, message_in)) DeleteFile(ctx, defer + "/" + name);
      continue;
    }
    if (OrdinaryFileExists(envelope_deferred)) {
      if (SameFile(envelope_deferred, envelope_in)) {
        DeleteFile(ctx, envelope_deferred);
      } else if (AnyFileExists(envelope_in)) {
        continue;
      } else {
        NameFile(ctx, envelope_deferred, envelope_in);
      }
    }
    // A half pair waits for its envelope; an envelope that did not move keeps the pair here.
    if (!OrdinaryFileExists(envelope_in)) continue;
    NameFile(ctx, defer + "/" + name, message_in);
    if (!AnyFileExists(message_in)) continue;
    ctx.delivery.deferred.erase(UCase(stem));
    if (ctx.settings.LogOn()) {
      std::string text = " ###DEFER " + defer + "/" + name + "-" + message_in;
      log(ctx, text, 1, ".iwr");
    }
  }
}

}  // namespace quellor
