#pragma once
// The process-wide state that start-up fixes and every procedure reads: the installation root,
// the clock and sleeper, the configuration settings and the status window's model.

#include <cstdint>
#include <ctime>
#include <functional>
#include <map>
#include <memory>
#include <random>
#include <set>
#include <string>
#include <string_view>
#include <vector>

#include "core/window_model.h"
#include "platform/clock.h"
#include "platform/guard.h"

namespace quellor {

class FolderListing;
class MessageComponent;

// Settings of quellor.ini.
struct Settings {
  int16_t listening_port = 0;
  int16_t server_port = 0;
  int16_t gateway_port = 0;
  std::string server;
  std::string gateway;
  std::string postmasters;
  std::string validation_method;
  std::string domains_auto;       // automatic local domains: on only when exactly "YES"
  std::string users_auto;         // automatic user provisioning: on only when exactly "YES"
  std::string log = "ON";         // retry log: on only when exactly "ON"
  std::string debug = "OFF";      // window visible unless exactly "OFF"; warnings only when "ON"
  std::string safe_delivery;      // the loss-free switch: on only when exactly "ON"
  std::string challenge_filter;   // no requests to robots: on only when exactly "ON"
  std::string messages_per_pass;  // pacing: messages one pass takes (40 unless set)
  std::string message_pause;      // pacing: milliseconds before each message (100 unless set)

  bool LogOn() const { return log == "ON"; }
  bool DebugOn() const { return debug == "ON"; }
  bool SafeDeliveryOn() const { return safe_delivery == "ON"; }
  bool ChallengeFilterOn() const { return challenge_filter == "ON"; }
  // The pacing keys as numbers: a whole number from 1 (0 for the pause) to 32767, otherwise
  // the classic 40 messages and 100 milliseconds.
  int MessagesPerPass() const;
  int16_t MessagePauseMs() const;
};

// The files and folders written for the input pair being handled: the pass flushes them all to
// the disk before the pair goes, so a crash never loses a message. The retrying file primitives
// note what they create, fill or name while a record is in force; no stage has to.
struct WriteRecord {
  std::vector<std::string> files;
  std::set<std::string> folders;  // created
  // Folders holding files that were flushed where they were written (only the entries are left).
  std::set<std::string> entry_folders;
};

// What the pass keeps between passes while SAFE_DELIVERY is on (names upper-cased).
struct DeliveryMemory {
  std::set<std::string> passed_over;            // IN/ message files that could not be removed
  std::map<std::string, std::time_t> deferred;  // stems moved to DEFER/, and when
};

// The installation root: QUELLOR_ROOT, or /var/spool/quellor/, always ending with "/".
std::string RootFromEnvironment();
// Adds the trailing "/" when missing.
std::string WithTrailingSlash(std::string root);

class Context {
 public:
  Context(std::string root, Clock& clock, Sleeper& sleeper);

  // The root followed by a relative path ("IN/x.EML").
  std::string Path(std::string_view relative) const;
  // Reports an error to the error log ("log and carry on" sink for guards).
  ErrorSink error_sink();
  // Writes a line to the journal: where an error-log line goes when the error log cannot be
  // written and SAFE_DELIVERY is on. Standard error when no journal was given.
  void Journal(const std::string& line);
  // A uniform random number in [0, 1) from the generator seeded at start-up.
  double Rnd();
  void Seed(uint64_t seed) { rng_.seed(seed); }
  // The one message component of the process, created on first use.
  MessageComponent& component();
  // The changes of IN/'s "*.EML" files, for the window's input listing File1; created on first
  // use.
  FolderListing& input_listing();

  std::string root;  // with trailing "/"
  Clock& clock;
  Sleeper& sleeper;
  Settings settings;
  WindowModel window;
  int16_t pause_ms = 100;       // per-message pause of the pass
  std::string users = "Users";  // per-user folder name
  std::string marker = "Request-ID:";
  int64_t reset_day = 0;  // day number of the last daily reset
  // The journal writer of the service (see Journal); empty outside the service.
  std::function<void(const std::string& line)> journal;
  int64_t give_ups = 0;  // file primitives that gave up so far
  DeliveryMemory delivery;
  // The version of the window's input listing File1 when it was last brought up to date with
  // IN/, and how many refreshes found IN/ changed (equal counts, equal listings).
  uint64_t input_listing_version = ~uint64_t{0};
  uint64_t input_listing_changes = 0;
  // The record in force while a pass handles input pairs (see WriteRecord); none otherwise.
  WriteRecord* written = nullptr;
  void NoteWritten(const std::string& path) {
    if (written) written->files.push_back(path);
  }
  void NoteFolderMade(const std::string& path) {
    if (written) written->folders.insert(path);
  }
  // A file noted so far that its writer has flushed itself: only its folder entry is left. A
  // later write of it is noted anew.
  void NoteFlushed(const std::string& path);

 private:
  std::mt19937_64 rng_{0};
  std::shared_ptr<MessageComponent> component_;
  std::shared_ptr<FolderListing> input_listing_;
};

}  // namespace quellor
