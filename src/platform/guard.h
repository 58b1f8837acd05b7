#pragma once
// "Log and carry on": the one error-handler mechanism of every procedure.
//
// A procedure creates one Guard with its label and runs each statement that may fail through
// it. A failing statement is reported to the error sink with the procedure's label, the error
// number and the description, and execution resumes with the next statement.

#include <functional>
#include <string>
#include <string_view>
#include <utility>

#include "platform/errors.h"

namespace quellor {

// Receives every error a guard catches: (label, number, description).
using ErrorSink =
    std::function<void(const std::string& label, int number, const std::string& description)>;

class Guard {
 public:
  // A fixed label, as in "Quellor - nextid".
  Guard(ErrorSink sink, std::string label);
  // A label computed when an error happens (the pass adds its progress marker).
  Guard(ErrorSink sink, std::function<std::string()> label);

  // Runs one statement; returns false when it failed (the error has been reported).
  template <class F>
  bool operator()(F&& statement) {
    try {
      std::forward<F>(statement)();
      return true;
    } catch (const RuntimeError& e) {
      Report(e.number(), e.description());
    } catch (const std::exception& e) {
      Report(Classify(e), ErrorDescription(Classify(e)));
    }
    return false;
  }

  // The number and description of the last error caught (0 and "" when none), like the
  // error object that closing entries of the service events print.
  int last_number() const { return last_number_; }
  const std::string& last_description() const { return last_description_; }

 private:
  void Report(int number, const std::string& description);
  static int Classify(const std::exception& e);

  ErrorSink sink_;
  std::function<std::string()> label_;
  int last_number_ = 0;
  std::string last_description_;
};

}  // namespace quellor
