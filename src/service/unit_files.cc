#include "service/unit_files.h"

#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>
#include <systemd/sd-daemon.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <filesystem>
#include <string_view>

#include "config/context.h"
#include "platform/files.h"

extern char** environ;

namespace quellor {

namespace {

namespace fs = std::filesystem;

std::string UnitFileName() {
  return std::string(kServiceName) + ".service";
}

std::string DropInFolder(const std::string& unit_dir) {
  return WithTrailingSlash(unit_dir) + UnitFileName() + ".d";
}

bool HasControlCharacter(std::string_view s) {
  for (unsigned char c : s) {
    if (c < 0x20 || c == 0x7f) return true;
  }
  return false;
}

// One word of a unit line, quoted when it holds anything but plain path characters. Inside
// quotes systemd reads "\" and the quote as escapes, and "%" starts a specifier everywhere, so
// it is doubled. "$" stays: ExecStart expands variables in the arguments, never in the path.
std::string UnitWord(std::string_view word) {
  bool plain = !word.empty();
  for (char c : word) {
    const bool ok = (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') ||
                    std::string_view("/._-+:@,=").find(c) != std::string_view::npos;
    if (!ok) plain = false;
  }
  if (plain) return std::string(word);
  std::string out = "\"";
  for (char c : word) {
    if (c == '\\' || c == '"') out += '\\';
    if (c == '%') out += '%';
    out += c;
  }
  return out + "\"";
}

// Writes a whole file atomically, so systemd never reads a half-written unit.
bool WriteFileAtomically(const std::string& path, const std::string& text) {
  try {
    ReplaceWholeFile(path, text);
    return true;
  } catch (const std::exception&) {
    return false;
  }
}

}  // namespace

std::string UnitDirFromEnvironment() {
  const char* env = std::getenv("QUELLOR_UNIT_DIR");
  return WithTrailingSlash(env && *env ? env : "/etc/systemd/system/");
}

std::optional<std::string> UnitText(const std::string& root, const std::string& program) {
  if (HasControlCharacter(root) || HasControlCharacter(program)) return std::nullopt;
  if (program.empty() || program.front() != '/') return std::nullopt;
  std::string text;
  text += "[Unit]\n";
  text += std::string("Description=") + kServiceDisplayName + "\n";
  text += "\n";
  text += "[Service]\n";
  text += "Type=notify\n";
  text += "Environment=" + UnitWord("QUELLOR_ROOT=" + root) + "\n";
  text += "ExecStart=" + UnitWord(program) + "\n";
  text += "\n";
  text += "[Install]\n";
  text += "WantedBy=multi-user.target\n";
  return text;
}

std::string ParametersText() {
  // The installation record of the service's parameters. The service never reads it back: the
  // pass timer's interval is fixed. systemd skips a section whose name begins with "X-" without
  // a warning, so the record sits beside the unit without changing how the service runs.
  return "# Installation record of Spam Quellor - Quellor; not read by the service.\n"
         "[X-Parameters]\n"
         "TimerInterval=1000\n";
}

bool InstallUnit(const std::string& unit_dir, const std::string& root, const std::string& program) {
  const std::optional<std::string> unit = UnitText(root, program);
  if (!unit) return false;
  if (!WriteFileAtomically(WithTrailingSlash(unit_dir) + UnitFileName(), *unit)) return false;
  // The parameters follow only a successful registration; their failure leaves it in place.
  const std::string drop_in = DropInFolder(unit_dir);
  std::error_code ec;
  fs::create_directory(drop_in, ec);
  if (fs::is_directory(drop_in, ec))
    WriteFileAtomically(drop_in + "/parameters.conf", ParametersText());
  return true;
}

bool UninstallUnit(const std::string& unit_dir) {
  const std::string unit = WithTrailingSlash(unit_dir) + UnitFileName();
  const std::string drop_in = DropInFolder(unit_dir);
  std::error_code ec;
  fs::remove(drop_in + "/parameters.conf", ec);
  // Only an empty drop-in folder goes: an administrator's own overrides stay.
  fs::remove(drop_in, ec);
  fs::remove(unit, ec);
  return !fs::exists(fs::symlink_status(unit, ec));
}

void ReloadSystemd() {
  if (sd_booted() <= 0) return;
  char arg0[] = "systemctl";
  char arg1[] = "--no-ask-password";
  char arg2[] = "daemon-reload";
  char* argv[] = {arg0, arg1, arg2, nullptr};
  pid_t pid = 0;
  if (posix_spawnp(&pid, "systemctl", nullptr, nullptr, argv, environ) != 0) return;
  int status = 0;
  while (::waitpid(pid, &status, 0) < 0 && errno == EINTR) {
  }
}

std::string ProgramPath() {
  std::error_code ec;
  fs::path self = fs::read_symlink("/proc/self/exe", ec);
  return ec ? std::string() : self.string();
}

}  // namespace quellor
