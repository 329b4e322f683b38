#include "tools/mdomain/dovecot_files.h"

#include "lib-domain/base/paths.h"

namespace mdomain {
namespace {

constexpr const char* kHeader = "# Written by mdomain dovecot configure, which writes it anew.\n";

// Before all others: the first passdb that is asked makes the name.
constexpr const char* kSettingsFile = "/conf.d/05-mdomain.conf";
constexpr const char* kQueryFile = "/mdomain-sql.conf.ext";

// With "nopassword" in place of "noauthenticate" any password would do.
constexpr const char* kPassdb =
    "\n# An address becomes the name of its account. The password is left to the next passdb.\n"
    "passdb {\n"
    "  driver = sql\n"
    "  args = @QUERY@\n"
    "  result_success = continue\n"
    "  result_failure = continue\n"
    "  result_internalfail = continue\n"
    "}\n"
    "# Addresses beyond ASCII are names too.\n"
    "auth_username_chars =\n";

constexpr const char* kLmtp =
    "\n# Mail comes for NAME@lmtp.localhost, with the account's name as it is written.\n"
    "protocol lmtp {\n"
    "  auth_username_format = %n\n"
    "}\n"
    "service lmtp {\n"
    "@LISTENER@"
    "}\n";

constexpr const char* kQuery =
    "driver = sqlite\n"
    "connect = @REGISTRY@\n"
    "password_query = SELECT NULL AS password, 'Y' AS noauthenticate, \\\n"
    "  @NAME@ AS user \\\n"
    "  FROM local_part WHERE user_name <> '' AND local_part = '%n' COLLATE NOCASE AND \\\n"
    "  domain_idx = (SELECT domain_idx FROM domain_part WHERE domain_name = '%d' COLLATE NOCASE) "
    "\\\n"
    "  LIMIT 1\n";

std::string Filled(std::string text, const std::string& mark, const std::string& value) {
  return text.replace(text.find(mark), mark.size(), value);
}

std::string Listener(const LmtpSocket& lmtp) {
  if (lmtp.path.empty()) {
    return "  inet_listener mdomain {\n    address = " + lmtp.host + "\n    port = " + lmtp.port +
           "\n  }\n";
  }
  return "  unix_listener " + lmtp.path + " {\n    mode = 0600\n    user = " + lmtp.user +
         "\n  }\n";
}

// A text of SQL in a file in which Dovecot takes "%" and "\\" for its own.
std::string Quoted(const std::string& text) {
  std::string quoted = "'";
  for (const char c : text) {
    quoted += c == '\'' || c == '%' ? std::string(2, c) : std::string(1, c);
  }
  return quoted + "'";
}

// As the maps for Postfix name an account: without the domain of the account source.
std::string ShortNameSql(const MDOMAIN::UTILS::MailTarget& target) {
  if (!target.Before().empty()) {
    const std::string domain = Quoted(target.Before().substr(0, target.Before().size() - 1));
    return "CASE WHEN substr(user_name, 1, length(" + domain + ") + 1) = " + domain +
           " || char(92) COLLATE NOCASE THEN substr(user_name, length(" + domain +
           ") + 2) ELSE user_name END";
  }
  if (!target.Behind().empty()) {
    const std::string domain = Quoted(target.Behind());
    return "CASE WHEN substr(user_name, -length(" + domain + ")) = " + domain +
           " COLLATE NOCASE THEN substr(user_name, 1, length(user_name) - length(" + domain +
           ")) ELSE user_name END";
  }
  return "user_name";
}

}  // namespace

DovecotFile DovecotSettings(const std::string& folder, const LmtpSocket& lmtp) {
  std::string text = kHeader + Filled(kPassdb, "@QUERY@", folder + kQueryFile);
  if (!lmtp.path.empty() || !lmtp.port.empty()) {
    text += Filled(kLmtp, "@LISTENER@", Listener(lmtp));
  }
  return {folder + kSettingsFile, text};
}

DovecotFile DovecotQuery(const std::string& folder, const MDOMAIN::UTILS::MailTarget& target) {
  const std::string query = Filled(kQuery, "@REGISTRY@", MDOMAIN::PATHS::EmailOwnerDb());
  return {folder + kQueryFile, kHeader + Filled(query, "@NAME@", ShortNameSql(target))};
}

bool IsDovecotFileOfOurs(const std::string& bytes) {
  return bytes.rfind(kHeader, 0) == 0;
}

}  // namespace mdomain
