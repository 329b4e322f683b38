// What the caller of a session may see and change, and the domains and people that a call names.
// Whatever is not his is not found.
#ifndef LIB_DOMAIN_SESSION_ACCESS_H
#define LIB_DOMAIN_SESSION_ACCESS_H

#include <optional>
#include <set>
#include <string>
#include <vector>

#include "lib-domain/base/domain_name.h"
#include "lib-domain/insight/reading.h"
#include "lib-domain/record/domain.h"
#include "lib-domain/record/group.h"
#include "lib-domain/record/user.h"
#include "lib-domain/session/turn.h"

namespace mdomain::session {

using Known = MDOMAIN::INSIGHT::KnownDomain;

// Of a domain administrator: whether there is any domain that is his.
bool IsAnyDomainOf(unsigned int uid);

// The domains that the caller may see, the primary one first.
std::vector<Known> KnownDomains(const Session& session);
// Ends the call where there is none, or it is not the caller's.
Known KnownDomain(const Session& session, int domain);
const Known& DomainOf(const std::vector<Known>& domains, int domain);

// The indexes of the domains of a domain administrator; none for the host's, who has all.
std::optional<std::set<int>> OwnDomains(const Session& session);

// Mirrored accounts, in the order given; ends the call where one is not mirrored.
std::vector<MDOMAIN::RECORD::User> UsersOf(const std::vector<std::uint32_t>& uids);
std::vector<MDOMAIN::RECORD::Group> GroupsOf(const std::vector<std::uint32_t>& gids);

using MDOMAIN::INSIGHT::RoleOf;
using MDOMAIN::INSIGHT::TextOf;

// A text that stands for the parts: equal for equal parts.
Version VersionOf(const std::vector<std::string>& parts);
// Ends the call unless `expected` is empty or `is`.
void RequireVersion(const Version& expected, const Version& is, const std::string& what);
// Ends the call where a version is given for several.
void RequireOne(std::size_t given, const std::string& what);

using MDOMAIN::BASE::AsciiForm;

class Refusals;
// Adds why nobody can have aliases by a pattern.
void RequirePattern(const std::string& pattern, Refusals& refusals);
constexpr const char* kNotPlain = "is no plain text of one line";
// A text of one line that a description or a pattern can be: UTF-8 of which all can be seen.
bool IsPlainText(const std::string& text);
// The pattern of a domain as it is stored.
std::string PatternOf(const Known& domain);

// Gathers what is refused, and ends the call with all of it.
class Refusals {
 public:
  void Add(const std::string& what, const std::string& value, const std::string& why) {
    refused_.push_back({what, value, why});
  }
  // Does nothing when nothing was added.
  void End(Reason reason, const std::string& text) const;

 private:
  std::vector<Refused> refused_;
};

}  // namespace mdomain::session

#endif  // LIB_DOMAIN_SESSION_ACCESS_H
