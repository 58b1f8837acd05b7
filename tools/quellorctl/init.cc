// quellorctl init [DIR]: a complete, commented installation tree for a new installation.
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <CLI/CLI.hpp>
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <iostream>
#include <string>
#include <string_view>
#include <vector>

#include "commands.h"
#include "core/context.h"
#include "platform/errors.h"
#include "platform/files.h"
#include "platform/names.h"

namespace quellor::ctl {

namespace {

// The folders of an installation; WAIT/<user>/ folders are made by the pass itself.
constexpr const char* kFolders[] = {"IN",    "LOCAL",  "OUT", "WAIT",  "DEBUG",
                                    "Users", "SYSTEM", "LOG", "DEFER", "LOG/quellor"};

// readini ignores every line that does not begin with a key, so ";" lines explain the keys.
constexpr std::string_view kIni[] = {
    "; quellor.ini - main configuration of Quellor, the challenge-response spam filter.",
    ";",
    "; The service reads this file once, when it starts: restart it after a change",
    "; (systemctl restart Quellor_Quellor).",
    ";",
    "; A setting is one line: the key, \"=\" and the value, with the key at the very",
    "; start of the line and no blank before the \"=\". Keys may be written in any",
    "; letter case; values are taken as written, blanks around them removed. A switch",
    "; is on only when its value is written exactly as shown, in capitals. A line that",
    "; begins with anything else (such as these \";\" lines) is ignored, and when a key",
    "; appears twice the later line wins.",
    "",
    "; Postmaster addresses. A message whose envelope sender is one of them and that",
    "; carries the identifier of a validation request is taken as a bounce of that",
    "; request: the held message it names is deleted at once and the bounce is never",
    "; delivered. Write the addresses exactly as the mail server writes them on the",
    "; envelope (the comparison respects letter case), separated by commas or blanks.",
    "; Example: postmaster@example.org, mailer-daemon@example.org",
    "POSTMASTERS=",
    "",
    "; YES: every recipient domain the mail server delivers to is added to DOMAIN.LST",
    "; the first time it is seen. Any other value: DOMAIN.LST changes only by hand.",
    "; The status reply counts the traffic of the domains listed in DOMAIN.LST.",
    "DOMAINS_AUTO=NO",
    "",
    "; YES: the first message to a user of a domain in DOMAIN.LST who has no file",
    "; Users/<address>.CONF yet creates it as a copy of SYSTEM/NEW_USER.CONF (the",
    "; message itself is delivered). Any other value: users are configured by hand;",
    "; mail to a user without a configuration file is always delivered.",
    "USERS_AUTO=NO",
    "",
    "; ON: the retry log LOG/quellor/<dd-mm-yyyy>.iwr records file operations that had",
    "; to be retried and every validation (valid or invalid). Any other value turns it",
    "; off. The activity log LOG/<dd-mm-yyyy>.log and the error log LOG/system.log are",
    "; always written.",
    "LOG=ON",
    "",
    "; OFF: the status window is not served. Any other value serves it as a web page",
    "; on http://127.0.0.1:10052/ (QUELLOR_WINDOW_PORT changes the port); ON also lists",
    "; retry warnings, validation events and purged messages in it.",
    "DEBUG=OFF",
    "",
    "; ON: no mail is ever lost to the classic behaviour, which stays the default:",
    "; mail held after a validation reply in the same pass is kept in WAIT/; an",
    "; error log that cannot be written sends its lines to the journal instead of",
    "; stopping the pass; a message a copy of which could not be written (full disk,",
    "; read-only folder), or half of a pair, goes to DEFER/ (logged) and back into",
    "; IN/ after a minute; a message that cannot be taken out of IN/ is skipped, so",
    "; the queue behind it moves on. Every real installation should turn it on.",
    "SAFE_DELIVERY=OFF",
    "",
    "; ON: no validation request goes to robots: the null sender, a postmaster, mail",
    "; with Auto-Submitted (other than \"no\"), Precedence bulk, junk or list, List-Id",
    "; or List-Unsubscribe. Their mail is still held; the activity log says why no",
    "; request went. Anything else (default): every unknown sender gets a request.",
    "CHALLENGE_FILTER=OFF",
    "",
    "; Pacing. A pass every 10 seconds takes at most MESSAGES_PER_PASS messages",
    "; (1 to 32767, default 40) and pauses MESSAGE_PAUSE milliseconds before each",
    "; (0 to 32767, default 100): at most 4 messages a second with the defaults.",
    "; More per pass and a shorter pause drain a long queue faster, but the service",
    "; answers nothing (status, window, Stop) while a pass runs, and the pause is the",
    "; host server's time to finish writing mail beside the filter.",
    "MESSAGES_PER_PASS=40",
    "MESSAGE_PAUSE=100",
    "",
    "; LISTENING_PORT, SERVER_PORT, GATEWAY_PORT, SERVER, GATEWAY and VALIDATION_METHOD",
    "; are accepted for older files and have no effect. The status query port (10051)",
    "; is not set here: the environment variable QUELLOR_STATUS_PORT changes it.",
};

// The composer replaces "$email" (in any letter case) by the protected user's address.
constexpr std::string_view kValidationTxt[] = {
    "Hello,",
    "",
    "you have sent a message to $email.",
    "",
    "This address is protected against unsolicited mail: a message from",
    "a sender it does not know yet is kept aside until the sender confirms",
    "that it was written by a person.",
    "",
    "To have your message delivered, simply reply to this message.",
    "Please keep the subject as it is: it carries the number that",
    "identifies your message. You need to do this only once; later",
    "messages from you to this address are delivered directly.",
    "",
    "If you did not write to $email, someone has used",
    "your address: please ignore this request, and the message will not",
    "be delivered.",
};

// The HTML part's lines, written between <HTML> and </HTML>.
constexpr std::string_view kValidationHtm[] = {
    "<HEAD>",
    "<META http-equiv=\"Content-Type\"",
    "content=\"text/html; charset=iso-8859-1\">",
    "<TITLE>Please confirm your message</TITLE>",
    "</HEAD>",
    "<BODY>",
    "<P>Hello,</P>",
    "<P>you have sent a message to <B>$email</B>.</P>",
    "<P>This address is protected against unsolicited mail: a message",
    "from a sender it does not know yet is kept aside until the sender",
    "confirms that it was written by a person.</P>",
    "<P>To have your message delivered, simply",
    "<B>reply to this message</B>. Please keep the subject as it is:",
    "it carries the number that identifies your message. You need to do",
    "this only once; later messages from you to this address are",
    "delivered directly.</P>",
    "<P>If you did not write to $email, someone has used",
    "your address: please ignore this request, and the message will not",
    "be delivered.</P>",
    "</BODY>",
};

// Footers follow a user's own request text (<address>.msg in the installation root).
constexpr std::string_view kFootTxt[] = {
    "",
    "--",
    "To have your message delivered, reply to this message and keep its",
    "subject as it is. You need to do this only once.",
};

constexpr std::string_view kFootHtm[] = {
    "<HR>",
    "<P>To have your message delivered, <B>reply to this message</B>",
    "and keep its subject as it is. You need to do this only once.</P>",
};

// Copied unchanged to Users/<address>.CONF. The mode is searched anywhere in a line, so the
// explanations below never spell the key itself.
constexpr std::string_view kNewUser[] = {
    "; Configuration of a user created automatically (USERS_AUTO=YES in quellor.ini):",
    "; the first message to a user of a local domain without a configuration file",
    "; copies this file to Users/<address>.CONF.",
    ";",
    "; The first line that sets the mode decides how the user's mail is handled:",
    ";   QUELLOR  protection: mail from white-listed senders is delivered; mail from",
    ";            unknown senders is held in WAIT/<address>/ and the sender receives",
    ";            a validation request; a reply releases it and white-lists the sender",
    ";   LEARN    every message is delivered and its sender is recorded in",
    ";            Users/<address>.LRN",
    ";   any other word, or no mode at all: every message is delivered",
    "; A line reading VALIDATION=OFF still holds mail from unknown senders but never",
    "; sends them a validation request.",
    "MODE=QUELLOR",
};

struct StarterFile {
  const char* name;
  const std::string_view* lines;
  size_t count;
};

template <size_t N>
StarterFile Starter(const char* name, const std::string_view (&lines)[N]) {
  return {name, lines, N};
}

class Installer {
 public:
  explicit Installer(std::string root) : root_(std::move(root)) {}

