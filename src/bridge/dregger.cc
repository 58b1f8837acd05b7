#include "bridge/dregger.h"

#include <fcntl.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <vector>

#include "bridge/outgoing.h"
#include "platform/fs.h"
#include "platform/names.h"
#include "platform/text.h"

extern char** environ;

namespace quellor::bridge {

namespace {

constexpr long kFirstRetry = 30;     // seconds before the first retry
constexpr long kLongestRetry = 600;  // retries back off up to this

// Reads a whole regular file (never through a symlink); false on failure.
bool ReadRegularFile(const std::string& path, std::string* out) {
  const int fd = Fs().Open(path, O_RDONLY | O_NOFOLLOW, 0);
  if (fd < 0) return false;
  struct stat st {};
  bool ok = Fs().Fstat(fd, &st) == 0 && S_ISREG(st.st_mode);
  char buffer[65536];
  while (ok) {
    const long n = Fs().Read(fd, buffer, sizeof buffer);
    if (n < 0) ok = false;
    if (n <= 0) break;
    out->append(buffer, static_cast<size_t>(n));
  }
  Fs().Close(fd);
  return ok;
}

// The first lines of an envelope (a line ends at CR or CR LF).
std::vector<std::string> EnvelopeLines(const std::string& text) {
  std::vector<std::string> lines;
  std::string line;
  for (size_t i = 0; i < text.size(); ++i) {
    if (text[i] == '\r') {
      lines.push_back(line);
      line.clear();
      if (i + 1 < text.size() && text[i + 1] == '\n') ++i;
    } else {
      line += text[i];
    }
  }
  if (!line.empty()) lines.push_back(line);
  return lines;
}

bool HasControl(std::string_view s) {
  for (unsigned char c : s) {
    if (c < 0x20 || c == 0x7f) return true;
  }
  return false;
}

// "Sorted by name": the pass's order, oldest stem first.
struct ByName {
  bool operator()(const std::string& a, const std::string& b) const { return NameLess(a, b); }
};

}  // namespace

bool SendmailSubmitter::Submit(const std::string& sender, const std::string& recipient,
                               const std::string& message, std::string* error) {
  std::vector<std::string> args = {sendmail_};
  if (!config_dir_.empty()) args.insert(args.end(), {"-C", config_dir_});
  args.insert(args.end(), {"-G", "-i", "-f", sender.empty() ? "<>" : sender, "--", recipient});
  std::vector<char*> argv;
  for (std::string& a : args) argv.push_back(a.data());
  argv.push_back(nullptr);

  int in[2];
  if (pipe2(in, O_CLOEXEC) != 0) {
    *error = std::string("pipe: ") + std::strerror(errno);
    return false;
  }
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  posix_spawn_file_actions_adddup2(&actions, in[0], 0);
  // sendmail starts with the signals as a fresh program has them, whatever the service blocks
  // or ignores (SIGTERM is read through a signalfd, SIGPIPE ignored).
  posix_spawnattr_t attributes;
  posix_spawnattr_init(&attributes);
  sigset_t none, all;
  sigemptyset(&none);
  sigfillset(&all);
  posix_spawnattr_setsigmask(&attributes, &none);
  posix_spawnattr_setsigdefault(&attributes, &all);
  posix_spawnattr_setflags(&attributes, POSIX_SPAWN_SETSIGMASK | POSIX_SPAWN_SETSIGDEF);
  pid_t pid = 0;
  const int spawned =
      posix_spawn(&pid, sendmail_.c_str(), &actions, &attributes, argv.data(), environ);
  posix_spawnattr_destroy(&attributes);
  posix_spawn_file_actions_destroy(&actions);
  close(in[0]);
  if (spawned != 0) {
    close(in[1]);
    *error = "cannot run " + sendmail_ + ": " + std::strerror(spawned);
    return false;
  }
  // A sendmail that dies early must not kill us with SIGPIPE: the write just fails.
  signal(SIGPIPE, SIG_IGN);
  size_t done = 0;
  while (done < message.size()) {
    const ssize_t n = write(in[1], message.data() + done, message.size() - done);
    if (n < 0 && errno == EINTR) continue;
    if (n <= 0) break;
    done += static_cast<size_t>(n);
  }
  close(in[1]);
  int status = 0;
  while (waitpid(pid, &status, 0) < 0 && errno == EINTR) {
  }
  if (done == message.size() && WIFEXITED(status) && WEXITSTATUS(status) == 0) return true;
  *error = WIFEXITED(status) ? "sendmail exited with status " + std::to_string(WEXITSTATUS(status))
                             : std::string("sendmail was killed");
  if (done != message.size()) *error += " before it read the whole message";
  return false;
}

Dregger::Dregger(DreggerOptions options, Submitter& submitter,
                 std::function<void(const std::string&)> log)
    : options_(std::move(options)), submitter_(submitter), log_(std::move(log)) {}

int Dregger::RunOnce(std::time_t now) {
  int sent = 0;
  for (const char* folder : {"LOCAL", "OUT"}) {
    std::vector<std::string> names;
    if (Fs().List(options_.root + folder, &names) < 0) continue;
    // Stems with both halves; ".TMP" files are still being written and are no half.
    std::map<std::string, std::pair<std::string, std::string>, ByName> pairs;
    for (const std::string& name : names) {
      if (name.size() < 5 || name[0] == '.' || name[name.size() - 4] != '.') continue;
      const std::string ext = UCase(name.substr(name.size() - 4));
      const std::string stem = name.substr(0, name.size() - 4);
      if (ext == ".WAI") pairs[stem].first = name;
      if (ext == ".EML") pairs[stem].second = name;
    }
    for (const auto& [stem, pair] : pairs) {
      if (pair.first.empty() || pair.second.empty()) continue;
      const auto retry = retries_.find(std::string(folder) + "/" + stem);
      if (retry != retries_.end() && retry->second.due > now) continue;
      if (Handle(folder, pair.first, pair.second, now)) ++sent;
    }
  }
  return sent;
}

long Dregger::SecondsToNextRetry(std::time_t now) const {
  long next = -1;
  for (const auto& [key, retry] : retries_) {
    const long wait = std::max<long>(0, retry.due - now);
    if (next < 0 || wait < next) next = wait;
  }
  return next;
}

void Dregger::Defer(const std::string& key, std::time_t now, const std::string& why) {
  Retry& retry = retries_[key];
  retry.delay = retry.delay == 0 ? kFirstRetry : std::min(kLongestRetry, retry.delay * 2);
  retry.due = now + retry.delay;
  log_(key + ": " + why + "; trying again in " + std::to_string(retry.delay) + " s");
}

bool Dregger::Handle(const std::string& folder, const std::string& wai, const std::string& eml,
                     std::time_t now) {
  const std::string dir = options_.root + folder + "/";
  const std::string stem = wai.substr(0, wai.size() - 4);
  const std::string key = folder + "/" + stem;
  std::string envelope, message;
  if (!ReadRegularFile(dir + wai, &envelope) || !ReadRegularFile(dir + eml, &message)) {
    // Gone already (another reader) or unreadable: look again later.
    if (AnyFileExists(dir + wai) && AnyFileExists(dir + eml)) Defer(key, now, "cannot read");
    return false;
  }
  const std::vector<std::string> lines = EnvelopeLines(envelope);
  std::string sender = lines.size() > 0 ? Trim(lines[0]) : "";
  const std::string recipient = lines.size() > 1 ? Trim(lines[1]) : "";
  if (recipient.empty() || HasControl(sender) || HasControl(recipient)) {
    Defer(key, now, "the envelope names no usable recipient");
    return false;
  }
  // The null sender came in as the postmaster address quellor-receive wrote for it.
  const bool null_sender =
      sender.empty() || sender == "<>" || UCase(sender) == UCase(options_.null_sender);
  if (null_sender) sender.clear();
  const bool request = folder == "OUT";
  const bool to_null = recipient == "<>" || UCase(recipient) == UCase(options_.null_sender);
  if (request && to_null) {
    // A request to the null sender can reach nobody and would only bounce.
    log_(key + ": request to the null sender (" + recipient + ") dropped");
  } else {
    const std::string text =
        request ? RequestForSendmail(message, stem, options_.hostname) : LocalForSendmail(message);
    std::string error;
    if (!submitter_.Submit(sender, recipient, text, &error)) {
      Defer(key, now, error);
      return false;
    }
  }
  retries_.erase(key);
  // The message goes first: a crash in between leaves a lone envelope, never a second copy.
  Fs().Unlink(dir + eml);
  Fs().Unlink(dir + wai);
  return true;
}

}  // namespace quellor::bridge
