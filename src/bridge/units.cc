#include "bridge/units.h"

#include <string_view>

namespace quellor::bridge {

std::string UnitWord(const std::string& word) {
  bool plain = !word.empty();
  for (char c : word) {
    const bool ok = (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') ||
                    std::string_view("/._-+:@,=").find(c) != std::string_view::npos;
    if (!ok) plain = false;
  }
  if (plain) return word;
  // Inside quotes systemd reads "\" and the quote as escapes; "%" starts a specifier.
  std::string out = "\"";
  for (char c : word) {
    if (c == '\\' || c == '"') out += '\\';
    if (c == '%') out += '%';
    out += c;
  }
  return out + "\"";
}

std::string DreggerUnitText(const DreggerUnitSettings& s) {
  std::string exec = UnitWord(s.program) + " --null-sender " + UnitWord(s.null_sender);
  if (!s.hostname.empty()) exec += " --hostname " + UnitWord(s.hostname);
  if (!s.config_dir.empty()) exec += " --config-dir " + UnitWord(s.config_dir);
  return "[Unit]\n"
         "Description=Spam Quellor - Dregger (hands LOCAL/ and OUT/ to Postfix)\n"
         "After=postfix.service\n"
         "\n"
         "[Service]\n"
         "Type=notify\n"
         "User=" +
         s.user + "\nGroup=" + s.user + "\nEnvironment=" + UnitWord("QUELLOR_ROOT=" + s.root) +
         "\n"
         "ExecStart=" +
         exec +
         "\n"
         "Restart=on-failure\n"
         "RestartSec=5\n"
         "\n"
         "[Install]\n"
         "WantedBy=multi-user.target\n";
}

std::string ServiceUserDropInText(const std::string& user) {
  return "# Written by quellorctl postfix install: the filter runs as the owner of its tree.\n"
         "[Service]\n"
         "User=" +
         user + "\nGroup=" + user + "\n";
}

}  // namespace quellor::bridge
