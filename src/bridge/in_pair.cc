#include "bridge/in_pair.h"

#include <fcntl.h>

#include <cstdio>
#include <cstring>

#include "platform/fs.h"

namespace quellor::bridge {

namespace {

// Stems tried before giving up: concurrent deliveries in one microsecond take the next ones.
constexpr int kStemAttempts = 1000;

std::string Describe(const std::string& what, const std::string& path, int err) {
  return what + " " + path + ": " + std::strerror(-err);
}

// Writes all bytes, flushes them and closes the descriptor; 0 or -errno.
int WriteAllAndClose(int fd, std::string_view bytes) {
  int result = 0;
  size_t done = 0;
  while (done < bytes.size()) {
    const long n = Fs().Write(fd, bytes.data() + done, bytes.size() - done);
    if (n <= 0) {
      result = n < 0 ? static_cast<int>(n) : -EIO;
      break;
    }
    done += static_cast<size_t>(n);
  }
  if (result == 0) result = Fs().Fsync(fd);
  const int closed = Fs().Close(fd);
  return result != 0 ? result : closed;
}

}  // namespace

std::string StemAt(const struct timespec& when) {
  struct tm utc {};
  gmtime_r(&when.tv_sec, &utc);
  char text[96];
  std::snprintf(text, sizeof text, "%04d%02d%02d%02d%02d%02d%06ld", utc.tm_year + 1900,
                utc.tm_mon + 1, utc.tm_mday, utc.tm_hour, utc.tm_min, utc.tm_sec,
                static_cast<long>(when.tv_nsec / 1000));
  return text;
}

std::string NextStem(std::string stem) {
  for (size_t i = stem.size(); i-- > 0;) {
    if (stem[i] != '9') {
      ++stem[i];
      return stem;
    }
    stem[i] = '0';
  }
  return "1" + stem;
}

PairResult WriteInPair(const std::string& folder, const std::string& first_stem,
                       std::string_view envelope, std::string_view message) {
  PairResult result;
  std::string stem = first_stem;
  int fd = -1;
  std::string envelope_path;
  // Every writer of IN/ names its files with upper-case extensions, so the exclusive creation
  // of the envelope claims the stem whatever the letter case a reader asks for.
  for (int attempt = 0; attempt < kStemAttempts; ++attempt, stem = NextStem(stem)) {
    envelope_path = folder + stem + ".WAI";
    struct stat st {};
    if (Fs().Stat(folder + stem + ".EML", &st) == 0 || Fs().Stat(folder + stem + ".TMP", &st) == 0)
      continue;
    fd = Fs().Open(envelope_path, O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW, 0640);
    if (fd >= 0) break;
    if (fd != -EEXIST) {
      result.error = Describe("cannot create", envelope_path, fd);
      return result;
    }
  }
  if (fd < 0) {
    result.error = "no free name in " + folder;
    return result;
  }
  const std::string temporary = folder + stem + ".TMP";
  const std::string message_path = folder + stem + ".EML";
  int err = WriteAllAndClose(fd, envelope);
  if (err != 0) {
    result.error = Describe("cannot write", envelope_path, err);
  } else {
    fd = Fs().Open(temporary, O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW, 0640);
    if (fd < 0) {
      err = fd;
      result.error = Describe("cannot create", temporary, err);
    } else if ((err = WriteAllAndClose(fd, message)) != 0) {
      result.error = Describe("cannot write", temporary, err);
    } else if ((err = Fs().SyncDir(folder)) != 0) {
      result.error = Describe("cannot flush", folder, err);
    } else if ((err = Fs().Rename(temporary, message_path)) != 0) {
      result.error = Describe("cannot rename", temporary, err);
    } else {
      // The pair is complete and visible; the pass may already be reading it, so a failure to
      // flush the new name is no reason to take it back.
      Fs().SyncDir(folder);
    }
  }
  if (err != 0) {
    Fs().Unlink(temporary);
    Fs().Unlink(envelope_path);
    return result;
  }
  result.written = true;
  result.stem = stem;
  return result;
}

}  // namespace quellor::bridge
