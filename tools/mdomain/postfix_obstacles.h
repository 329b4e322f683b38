// What on this host stands against a Postfix that uses the maps.
#ifndef TOOLS_MDOMAIN_POSTFIX_OBSTACLES_H
#define TOOLS_MDOMAIN_POSTFIX_OBSTACLES_H

#include <string>
#include <vector>

#include "lib-domain/sync/mail_target.h"
#include "lib-domain/sync/postfix_maps.h"
#include "tools/mdomain/postfix_host.h"

namespace mdomain {

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
                                      const std::string& lmtp, bool has_milter);

}  // namespace mdomain

#endif  // TOOLS_MDOMAIN_POSTFIX_OBSTACLES_H
