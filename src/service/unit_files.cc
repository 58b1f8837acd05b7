#include "service/unit_files.h"

#include <fcntl.h>
#include <pwd.h>
#include <spawn.h>
#include <sys/wait.h>
#include <systemd/sd-daemon.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <filesystem>
#include <string_view>

#include "core/context.h"
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

std::string UnitDirFromEnvironment() {
  const char* env = std::getenv("QUELLOR_UNIT_DIR");
  return WithTrailingSlash(env && *env ? env : "/etc/systemd/system/");
}

std::string ServiceUserIfPresent() {
  return ::getpwnam(kServiceUser) != nullptr ? kServiceUser : "";
}

std::optional<std::string> ConfinementText(const std::string& root, const std::string& user) {
  if (HasControlCharacter(root) || HasControlCharacter(user)) return std::nullopt;
  // A relative root is taken from the service's working folder, which systemd sets to "/". The
  // "-" lets the service start (and log what it cannot do) while the root does not exist yet.
  const std::string writable = "-" + (root.empty() || root.front() != '/' ? "/" + root : root);
  std::string text;
  if (!user.empty()) {
    text += "User=" + UnitWord(user) + "\n";
    text += "Group=" + UnitWord(user) + "\n";
  }
  // Held mail and logs are for the service, its companion and its group only.
  text += "UMask=0027\n";
  text += "NoNewPrivileges=yes\n";
  text += "CapabilityBoundingSet=\n";
  text += "ProtectSystem=strict\n";
  text += "ReadWritePaths=" + UnitWord(writable) + "\n";
  text += "ProtectHome=yes\n";
  text += "PrivateTmp=yes\n";
  text += "PrivateDevices=yes\n";
  text += "PrivateUsers=yes\n";
  text += "PrivateMounts=yes\n";
  text += "ProtectHostname=yes\n";
  text += "ProtectClock=yes\n";
  text += "ProtectKernelTunables=yes\n";
  text += "ProtectKernelModules=yes\n";
  text += "ProtectKernelLogs=yes\n";
  text += "ProtectControlGroups=yes\n";
  text += "ProtectProc=invisible\n";
  text += "ProcSubset=pid\n";
  text += "RestrictAddressFamilies=AF_INET AF_INET6 AF_UNIX\n";
  text += "RestrictNamespaces=yes\n";
  text += "RestrictRealtime=yes\n";
  text += "RestrictSUIDSGID=yes\n";
  text += "LockPersonality=yes\n";
  text += "MemoryDenyWriteExecute=yes\n";
  text += "RemoveIPC=yes\n";
  text += "SystemCallArchitectures=native\n";
  text += "SystemCallFilter=@system-service\n";
  text += "SystemCallFilter=~@privileged @resources\n";
  text += "SystemCallErrorNumber=EPERM\n";
  return text;
}

std::optional<std::string> UnitText(const std::string& root, const std::string& program,
                                    const std::string& user) {
  if (HasControlCharacter(root) || HasControlCharacter(program)) return std::nullopt;
  if (program.empty() || program.front() != '/') return std::nullopt;
  const std::optional<std::string> confinement = ConfinementText(root, user);
  if (!confinement) return std::nullopt;
  std::string text;
  text += "[Unit]\n";
  text += std::string("Description=") + kServiceDisplayName + "\n";
  text += "\n";
  text += "[Service]\n";
  text += "Type=notify\n";
  text += "Environment=" + UnitWord("QUELLOR_ROOT=" + root) + "\n";
  text += "ExecStart=" + UnitWord(program) + "\n";
  text += *confinement;
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

bool InstallUnit(const std::string& unit_dir, const std::string& root, const std::string& program,
                 const std::string& user) {
  const std::optional<std::string> unit = UnitText(root, program, user);
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
