#pragma once
// Run-time errors with the classic error numbers and descriptions that administrators know.

#include <stdexcept>
#include <string>
#include <string_view>

namespace quellor {

// Classic error numbers used throughout the logs.
enum ErrorNumber : int {
  kErrInvalidCall = 5,      // "Invalid procedure call or argument"
  kErrOverflow = 6,         // "Overflow"
  kErrSubscript = 9,        // "Subscript out of range"
  kErrBadFileNumber = 52,   // "Bad file name or number"
  kErrFileNotFound = 53,    // "File not found"
  kErrFileExists = 58,      // "File already exists"
  kErrDiskFull = 61,        // "Disk full"
  kErrPastEnd = 62,         // "Input past end of file"
  kErrPermission = 70,      // "Permission denied"
  kErrPathFileAccess = 75,  // "Path/File access error"
  kErrPathNotFound = 76,    // "Path not found"
};

// The description that belongs to a classic error number ("" for 0).
std::string ErrorDescription(int number);

// Maps an errno value of a failed system call to the classic error number.
int ErrorNumberFromErrno(int err);

// A run-time error as the error handlers see it: a number and its description.
class RuntimeError : public std::runtime_error {
 public:
  explicit RuntimeError(int number);
  RuntimeError(int number, std::string description);
  int number() const { return number_; }
  const std::string& description() const { return description_; }

 private:
  int number_;
  std::string description_;
};

// Throws the run-time error with the given classic number.
[[noreturn]] void Raise(int number);
// Throws the run-time error that corresponds to an errno value.
[[noreturn]] void RaiseErrno(int err);

}  // namespace quellor
