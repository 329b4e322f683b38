// Who somebody is, by the host's PAM.
#ifndef MDOMAIN_WEB_IDENTITY_PASSWORD_H
#define MDOMAIN_WEB_IDENTITY_PASSWORD_H

#include <cstdint>
#include <optional>
#include <string>

namespace mdomain_web {

struct Checked {
  enum class Outcome {
    kRight,       // and the account may be used
    kWrong,       // name or password; which of them is not told
    kMustChange,  // the password is right and must be changed before it counts
    kShutOut,     // the password is right; the account has ended, is locked, or may not come here
    kNotAsked,    // PAM could not tell: a module or a server was missing
  };
  Outcome outcome = Outcome::kWrong;
  std::string account;  // as the modules name it, where the password is right
};

// What the modules of `service` say of name and password. Takes as long as they do; may be called
// by several threads.
Checked CheckPassword(const std::string& service, const std::string& name,
                      const std::string& password, const std::string& remote_address);

// The uid of an account of the host; none where the host does not know the name.
std::optional<std::uint32_t> UidOf(const std::string& account);

// Whether the account is in the host's group: its own one or one that names it. False where either
// is unknown.
bool IsInGroup(const std::string& account, const std::string& group);

}  // namespace mdomain_web

#endif  // MDOMAIN_WEB_IDENTITY_PASSWORD_H
