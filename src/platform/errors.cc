#include "platform/errors.h"

#include <cerrno>

namespace quellor {

std::string ErrorDescription(int number) {
  switch (number) {
    case 0:
      return "";
    case kErrInvalidCall:
      return "Invalid procedure call or argument";
    case kErrOverflow:
      return "Overflow";
    case 7:
      return "Out of memory";
    case kErrSubscript:
      return "Subscript out of range";
    case 13:
      return "Type mismatch";
    case kErrBadFileNumber:
      return "Bad file name or number";
    case kErrFileNotFound:
      return "File not found";
    case 54:
      return "Bad file mode";
    case 55:
      return "File already open";
    case 57:
      return "Device I/O error";
    case kErrFileExists:
      return "File already exists";
    case kErrDiskFull:
      return "Disk full";
    case kErrPastEnd:
      return "Input past end of file";
    case 67:
      return "Too many files";
    case kErrPermission:
      return "Permission denied";
    case kErrPathFileAccess:
      return "Path/File access error";
    case kErrPathNotFound:
      return "Path not found";
    default:
      return "Application-defined or object-defined error";
  }
}

int ErrorNumberFromErrno(int err) {
  switch (err) {
    case ENOENT:
      return kErrFileNotFound;
    case ENOTDIR:
      return kErrPathNotFound;
    case EEXIST:
    case ENOTEMPTY:
      return kErrFileExists;
    case ENOSPC:
    case EDQUOT:
      return kErrDiskFull;
    case EACCES:
    case EPERM:
    case EROFS:
    case EBUSY:
    case ETXTBSY:
      return kErrPermission;
    case EISDIR:
    case ENAMETOOLONG:
    case ELOOP:
    case EINVAL:
      return kErrPathFileAccess;
    case EBADF:
      return kErrBadFileNumber;
    case EMFILE:
    case ENFILE:
      return 67;
    case ENOMEM:
      return 7;
    case EIO:
      return 57;
    default:
      return kErrPathFileAccess;
  }
}

RuntimeError::RuntimeError(int number) : RuntimeError(number, ErrorDescription(number)) {}

RuntimeError::RuntimeError(int number, std::string description)
    : std::runtime_error(description), number_(number), description_(std::move(description)) {}

void Raise(int number) {
  throw RuntimeError(number);
}

void RaiseErrno(int err) {
  throw RuntimeError(ErrorNumberFromErrno(err));
}

}  // namespace quellor
