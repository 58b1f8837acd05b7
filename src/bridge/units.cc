#include "bridge/units.h"

#include <string_view>

#include "service/unit_files.h"

namespace quellor::bridge {

std::string DreggerUnitText(const DreggerUnitSettings& s) {
  std::string exec = UnitWord(s.program);
  if (!s.null_sender.empty()) exec += " --null-sender " + UnitWord(s.null_sender);
  if (!s.hostname.empty()) exec += " --hostname " + UnitWord(s.hostname);
  if (!s.config_dir.empty()) exec += " --config-dir " + UnitWord(s.config_dir);
  // The filter's own confinement, with what Postfix's sendmail needs to queue mail: postdrop
  // runs without its set-group-id bit under NoNewPrivileges, so the account joins the group
  // postdrop (which a private user namespace would hide) and may write the drop folders.
  std::string confinement = ConfinementText(s.root, s.user).value_or("");
  const std::string private_users = "PrivateUsers=yes\n";
  if (const size_t at = confinement.find(private_users); at != std::string::npos) {
    confinement.erase(at, private_users.size());
  }
  return "[Unit]\n"
         "Description=Spam Quellor - Dregger (hands LOCAL/ and OUT/ to Postfix)\n"
         "After=postfix.service\n"
         "\n"
         "[Service]\n"
         "Type=notify\n"
         "Environment=" +
         UnitWord("QUELLOR_ROOT=" + s.root) + "\nExecStart=" + exec +
         "\n"
         "Restart=on-failure\n"
         "RestartSec=5\n" +
         confinement +
         "SupplementaryGroups=postdrop\n"
         "ReadWritePaths=/var/spool/postfix/maildrop /var/spool/postfix/public\n"
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
