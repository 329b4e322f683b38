// Other mail administrations that mdomain import reads.
#ifndef TOOLS_MDOMAIN_FOREIGN_SOURCES_H
#define TOOLS_MDOMAIN_FOREIGN_SOURCES_H

#include <map>
#include <string>

#include "tools/mdomain/foreign_mail.h"

namespace mdomain {

// Which account a mailbox belongs to.
class AccountOfMailbox {
 public:
  // `form` with %u for the local part and %d for the domain. Of `list`, a file's text, each line
  // "ADDRESS ACCOUNT" goes before it. Refuses other lines and other uses of "%", naming them.
  AccountOfMailbox(std::string form, const std::string& list, const std::string& list_name);

  std::string Of(const std::string& address) const;

 private:
  // Why a line is refused; empty where it is not.
  std::string AddLine(const std::string& line);

  std::string form_;
  std::map<std::string, std::string> by_address_;
};

// The tables of PostfixAdmin: a file of SQLite, or a dump in SQL. Refuses, with the line, what is
// neither.
ForeignMail ReadPostfixAdmin(const std::string& file, const std::string& table_prefix,
                             const AccountOfMailbox& accounts);

struct PasswdAliases {
  std::string passwd, aliases;  // files
  std::string domain;
  unsigned int first_uid, last_uid;
};
// Accounts of passwd(5) as users of one domain, with what aliases(5) leads to them. Refuses lines
// that are none of these formats.
ForeignMail ReadPasswdAliases(const PasswdAliases& source);

// The bytes of a file or, for "-", of standard input; refuses what is larger than any such file.
std::string ReadForeignFile(const std::string& file);

}  // namespace mdomain

#endif  // TOOLS_MDOMAIN_FOREIGN_SOURCES_H
