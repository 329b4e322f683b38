// /etc/mailserver-domain/host.ini: what this host is connected to.
#ifndef PLATFORM_HOST_SETTINGS_H
#define PLATFORM_HOST_SETTINGS_H

#include <set>
#include <string>
#include <vector>

#include "platform/include/export.h"

namespace korvmailserver {

// [keystore]. The keys in the file have the names of the members, except that `password` is read
// from "password_file". "tls" is refused: use stunnel on this host for an encrypted connection.
struct KeyStoreSettings {
  std::string backend = "embedded";  // or "redis", which the other members are for
  std::string host = "127.0.0.1";
  int port = 6379;               // 1 to 65535
  std::string socket;            // path of a unix socket, instead of host and port
  std::string user;              // empty: the server's default user
  std::string password;          // the first line of password_file; empty: no login
  int database = 0;              // 0 to 65535
  std::string prefix = "mail:";  // of every key on the server
  int connect_timeout = 3;       // seconds, 1 to 3600: finding the primary, connecting, login
  int command_timeout = 5;       // seconds, 1 to 3600; no call takes longer than both together
  // Addresses of sentinels (port 26379 unless given), instead of host, port and socket.
  std::vector<std::pair<std::string, int>> sentinels;
  std::string master;  // the name by which the sentinels know the primary
  std::string node;    // what this machine is called in a shared store; empty: the host name
  // Replicas that must have a write before it counts as made, 0 to 100; with sentinels 1 unless the
  // file says otherwise. With sentinels and a number above 0, also every further replica that they
  // count as alive.
  int min_replicas = 0;
};

// [ldap].
struct LdapSettings {
  std::string uri;  // ldap://, ldaps:// or ldapi://
  bool start_tls = false;
  std::string ca_file;
  std::string bind_dn;
  std::string password;  // read from password_file
  std::string user_base, user_filter = "(objectClass=posixAccount)";
  std::string group_base, group_filter = "(objectClass=posixGroup)";
  std::string user_name_attr = "uid", user_id_attr = "uidNumber", user_gid_attr = "gidNumber";
  std::string user_mail_attr = "mail", user_full_name_attr = "cn";
  std::string group_name_attr = "cn", group_id_attr = "gidNumber", group_desc_attr = "description";
  std::string schema = "rfc2307";  // memberUid; or "rfc2307bis": member, with DNs
  std::string member_attr;         // empty: memberUid or member, as the schema says
  int timeout = 10;                // seconds: connecting, binding and one whole search
  int page_size = 500;             // 1 to 1000
};

// [winbind].
struct WinbindSettings {
  int timeout = 30;      // seconds: one look-up, or one reading of all accounts
  int net_timeout = 60;  // seconds, of one run of /usr/bin/net
};

// [local].
struct LocalSettings {
  // Account names that are not people; the setting replaces the default.
  std::set<std::string> internal = {"Postara-Server", "nobody"};
};

// [delivery]: where the mail of the domains' users goes.
struct DeliverySettings {
  // "local": to NAME@localhost, which Postfix delivers itself; or "lmtp": to a server behind
  // `lmtp`.
  std::string local = "local";                     // accounts of this host
  std::string directory = "lmtp";                  // accounts of a directory or a Windows domain
  std::string lmtp = "unix:private/dovecot-lmtp";  // as a transport of Postfix names it
  std::string lmtp_name = "short";                 // the name that LMTP gets, or "full"
};

struct HostSettings {
  KeyStoreSettings keystore;
  LdapSettings ldap;
  WinbindSettings winbind;
  LocalSettings local;
  DeliverySettings delivery;
};

// Reads the file below the root prefix; a missing file gives the defaults. Lines are "[section]",
// "key = value" or comments after "#" or ";", at most 8 kB long; " ;" after a value begins a
// comment too. Lists are separated by commas or blanks, flags are "yes" or "no", relative file
// names count from the settings file's folder. Absolute ones are taken as they are, without the
// root prefix.
//
// True with all of `settings` set. False with one `error` text "FILE:LINE: KEY what is wrong" for
// the first unknown section or key, key that is set twice, bad value, or password file that is
// missing, empty or open to others than its owner; `settings` is untouched then. Within an
// OtherRoot [keystore] reads as if it were not there: work on copies must not reach other machines.
MDOMAIN_EXPORT bool ReadHostSettings(HostSettings& settings, std::string& error);
MDOMAIN_EXPORT std::string HostSettingsPath();

}  // namespace korvmailserver

#endif  // PLATFORM_HOST_SETTINGS_H
