// What on this host stands against a Postfix that uses the maps.
#ifndef TOOLS_MDOMAIN_POSTFIX_OBSTACLES_H
#define TOOLS_MDOMAIN_POSTFIX_OBSTACLES_H

#include <string>
#include <vector>

#include "lib-domain/sync/mail_target.h"
#include "lib-domain/sync/postfix_maps.h"
#include "tools/mdomain/postfix_host.h"

namespace mdomain {

// Whether Postfix is told not to offer SMTPUTF8, and whether it may: the server behind LMTP, where
// accounts have one, offers it too. One that cannot be asked does not.
bool IsUtf8Discarded(const PostfixHost& host);
bool TakesUtf8(const PostfixHost& host, const MDOMAIN::UTILS::MailTarget& target,
               const std::string& lmtp);

// A sentence each, with what to do: with these nothing is changed. `milter` is one that is to be
// added, or empty.
std::vector<std::string> ListObstacles(const PostfixHost& host,
                                       const MDOMAIN::UTILS::PostfixContent& content,
                                       const MDOMAIN::UTILS::MailTarget& target,
                                       const std::string& milter);

// The same of what keeps some mail from its way, and nothing from being set.
std::vector<std::string> ListCautions(const PostfixHost& host,
                                      const MDOMAIN::UTILS::PostfixContent& content,
                                      const MDOMAIN::UTILS::MailTarget& target,
                                      const std::string& lmtp, bool takes_utf8, bool has_milter);

}  // namespace mdomain

#endif  // TOOLS_MDOMAIN_POSTFIX_OBSTACLES_H
