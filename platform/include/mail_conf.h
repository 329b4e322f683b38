// The mail configuration: a name/value store inside the key store (key_store.h tells about failures
// and connections). Keys and values are any bytes.
#ifndef PLATFORM_MAIL_CONF_H
#define PLATFORM_MAIL_CONF_H

#include <map>
#include <string>
#include <utility>
#include <vector>

#include "platform/include/export.h"

enum AUTH_TYPE : int {
  AUTH_UNKNOWN = 0,
  AUTH_LOCAL = 1,
  AUTH_WIN = 2,
  AUTH_LDAP = 8,
};

// "local" 1, "win" 2, "ldap" 8, anything else AUTH_UNKNOWN. Exact spelling.
MDOMAIN_EXPORT AUTH_TYPE ConvertAuthType(const std::string& text);

// Reads a key. 0: value set; a missing key gives its default ("account_type" is "local"), else the
// empty string. Negative: the store could not be read, value untouched, one log line.
MDOMAIN_EXPORT int mailConfGet(const std::string& key, std::string& value);

// Writes a key. 0 on success, also when the stored value is already equal (nothing is written
// then); negative on failure, one log line. `publish` and `flags` are the mail server's (1/true and
// 0 here) and change nothing on this host.
MDOMAIN_EXPORT int mailConfSet(const std::string& key, const std::string& value, bool publish,
                               int flags);

// True when the key's value (or default) equals `value` exactly. An unreadable store gives false,
// with one log line.
MDOMAIN_EXPORT bool mailConfCheckKeyValue(const std::string& key, const std::string& value);

// Reads or writes many keys with a bounded number of round trips. The results are those of one call
// per key, except that the changed keys are written all or none. Reading sets the value of every
// key asked for and leaves other entries of `values` alone; of a key that is written twice the last
// counts. 0, or negative with one log line and `values` untouched.
MDOMAIN_EXPORT int mailConfGetMany(const std::vector<std::string>& keys,
                                   std::map<std::string, std::string>& values);
MDOMAIN_EXPORT int mailConfSetMany(const std::vector<std::pair<std::string, std::string>>& entries);

// Every stored key and value, ascending by key; defaults are not in it. 0, or negative with one log
// line and `values` untouched.
MDOMAIN_EXPORT int mailConfList(std::map<std::string, std::string>& values);

// The account system's domain name: "local" for local accounts, "win_domain_short_name" for a
// Windows domain, "acc_domain_name" for LDAP. 0 on success (the name may be empty); non-zero, with
// one log line and `name` untouched, when the configuration cannot be read or the account type is
// unknown.
MDOMAIN_EXPORT int smtpAccountDomainGet(std::string& name);

#endif  // PLATFORM_MAIL_CONF_H
