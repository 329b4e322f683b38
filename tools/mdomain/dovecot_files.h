// The two files that make Dovecot take every address of an account for its name.
#ifndef TOOLS_MDOMAIN_DOVECOT_FILES_H
#define TOOLS_MDOMAIN_DOVECOT_FILES_H

#include <string>

#include "lib-domain/sync/mail_target.h"

namespace mdomain {

struct DovecotFile {
  std::string path;
  std::string text;
};

// Where mail comes in by LMTP; empty where it does not, or comes to another host.
struct LmtpSocket {
  std::string path;  // of a unix socket
  std::string user;  // whose the socket is
  std::string host;  // without a path
  std::string port;

  bool IsHere() const { return !path.empty() || !port.empty(); }
};

// Names of accounts stay names, an address becomes the name of the account that has it; whose
// password is right is for what the host asks next to tell.
DovecotFile DovecotSettings(const std::string& folder, const LmtpSocket& lmtp,
                            const MDOMAIN::UTILS::MailTarget& target);
// `registry`: the file in which owners are looked up.
DovecotFile DovecotQuery(const std::string& folder, const std::string& registry,
                         const MDOMAIN::UTILS::MailTarget& target);

// Whether a file is one of these, of any version.
bool IsDovecotFileOfOurs(const std::string& bytes);

}  // namespace mdomain

#endif  // TOOLS_MDOMAIN_DOVECOT_FILES_H
