// /etc/mailserver-domain/host.ini: what this host is connected to.
#ifndef PLATFORM_HOST_SETTINGS_H
#define PLATFORM_HOST_SETTINGS_H

#include <set>
#include <string>
#include <vector>

namespace korvmailserver {

struct KeyStoreSettings {
  std::string backend = "embedded";  // or "redis"
  std::string host = "127.0.0.1";
  int port = 6379;
  std::string socket;
  std::string user;
  std::string password;  // read from password_file
  int database = 0;
  std::string prefix = "mail:";
  int connect_timeout = 3;  // seconds
  int command_timeout = 5;  // seconds
  std::vector<std::pair<std::string, int>> sentinels;
  std::string master;
  int min_replicas = 0;
};

struct LdapSettings {
  std::string uri;
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
  int timeout = 10;                // seconds, of every call to the directory
  int page_size = 500;             // 1 to 1000
};

struct WinbindSettings {
  int timeout = 30;      // seconds, of every question to winbindd
  int net_timeout = 60;  // seconds, of one run of /usr/bin/net
};

struct LocalSettings {
  std::set<std::string> internal = {"Postara-Server", "nobody"};
};

struct HostSettings {
  KeyStoreSettings keystore;
  LdapSettings ldap;
  WinbindSettings winbind;
  LocalSettings local;
};

// Reads the file below the root prefix; a missing file gives the defaults. False and one `error`
// text "FILE:LINE: what is wrong with KEY" for an unknown section or key, a bad value, or a
// password file that others than its owner may read.
bool ReadHostSettings(HostSettings& settings, std::string& error);
std::string HostSettingsPath();

}  // namespace korvmailserver

#endif  // PLATFORM_HOST_SETTINGS_H