  int failures() const { return failures_; }

  void Root() {
    std::error_code ec;
    if (std::filesystem::is_directory(root_, ec)) {
      Say("kept", root_);
      return;
    }
    if (std::filesystem::create_directories(root_, ec)) {
      Say("created", root_);
    } else {
      Fail(root_, ec ? ec.message() : "not a folder");
    }
  }

  void Folder(const std::string& relative) {
    const std::string path = root_ + relative;
    if (const auto existing = ResolveExisting(path)) {
      if (FolderExists(*existing)) {
        Say("kept", *existing + "/");
      } else {
        Fail(*existing, "exists and is not a folder");
      }
      return;
    }
    const std::string actual = ResolveForCreate(path);
    if (::mkdir(actual.c_str(), 0755) == 0) {
      Say("created", actual + "/");
    } else {
      Fail(actual, std::strerror(errno));
    }
  }

  // Writes the lines with CR LF ends; a file that exists under any letter case is kept.
  void File(const StarterFile& file) {
    const std::string path = root_ + file.name;
    if (const auto existing = ResolveExisting(path)) {
      Say("kept", *existing);
      return;
    }
    std::string bytes;
    for (size_t i = 0; i < file.count; ++i) {
      bytes += file.lines[i];
      bytes += "\r\n";
    }
    const std::string actual = ResolveForCreate(path);
    // Written whole under a temporary name and linked into place: a crash leaves no half file,
    // and a file that appeared meanwhile, or a link left in its place, is never written.
    try {
      AtomicReplacement replacement(actual);
      replacement.file().Write(bytes);
      replacement.Commit(/*keep_existing=*/true);
    } catch (const RuntimeError& e) {
      if (e.number() == kErrFileExists) {
        Say("kept", actual);
      } else {
        Fail(actual, e.description());
      }
      return;
    }
    Say("created", actual);
  }

