#include "tools/mdomain/dovecot_files.h"

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
    "  auth_username_format = @FORMAT@\n"
    "}\n"
    "service lmtp {\n"
    "@LISTENER@"
    "}\n";

// A full name may hold an @, and stands in quotes then: no format takes it out.
constexpr const char* kUserdb =
    "\n# What Postfix writes behind the name goes.\n"
    "userdb {\n"
    "  driver = sql\n"
    "  args = @QUERY@\n"
    "  result_success = continue\n"
    "  result_failure = continue\n"
    "  result_internalfail = continue\n"
    "}\n";

constexpr const char* kQuery =
    "driver = sqlite\n"
    "connect = @REGISTRY@\n"
    "password_query = SELECT NULL AS password, 'Y' AS noauthenticate, name AS user FROM ( \\\n"
    "  SELECT 1 AS place, @NAME@ AS name \\\n"
    "  FROM local_part WHERE user_name <> '' AND local_part = '%n' COLLATE NOCASE AND \\\n"
    "  domain_idx = (SELECT domain_idx FROM domain_part WHERE domain_name = '%d' COLLATE NOCASE) "
    "\\\n"
    "@OTHER@"
    "  ) ORDER BY place LIMIT 1\n";

// "\"a\\b@c\"@lmtp.localhost", or without quotes where it has no @.
constexpr const char* kUserQuery =
    "user_query = SELECT CASE WHEN substr(name, 1, 1) = '\"' THEN \\\n"
    "  replace(replace(substr(name, 2, length(name) - 2), char(92, 34), char(34)), char(92, 92), "
    "char(92)) \\\n"
    "  ELSE name END AS user \\\n"
    "  FROM (SELECT substr('%u', 1, length('%u') - length('@lmtp.localhost')) AS name) \\\n"
    "  WHERE substr('%u', -length('@lmtp.localhost')) = '@lmtp.localhost'\n";

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

// `name` without the domain of the account source, as the maps for Postfix have short names; the
// condition for names that have it in `has_domain`.
std::string ShortNameSql(const MDOMAIN::UTILS::MailTarget& target, const std::string& name,
                         std::string& has_domain) {
  if (!target.Before().empty()) {
    const std::string domain = Quoted(target.Before().substr(0, target.Before().size() - 1));
    has_domain = "substr(" + name + ", 1, length(" + domain + ") + 1) = " + domain +
                 " || char(92) COLLATE NOCASE";
    return "substr(" + name + ", length(" + domain + ") + 2)";
  }
  const std::string domain = Quoted(target.Behind());
  has_domain = "substr(" + name + ", -length(" + domain + ")) = " + domain + " COLLATE NOCASE";
  return "substr(" + name + ", 1, length(" + name + ") - length(" + domain + "))";
}

bool HasDomain(const MDOMAIN::UTILS::MailTarget& target) {
  return !target.Before().empty() || !target.Behind().empty();
}

std::string NameSql(const MDOMAIN::UTILS::MailTarget& target) {
  std::string has_domain;
  const std::string name = "user_name";
  const std::string short_name = ShortNameSql(target, name, has_domain);
  return target.IsShort() && HasDomain(target)
             ? "CASE WHEN " + has_domain + " THEN " + short_name + " ELSE user_name END"
             : name;
}

// An account of a directory has two names, and is to have one mailbox: the other name becomes the
// one that mail comes for.
std::string OtherNameSql(const MDOMAIN::UTILS::MailTarget& target) {
  if (!HasDomain(target)) {
    return "";
  }
  std::string has_domain;
  std::string name = ShortNameSql(target, "'%u'", has_domain);
  if (!target.IsShort()) {
    const std::string& before = target.Before();
    name = before.empty() ? "'%u' || " + Quoted(target.Behind())
                          : Quoted(before.substr(0, before.size() - 1)) + " || char(92) || '%u'";
    has_domain = "instr('%u', '@') = 0 AND instr('%u', char(92)) = 0";
  }
  return "  UNION ALL SELECT 2, " + name + " WHERE " + has_domain + " \\\n";
}

}  // namespace

DovecotFile DovecotSettings(const std::string& folder, const LmtpSocket& lmtp,
                            const MDOMAIN::UTILS::MailTarget& target) {
  std::string text = kHeader + Filled(kPassdb, "@QUERY@", folder + kQueryFile);
  if (lmtp.IsHere()) {
    text += target.IsShort() ? "" : Filled(kUserdb, "@QUERY@", folder + kQueryFile);
    text += Filled(Filled(kLmtp, "@LISTENER@", Listener(lmtp)), "@FORMAT@",
                   target.IsShort() ? "%n" : "%u");
  }
  return {folder + kSettingsFile, text};
}

DovecotFile DovecotQuery(const std::string& folder, const std::string& registry,
                         const MDOMAIN::UTILS::MailTarget& target) {
  std::string query = Filled(kQuery, "@REGISTRY@", registry);
  query = Filled(Filled(query, "@NAME@", NameSql(target)), "@OTHER@", OtherNameSql(target));
  if (!target.IsShort()) {
    query += kUserQuery;
  }
  return {folder + kQueryFile, kHeader + query};
}

bool IsDovecotFileOfOurs(const std::string& bytes) {
  return bytes.rfind(kHeader, 0) == 0;
}

}  // namespace mdomain
