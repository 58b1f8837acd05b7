#pragma once
// One run of the processing pass: its per-message state, its single error handler and the
// record of what it wrote for the current input pair.

#include <cstdint>
#include <set>
#include <string>
#include <vector>

#include "core/context.h"
#include "platform/errors.h"
#include "platform/files.h"
#include "platform/guard.h"

namespace quellor {

// Per-message state of the pass. Values that a stage does not overwrite stay from the previous
// message, exactly like the variables of the pass.
struct PassState {
  std::string message_file;      // name of the .EML in IN/
  std::string envelope_name;     // message_file without its last four characters, then ".WAI"
  std::string sender;            // envelope sender (line 1, trimmed)
  std::string recipient;         // recipient address of the current line
  std::string user;              // mailbox name (alias resolved)
  std::string request_address;   // address the sender wrote, in parentheses, or the recipient
  std::string subject;           // decoded subject; "" while unknown
  bool handled = false;          // consumed: no per-user routing for the rest of the message
  std::string first_wait_id;     // taken by the bounce test
  std::string wait_id;           // of the current recipient, for the reply stages
  bool reply = false;            // pass-wide: some message of this pass carried a wait identifier
  std::string last_held_sender;  // line 1 of the held envelope read last in this pass
  int16_t errseek = 0;           // progress marker printed by the error handler
};

class PassRun {
 public:
  explicit PassRun(Context& ctx);
  ~PassRun();
  PassRun(const PassRun&) = delete;
  PassRun& operator=(const PassRun&) = delete;

  // Runs one statement under the pass's error handler, which logs
  // "Quellor - quellor - errseek =<marker>" with the error and carries on. Between BeginCopy and
  // EndCopy a statement that fails, or whose file primitive gives up, marks the copy as failed.
  template <class F>
  bool Step(F&& statement) {
    if (!copying_) return guard_(std::forward<F>(statement));
    const int64_t give_ups = ctx.give_ups;
    const bool ok = guard_(std::forward<F>(statement));
    if (!ok) {
      Unfinished(guard_.last_number());
    } else if (ctx.give_ups != give_ups) {
      Unfinished(kErrPathFileAccess);
    }
    return ok;
  }
  void Mark(int16_t marker) { s.errseek = marker; }

  // The statements that write a copy of the current message (into LOCAL/ or WAIT/) run between
  // these two calls: any of them that fails leaves the message unfinished.
  void BeginCopy() { copying_ = true; }
  void EndCopy() { copying_ = false; }
  // Records that the current message was not routed whole (a copy not written, an envelope not
  // read to its end), with the error number that says why (0: the last error caught); the first
  // one counts.
  void Unfinished(int number) {
    if (number == 0) number = guard_.last_number();
    if (unfinished_ == 0) unfinished_ = number != 0 ? number : kErrPathFileAccess;
  }
  // The error that left the current message unfinished; 0 when none did.
  int UnfinishedError() const { return unfinished_; }
  // Starts afresh for the next message.
  void NextMessage() { unfinished_ = 0; }

  // Writes one line of the pass's own to the error log (label with the progress marker). Unlike
  // the error handler it never cuts the pass short when the error log cannot be written.
  void Report(int number, const std::string& description);

  // Flushes to the disk everything written for the current input pair (the retrying file
  // primitives note it in the run's write record, see WriteRecord) and starts a new record.
  // Called before the pair is deleted, so a crash never loses a message. A flush that fails
  // leaves the message unfinished.
  void FlushWritten();

  Context& ctx;
  PassState s;

 private:
  std::string Label() const;

  bool copying_ = false;
  int unfinished_ = 0;
  Guard guard_;
  WriteRecord written_;
  WriteRecord* outer_record_;
  // Whole-file replacements (lists, statistics) leave their folder flushes to FlushWritten.
  DeferredFolderSyncs replaced_folders_;
};

}  // namespace quellor
