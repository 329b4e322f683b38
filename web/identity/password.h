// Who somebody is, by the host's PAM.
#ifndef MDOMAIN_WEB_IDENTITY_PASSWORD_H
#define MDOMAIN_WEB_IDENTITY_PASSWORD_H

#include <cstdint>
#include <optional>
#include <string>

namespace mdomain_web {

struct Checked {
  std::optional<std::string> account;
  bool is_asked = true;  // false where PAM could not tell: a module or a server was missing
};

// The account name, as the modules of `service` give it, when the password is right and the account
// may be used (neither locked nor expired); none otherwise, whatever the reason. A password that
// must be changed first is none either. Takes as long as the modules do; may be called by several
// threads.
Checked CheckPassword(const std::string& service, const std::string& name,
                      const std::string& password, const std::string& remote_address);

// The uid of an account of the host; none where the host does not know the name.
std::optional<std::uint32_t> UidOf(const std::string& account);

// Whether the account is in the host's group: its own one or one that names it. False where either
// is unknown.
bool IsInGroup(const std::string& account, const std::string& group);

}  // namespace mdomain_web

#endif  // MDOMAIN_WEB_IDENTITY_PASSWORD_H