 private:
  static void Say(const char* what, const std::string& path) {
    std::cout << what << ' ' << path << '\n';
  }
  void Fail(const std::string& path, const std::string& why) {
    std::cerr << "quellorctl init: cannot create " << path << ": " << why << '\n';
    ++failures_;
  }

  std::string root_;
  int failures_ = 0;
};

}  // namespace

int RunInit(const std::vector<std::string>& args) {
  CLI::App app{"Creates a complete installation tree; an existing file is never overwritten.",
               "quellorctl init"};
  std::string dir;
  app.add_option("DIR", dir, "installation root (default: QUELLOR_ROOT, else /var/spool/quellor)");
  try {
    std::vector<std::string> reversed(args.rbegin(), args.rend());
    app.parse(reversed);
  } catch (const CLI::ParseError& e) {
    return app.exit(e) == 0 ? 0 : 2;
  }

  const std::string root = dir.empty() ? RootFromEnvironment() : WithTrailingSlash(dir);
  Installer install(root);
  install.Root();
  if (install.failures() == 0) {
    for (const char* folder : kFolders) install.Folder(folder);
    for (const StarterFile& file :
         {Starter("quellor.ini", kIni), StarterFile{"DOMAIN.LST", nullptr, 0},
          Starter("SYSTEM/validation.txt", kValidationTxt),
          Starter("SYSTEM/validation.htm", kValidationHtm),
          Starter("SYSTEM/validation_foot.txt", kFootTxt),
          Starter("SYSTEM/validation_foot.htm", kFootHtm),
          Starter("SYSTEM/NEW_USER.CONF", kNewUser)}) {
      install.File(file);
    }
  }
  if (install.failures() > 0) return 1;
  std::cout << "Installation tree ready at " << root << '\n';
  return 0;
}

}  // namespace quellor::ctl
