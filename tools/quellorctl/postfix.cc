// quellorctl postfix install|uninstall|check: makes Postfix the host mail server of an
// installation in one command, takes it out again, or says what is missing.
//
// What install changes in Postfix (postconf -c DIR where --config-dir is given):
//   master.cf  quellor/unix          pipe(8) into quellor-receive, one recipient a run
//              quellor-cleanup/unix  cleanup(8) that sends Postfix's own bounces to the filter
//              bounce/unix, defer/unix   -o cleanup_service_name=quellor-cleanup
//                                        -o internal_mail_filter_classes=bounce
//              every smtpd service without its own content_filter: -o content_filter=quellor:dummy
//   main.cf    quellor_destination_recipient_limit = 1
// Mail leaves the filter through sendmail (pickup), which no content_filter watches.
#include <fcntl.h>
#include <ftw.h>
#include <grp.h>
#include <pwd.h>
#include <spawn.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <systemd/sd-daemon.h>
#include <unistd.h>

#include <CLI/CLI.hpp>
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <sstream>
#include <string>
#include <vector>

#include "bridge/units.h"
#include "commands.h"
#include "core/context.h"
#include "platform/text.h"
#include "service/unit_files.h"

extern char** environ;

namespace quellor::ctl {

namespace {

namespace fs = std::filesystem;

constexpr const char* kFilter = "quellor:dummy";
constexpr const char* kCleanup = "quellor-cleanup";
constexpr const char* kCleanupEntry =
    "quellor-cleanup unix n - n - 0 cleanup"
    " -o { header_checks = regexp:{{/^From:/ FILTER quellor:dummy}} }"
    " -o nested_header_checks= -o mime_header_checks=";
constexpr const char* kLimit = "quellor_destination_recipient_limit";

// Runs a program (no shell); its standard output goes to `out` when given. Returns the exit
// status, or -1 when it could not run.
int Run(const std::vector<std::string>& args, std::string* out = nullptr) {
  std::vector<char*> argv;
  std::vector<std::string> copy = args;
  for (std::string& a : copy) argv.push_back(a.data());
  argv.push_back(nullptr);
  int fds[2];
  if (pipe2(fds, O_CLOEXEC) != 0) return -1;
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  posix_spawn_file_actions_adddup2(&actions, fds[1], 1);
  // Output that is only looked at (postconf's answers) keeps its warnings to itself; shown
  // output carries them.
  if (out) {
    posix_spawn_file_actions_addopen(&actions, 2, "/dev/null", O_WRONLY, 0);
  } else {
    posix_spawn_file_actions_adddup2(&actions, fds[1], 2);
  }
  pid_t pid = 0;
  const int spawned = posix_spawnp(&pid, argv[0], &actions, nullptr, argv.data(), environ);
  posix_spawn_file_actions_destroy(&actions);
  close(fds[1]);
  std::string text;
  char buffer[4096];
  ssize_t n;
  while ((n = read(fds[0], buffer, sizeof buffer)) > 0) text.append(buffer, n);
  close(fds[0]);
  if (spawned != 0) return -1;
  int status = 0;
  while (waitpid(pid, &status, 0) < 0 && errno == EINTR) {
  }
  if (out) {
    *out = text;
  } else {
    std::cout << text;
  }
  return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

std::vector<std::string> Words(const std::string& text, const char* separators = " \t\r\n,") {
  std::vector<std::string> words;
  std::string word;
  for (char c : text + " ") {
    if (std::strchr(separators, c)) {
      if (!word.empty()) words.push_back(word);
      word.clear();
    } else {
      word += c;
    }
  }
  return words;
}

std::string Chomp(std::string s) {
  while (!s.empty() && (s.back() == '\n' || s.back() == '\r')) s.pop_back();
  return s;
}

class Setup {
 public:
  Setup(std::string config_dir, std::string user)
      : config_dir_(std::move(config_dir)), user_(std::move(user)) {
    root_ = RootFromEnvironment();
    const std::string self = ProgramPath();
    bin_ = self.empty() ? "/usr/sbin" : fs::path(self).parent_path().string();
    unit_dir_ = UnitDirFromEnvironment();
  }

  // postconf with the configuration folder; the output without its line end.
  int Postconf(std::vector<std::string> args, std::string* out = nullptr) {
    std::vector<std::string> all = {"postconf"};
    if (!config_dir_.empty()) all.insert(all.end(), {"-c", config_dir_});
    all.insert(all.end(), args.begin(), args.end());
    std::string text;
    const int status = Run(all, &text);
    if (out) *out = Chomp(text);
    return status;
  }
  std::string Param(const std::string& name, bool expand = false) {
    std::string value;
    Postconf(
        expand ? std::vector<std::string>{"-h", "-x", name} : std::vector<std::string>{"-h", name},
        &value);
    return value;
  }
  // A master.cf parameter override ("" when not set).
  std::string ServiceParam(const std::string& service, const std::string& name, bool* set) {
    std::string value;
    *set = Postconf({"-P", "-h", service + "/" + name}, &value) == 0 && !value.empty();
    if (!*set) {
      // "-h" prints nothing for a parameter set to the empty value: ask again without it.
      std::string line;
      Postconf({"-P", service + "/" + name}, &line);
      *set = !line.empty();
    }
    return value;
  }
  // "name/type" of every smtpd service (inet, or "pass" behind postscreen).
  std::vector<std::string> SmtpdServices() {
    std::string text;
    Postconf({"-M"}, &text);
    std::vector<std::string> services;
    std::istringstream lines(text);
    for (std::string line; std::getline(lines, line);) {
      const std::vector<std::string> f = Words(line, " \t");
      if (f.size() >= 8 && f[7] == "smtpd" && (f[1] == "inet" || f[1] == "pass"))
        services.push_back(f[0] + "/" + f[1]);
    }
    return services;
  }

  std::string NullSender() { return "MAILER-DAEMON@" + Param("myhostname"); }
  std::string ReceiveEntry() {
    return "quellor unix - n n - 10 pipe flags=q user=" + user_ + " null_sender= argv=" + bin_ +
           "/quellor-receive --root " + root_ + " --null-sender " + NullSender() +
           " -- ${sender} ${recipient}";
  }
  std::string DreggerUnit() {
    bridge::DreggerUnitSettings s;
    s.root = root_;
    s.program = bin_ + "/quellor-dregger";
    s.null_sender = NullSender();
    s.hostname = Param("myhostname");
    s.config_dir = config_dir_;
    s.user = user_;
    return bridge::DreggerUnitText(s);
  }

  int Install();
  int Uninstall();
  int Check();

 private:
  bool Preflight();
  bool EnsureUser();
  void OwnTree();
  void EditIni();
  void FillDomains();
  void WhiteListNullSender();
  void InstallUnits();
  void ReloadPostfix();
  bool WriteFile(const std::string& path, const std::string& text);

  std::string config_dir_, user_, root_, bin_, unit_dir_;
};

bool Setup::WriteFile(const std::string& path, const std::string& text) {
  const std::string temporary = path + ".quellorctl";
  {
    std::ofstream out(temporary, std::ios::binary | std::ios::trunc);
    out << text;
    if (!out.flush()) return false;
  }
  return ::rename(temporary.c_str(), path.c_str()) == 0;
}

bool Setup::Preflight() {
  if (geteuid() != 0) {
    std::cerr << "quellorctl postfix: run this as root\n";
    return false;
  }
  std::string version;
  if (Postconf({"-h", "mail_version"}, &version) != 0 || version.empty()) {
    std::cerr << "quellorctl postfix: Postfix is not installed or not configured"
              << (config_dir_.empty() ? "" : " in " + config_dir_)
              << " (postconf failed; Debian: apt-get install postfix, then configure it)\n";
    return false;
  }
  for (char c : root_) {
    if (c == ' ' || c == '\t' || c == '$' || c == '{' || c == '}') {
      std::cerr << "quellorctl postfix: the installation root " << root_
                << " cannot be passed through pipe(8): no blanks, \"$\" or braces\n";
      return false;
    }
  }
  return true;
}

bool Setup::EnsureUser() {
  if (getpwnam(user_.c_str())) return true;
  std::cout << "creating the system user " << user_ << "\n";
  if (Run({"adduser", "--system", "--group", "--no-create-home", "--home", root_, "--quiet",
           user_}) != 0 &&
      Run({"useradd", "--system", "--user-group", "--no-create-home", "--home-dir", root_,
           "--shell", "/usr/sbin/nologin", user_}) != 0) {
    std::cerr << "quellorctl postfix: cannot create the system user " << user_ << "\n";
    return false;
  }
  return getpwnam(user_.c_str()) != nullptr;
}

uid_t g_uid;
gid_t g_gid;

void Setup::OwnTree() {
  const passwd* pw = getpwnam(user_.c_str());
  g_uid = pw->pw_uid;
  g_gid = pw->pw_gid;
  // Symlinks are never followed: the tree is given away, nothing it points to.
  nftw(
      root_.c_str(),
      [](const char* path, const struct stat*, int, struct FTW*) {
        lchown(path, g_uid, g_gid);
        return 0;
      },
      16, FTW_PHYS);
}

// Lines of a CR LF file; the last "key=" line (keys case-insensitive) is the one that counts.
void Setup::EditIni() {
  const std::string path = root_ + "quellor.ini";
  std::ifstream in(path, std::ios::binary);
  std::string text((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
  std::vector<std::string> lines;
  for (size_t at = 0; at < text.size();) {
    size_t end = text.find("\r\n", at);
    if (end == std::string::npos) end = text.size();
    lines.push_back(text.substr(at, end - at));
    at = end + 2;
  }
  auto last = [&](const std::string& key) {
    long found = -1;
    for (size_t i = 0; i < lines.size(); ++i) {
      if (UCase(lines[i].substr(0, key.size() + 1)) == key + "=") found = static_cast<long>(i);
    }
    return found;
  };
  const std::string null_sender = NullSender();
  bool changed = false;
  const long pm = last("POSTMASTERS");
  const std::string value = pm < 0 ? "" : Trim(lines[pm].substr(12));
  bool listed = false;
  for (const std::string& w : Words(value, " \t,;")) listed = listed || w == null_sender;
  if (!listed) {
    const std::string line = "POSTMASTERS=" + (value.empty() ? "" : value + ", ") + null_sender;
    if (pm < 0) {
      lines.push_back(line);
    } else {
      lines[pm] = line;
    }
    std::cout << "quellor.ini: " << line << "\n";
    changed = true;
  }
  const long safe = last("SAFE_DELIVERY");
  if (safe < 0) {
    lines.insert(lines.end(), {"", "; Written by quellorctl postfix install: mail is never lost.",
                               "SAFE_DELIVERY=ON"});
    std::cout << "quellor.ini: SAFE_DELIVERY=ON\n";
    changed = true;
  } else if (Trim(lines[safe].substr(14)) != "ON") {
    // A tree from quellorctl init says SAFE_DELIVERY=OFF, the classic default; a Postfix
    // installation is a real one, and real ones never lose mail.
    std::cout << "quellor.ini: " << lines[safe] << " -> SAFE_DELIVERY=ON\n";
    lines[safe] = "SAFE_DELIVERY=ON";
    changed = true;
  }
  if (!changed) return;
  std::string out;
  for (const std::string& l : lines) out += l + "\r\n";
  if (!WriteFile(path, out)) std::cerr << "quellorctl postfix: cannot write " << path << "\n";
}

void Setup::FillDomains() {
  const std::string path = root_ + "DOMAIN.LST";
  std::ifstream in(path, std::ios::binary);
  std::string text((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
  if (!Words(text).empty()) return;
  std::string list;
  for (const char* param : {"mydestination", "virtual_mailbox_domains", "virtual_alias_domains"}) {
    for (const std::string& d : Words(Param(param, true))) {
      // Lookup tables ("hash:/etc/...") and unexpanded names are no domains.
      if (d.find_first_of(":/$") == std::string::npos) list += d + "\r\n";
    }
  }
  if (WriteFile(path, list)) std::cout << "DOMAIN.LST: filled from Postfix's local domains\n";
}

void Setup::WhiteListNullSender() {
  // Bounces of the users' own mail come from the null sender: protected users get them without
  // a request that nobody could answer. Returned requests are consumed before any white list.
  const std::string path = root_ + "Users/@.WLT";
  std::ifstream in(path, std::ios::binary);
  std::string text((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
  const std::string null_sender = NullSender();
  for (const std::string& w : Words(text, "\r\n")) {
    if (UCase(Trim(w)) == UCase(null_sender)) return;
  }
  if (!text.empty() && !text.ends_with("\r\n")) text += "\r\n";
  if (WriteFile(path, text + null_sender + "\r\n"))
    std::cout << "Users/@.WLT: " << null_sender << "\n";
}

void Setup::InstallUnits() {
  fs::create_directories(unit_dir_);
  if (!InstallUnit(unit_dir_, root_, bin_ + "/quellor", user_)) {
    std::cerr << "quellorctl postfix: cannot write the unit Quellor_Quellor.service in "
              << unit_dir_ << "\n";
  }
  fs::create_directories(unit_dir_ + "Quellor_Quellor.service.d");
  WriteFile(unit_dir_ + bridge::kServiceUserDropIn, bridge::ServiceUserDropInText(user_));
  WriteFile(unit_dir_ + bridge::kDreggerUnitName, DreggerUnit());
  std::cout << "units: " << unit_dir_ << "Quellor_Quellor.service, " << unit_dir_
            << bridge::kDreggerUnitName << "\n";
  if (sd_booted() <= 0) {
    std::cout << "systemd is not running here (a container?): the units are written but not "
                 "started. Start the delivery service and the filter yourself, as "
              << user_ << ": QUELLOR_ROOT=" << root_ << " " << bin_ << "/quellor-dregger ... and "
              << bin_ << "/quellor -debug\n";
    return;
  }
  Run({"systemctl", "daemon-reload"});
  Run({"systemctl", "enable", bridge::kDreggerUnitName, "Quellor_Quellor.service"});
  Run({"systemctl", "restart", bridge::kDreggerUnitName, "Quellor_Quellor.service"});
}

void Setup::ReloadPostfix() {
  std::vector<std::string> base = {"postfix"};
  if (!config_dir_.empty()) base.insert(base.end(), {"-c", config_dir_});
  std::vector<std::string> status = base, reload = base;
  status.push_back("status");
  reload.push_back("reload");
  std::string ignored;
  if (Run(status, &ignored) == 0) {
    Run(reload, &ignored);
    std::cout << "Postfix reloaded\n";
  } else {
    std::cout << "Postfix is not running: start it (postfix start, or systemctl start postfix)\n";
  }
}

int Setup::Install() {
  if (!Preflight() || !EnsureUser()) return 1;
  if (!fs::exists(root_ + "quellor.ini")) {
    if (RunInit({root_}) != 0) return 1;
  }
  EditIni();
  FillDomains();
  WhiteListNullSender();
  OwnTree();
  // Postfix: the filter transport, the bounce route through it, the filter on every smtpd.
  Postconf({"-M", "quellor/unix=" + ReceiveEntry()});
  Postconf({"-M", std::string(kCleanup) + "/unix=" + kCleanupEntry});
  for (const char* service : {"bounce/unix", "defer/unix"}) {
    Postconf({"-P", std::string(service) + "/cleanup_service_name=" + kCleanup,
              std::string(service) + "/internal_mail_filter_classes=bounce"});
  }
  for (const std::string& service : SmtpdServices()) {
    bool set = false;
    const std::string filter = ServiceParam(service, "content_filter", &set);
    if (!set) {
      Postconf({"-P", service + "/content_filter=" + kFilter});
      std::cout << "master.cf: " << service << " filtered\n";
    } else if (filter != kFilter) {
      std::cout << "master.cf: " << service << " keeps its own content_filter \"" << filter
                << "\" and is not filtered\n";
    }
  }
  Postconf({"-e", std::string(kLimit) + "=1"});
  InstallUnits();
  ReloadPostfix();
  std::cout << "Postfix hands mail to Quellor at " << root_ << "\n";
  return 0;
}

int Setup::Uninstall() {
  if (!Preflight()) return 1;
  for (const std::string& service : SmtpdServices()) {
    bool set = false;
    if (ServiceParam(service, "content_filter", &set) == kFilter)
      Postconf({"-PX", service + "/content_filter"});
  }
  for (const char* service : {"bounce/unix", "defer/unix"}) {
    bool set = false;
    if (ServiceParam(service, "cleanup_service_name", &set) == kCleanup) {
      Postconf({"-PX", std::string(service) + "/cleanup_service_name"});
      if (ServiceParam(service, "internal_mail_filter_classes", &set) == "bounce")
        Postconf({"-PX", std::string(service) + "/internal_mail_filter_classes"});
    }
  }
  Postconf({"-MX", "quellor/unix"});
  Postconf({"-MX", std::string(kCleanup) + "/unix"});
  Postconf({"-X", kLimit});
  // Mail queued for the filter is routed again, now straight to its mailboxes.
  std::vector<std::string> requeue = {"postsuper"};
  if (!config_dir_.empty()) requeue.insert(requeue.end(), {"-c", config_dir_});
  requeue.insert(requeue.end(), {"-r", "ALL"});
  std::string ignored;
  Run(requeue, &ignored);
  if (sd_booted() > 0)
    Run({"systemctl", "disable", "--now", bridge::kDreggerUnitName, "Quellor_Quellor.service"});
  std::error_code ec;
  fs::remove(unit_dir_ + bridge::kDreggerUnitName, ec);
  fs::remove(unit_dir_ + bridge::kServiceUserDropIn, ec);
  UninstallUnit(unit_dir_);
  ReloadSystemd();
  ReloadPostfix();
  std::cout << "Quellor is out of Postfix's way. The tree " << root_ << " (held mail in WAIT/) "
            << "and the user " << user_ << " are kept.\n";
  return 0;
}

int Setup::Check() {
  int problems = 0;
  auto report = [&](bool ok, const std::string& good, const std::string& bad) {
    std::cout << (ok ? "ok       " : "PROBLEM  ") << (ok ? good : bad) << "\n";
    if (!ok) ++problems;
  };
  std::string version;
  const bool postfix = Postconf({"-h", "mail_version"}, &version) == 0 && !version.empty();
  report(postfix, "Postfix " + version + " is configured",
         "Postfix is not installed or has no main.cf");
  if (!postfix) return 1;
  const passwd* pw = getpwnam(user_.c_str());
  report(pw != nullptr, "the system user " + user_ + " exists",
         "the system user " + user_ + " does not exist");
  struct stat st {};
  const bool tree = ::stat((root_ + "IN").c_str(), &st) == 0;
  report(tree, "the tree " + root_ + " exists", "there is no tree at " + root_);
  if (tree && pw)
    report(st.st_uid == pw->pw_uid, "IN/ belongs to " + user_,
           "IN/ does not belong to " + user_ + ": pipe(8) could not write into it");
  std::string entry;
  Postconf({"-M", "quellor/unix"}, &entry);
  report(Words(entry, " \t") == Words(ReceiveEntry(), " \t"),
         "master.cf runs quellor-receive as " + user_,
         "master.cf lacks the quellor transport, or it differs from: " + ReceiveEntry());
  Postconf({"-M", std::string(kCleanup) + "/unix"}, &entry);
  report(!entry.empty(), "master.cf has the quellor-cleanup service",
         "master.cf lacks the quellor-cleanup service: Postfix's own bounces skip the filter");
  for (const char* service : {"bounce/unix", "defer/unix"}) {
    bool set = false;
    report(ServiceParam(service, "cleanup_service_name", &set) == kCleanup,
           std::string(service) + " sends its notices through the filter",
           std::string(service) + " does not send its notices through the filter");
  }
  for (const std::string& service : SmtpdServices()) {
    bool set = false;
    const std::string filter = ServiceParam(service, "content_filter", &set);
    if (set && filter != kFilter) {
      std::cout << "note     " << service << " has its own content_filter \"" << filter
                << "\" and is not filtered\n";
      continue;
    }
    report(filter == kFilter, service + " hands incoming mail to the filter",
           service + " does not hand incoming mail to the filter");
  }
  report(Param(kLimit) == "1", std::string(kLimit) + " = 1",
         std::string(kLimit) + " is not 1: one message would carry several recipients");
  std::ifstream ini(root_ + "quellor.ini", std::ios::binary);
  std::string text((std::istreambuf_iterator<char>(ini)), std::istreambuf_iterator<char>());
  std::string postmasters, safe;
  std::istringstream lines(text);
  for (std::string line; std::getline(lines, line);) {
    line = Chomp(line);
    if (UCase(line.substr(0, 12)) == "POSTMASTERS=") postmasters = line.substr(12);
    if (UCase(line.substr(0, 14)) == "SAFE_DELIVERY=") safe = Trim(line.substr(14));
  }
  bool listed = false;
  for (const std::string& w : Words(postmasters, " \t,;")) listed = listed || w == NullSender();
  report(listed, "POSTMASTERS names " + NullSender(),
         "POSTMASTERS does not name " + NullSender() + ": bounces of requests are not recognised");
  report(safe == "ON", "SAFE_DELIVERY=ON", "SAFE_DELIVERY is not ON: the filter may lose mail");
  std::ifstream domains(root_ + "DOMAIN.LST", std::ios::binary);
  std::string domain_text((std::istreambuf_iterator<char>(domains)),
                          std::istreambuf_iterator<char>());
  report(!Words(domain_text).empty(), "DOMAIN.LST lists the local domains", "DOMAIN.LST is empty");
  report(fs::exists(unit_dir_ + bridge::kDreggerUnitName) &&
             fs::exists(unit_dir_ + "Quellor_Quellor.service"),
         "the units are in " + unit_dir_, "the units are missing from " + unit_dir_);
  if (sd_booted() > 0) {
    for (const char* unit : {bridge::kDreggerUnitName, "Quellor_Quellor.service"}) {
      std::string ignored;
      report(Run({"systemctl", "is-active", "--quiet", unit}, &ignored) == 0,
             std::string(unit) + " is running", std::string(unit) + " is not running");
    }
  } else {
    std::cout << "note     systemd is not running: the services are not checked\n";
  }
  std::vector<std::string> status = {"postfix"};
  if (!config_dir_.empty()) status.insert(status.end(), {"-c", config_dir_});
  status.push_back("status");
  std::string ignored;
  report(Run(status, &ignored) == 0, "Postfix is running", "Postfix is not running");
  return problems == 0 ? 0 : 1;
}

}  // namespace

int RunPostfix(const std::vector<std::string>& args) {
  CLI::App app{"Makes Postfix the host mail server of the installation (QUELLOR_ROOT).",
               "quellorctl postfix"};
  std::string action, config_dir, user = bridge::kSystemUser;
  app.add_option("ACTION", action, "install, uninstall or check")
      ->required()
      ->check(CLI::IsMember({"install", "uninstall", "check"}));
  app.add_option("--config-dir", config_dir, "Postfix's configuration folder (postconf -c)");
  app.add_option("--user", user, "the system user that owns the tree (default quellor)");
  try {
    std::vector<std::string> reversed(args.rbegin(), args.rend());
    app.parse(reversed);
  } catch (const CLI::ParseError& e) {
    return app.exit(e) == 0 ? 0 : 2;
  }
  Setup setup(config_dir, user);
  if (action == "install") return setup.Install();
  if (action == "uninstall") return setup.Uninstall();
  return setup.Check();
}

}  // namespace quellor::ctl
