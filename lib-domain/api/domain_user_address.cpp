// Whole addresses: the aliases of a domain's users at the names under which it receives mail.

#include "lib-domain/api/domain.h"
#include "lib-domain/api/domain_user.h"
#include "lib-domain/base/log_line.h"
#include "lib-domain/control/domain.h"
#include "lib-domain/db/look_up.h"
#include "lib-domain/db/read_scope.h"

namespace MDOMAIN::API {

namespace {

using NamesByDomain = std::map<int, std::vector<std::string>>;

// The names of every domain, its own first; the domains themselves, the primary one first.
bool GetDomainNames(bool include_additional, std::vector<RECORD::Domain>& domains,
                    NamesByDomain& names_by_domain) {
  if (!Domain().ListNames(domains)) {
    LOG_ERROR("Failed to GetAllDomains");
    return false;
  }
  NamesByDomain additional;
  if (include_additional && !domains.empty() &&
      !CONTROL::Domain().ListAllAdditionalDomains(additional)) {
    LOG_ERROR("Failed to ListAdditionalDomains, domain_id: [%d]", domains.front().GetDomainIdx());
    return false;
  }
  for (const RECORD::Domain& domain : domains) {
    std::vector<std::string>& names = names_by_domain[domain.GetDomainIdx()];
    names = {domain.GetDomainName()};
    const std::vector<std::string>& others = additional[domain.GetDomainIdx()];
    names.insert(names.end(), others.begin(), others.end());
  }
  return true;
}

void AppendAddresses(const std::vector<std::string>& aliases, const std::vector<std::string>& names,
                     std::vector<std::string>& addresses) {
  for (const std::string& name : names) {
    for (const std::string& alias : aliases) {
      std::string address = alias;
      address.append("@").append(name);
      addresses.push_back(std::move(address));
    }
  }
}

// A user's aliases in all domains, read when those of the first are asked for.
class OnceFound {
 public:
  explicit OnceFound(const std::string& user_name) : user_name_(user_name) {}

  // Those of a domain, each once. False when each domain has to be asked for.
  bool Take(int domain_idx, std::vector<std::string>& aliases) {
    if (!is_asked_) {
      is_asked_ = true;
      is_found_ = DB::INTERNAL::FindAliases(user_name_, aliases_);
    }
    const auto found = aliases_.find(domain_idx);
    if (is_found_ && found != aliases_.end()) {
      aliases.swap(found->second);
    }
    return is_found_;
  }

 private:
  const std::string& user_name_;
  DB::INTERNAL::AliasesByDomain aliases_;
  bool is_asked_ = false;
  bool is_found_ = false;
};

std::vector<std::string> AliasesOf(const RECORD::DomainUser& user) {
  std::vector<std::string> aliases;
  for (const RECORD::DomainUserAlias& alias : user.ExtractDomainUserAliases()) {
    aliases.push_back(alias.GetAccountAlias());
  }
  return aliases;
}

}  // namespace

bool DomainUser::_GetAddresses(const AliasGetter& get_aliases, bool include_additional,
                               std::vector<std::string>& addresses) {
  std::vector<RECORD::Domain> domains;
  NamesByDomain names_by_domain;
  if (!GetDomainNames(include_additional, domains, names_by_domain)) {
    return false;
  }
  for (const RECORD::Domain& domain : domains) {
    std::vector<std::string> aliases;
    if (!get_aliases(domain.GetDomainIdx(), aliases)) {
      return false;
    }
    AppendAddresses(aliases, names_by_domain[domain.GetDomainIdx()], addresses);
  }
  return true;
}

bool DomainUser::GetMailAddresses(const unsigned int& uid, std::vector<std::string>& addresses) {
  if (DB::INTERNAL::FindAddresses(uid, addresses)) {
    return true;
  }
  const AliasGetter get_aliases = [&](int domain_idx, std::vector<std::string>& aliases) {
    if (!GetDomainUserAlias(domain_idx, uid, aliases)) {
      LOG_ERROR("Failed to GetDomainUserAlias, domain_id: [%d], uid: [%u]", domain_idx, uid);
      return false;
    }
    return true;
  };
  return _GetAddresses(get_aliases, false, addresses);
}

bool DomainUser::GetMailAddresses(const std::string& user_name,
                                  std::vector<std::string>& addresses) {
  return _GetAddressesByName(user_name, false, addresses);
}

bool DomainUser::GetMailAddrIncludingAdditionalDomain(const std::string& user_name,
                                                      std::vector<std::string>& addresses) {
  return _GetAddressesByName(user_name, true, addresses);
}

bool DomainUser::_GetAddressesByName(const std::string& user_name, bool include_additional,
                                     std::vector<std::string>& addresses) {
  const DB::ReadScope of_one_moment;
  if (!include_additional && DB::INTERNAL::FindAddresses(user_name, addresses)) {
    return true;
  }
  OnceFound found(user_name);
  const AliasGetter get_aliases = [&](int domain_idx, std::vector<std::string>& aliases) {
    if (found.Take(domain_idx, aliases)) {
      return true;
    }
    if (!GetDomainUserAlias(domain_idx, user_name, aliases)) {
      LOG_ERROR("Failed to GetDomainUserAlias, domain_id: [%d], user_name: [%s]", domain_idx,
                user_name.c_str());
      return false;
    }
    return true;
  };
  return _GetAddresses(get_aliases, include_additional, addresses);
}

bool DomainUser::GetUser2AliasesMap(
    const int& domain_idx, std::map<std::string, std::vector<std::string>>& aliases_by_user) {
  DB::DomainDBFilter filter("domain_user_view");
  filter.SetDomainIdxs({domain_idx});
  filter.SetLimit(-1);
  std::vector<RECORD::DomainUser> users;
  if (!List(filter, users)) {
    LOG_ERROR("Failed to List all domain users under domain_id: [%d]", domain_idx);
    return false;
  }
  for (const RECORD::DomainUser& user : users) {
    aliases_by_user[user.GetUserName()] = AliasesOf(user);
  }
  return true;
}

bool DomainUser::GetAllUser2EmailsMap(
    const bool& include_additional,
    std::map<std::string, std::vector<std::string>>& emails_by_user) {
  std::vector<RECORD::Domain> domains;
  NamesByDomain names_by_domain;
  if (!GetDomainNames(include_additional, domains, names_by_domain)) {
    return false;
  }
  // All domains by their indexes: the list of users cannot be composed without any.
  std::vector<int> domain_idxs;
  domain_idxs.reserve(domains.size());
  for (const RECORD::Domain& domain : domains) {
    domain_idxs.push_back(domain.GetDomainIdx());
  }
  DB::DomainDBFilter filter("domain_user_view");
  filter.SetDomainIdxs(domain_idxs);
  filter.SetLimit(-1);
  std::vector<RECORD::DomainUser> users;
  if (!domains.empty() && !List(filter, users)) {
    LOG_ERROR("Failed to List all domain users");
    return false;
  }
  for (const RECORD::DomainUser& user : users) {
    const auto names = names_by_domain.find(user.GetDomainIdx());
    if (names == names_by_domain.end()) {
      LOG_ERROR("Failed to find domain user's domain_id, uid: [%u], domain_id: [%d]", user.GetUID(),
                user.GetDomainIdx());
      continue;
    }
    AppendAddresses(AliasesOf(user), names->second, emails_by_user[user.GetUserName()]);
  }
  return true;
}

bool DomainUser::ForEachUserEmails(bool include_additional, const EmailVisitor& use) {
  if (!DB::INTERNAL::CanLookUp()) {
    std::map<std::string, std::vector<std::string>> emails_by_user;
    if (!GetAllUser2EmailsMap(include_additional, emails_by_user)) {
      return false;
    }
    for (const auto& [user_name, emails] : emails_by_user) {
      use(user_name, emails);
    }
    return true;
  }
  const DB::ReadScope of_one_moment;
  std::vector<RECORD::Domain> domains;
  NamesByDomain names_by_domain;
  if (!GetDomainNames(include_additional, domains, names_by_domain)) {
    return false;
  }
  const auto use_addresses = [&](const std::string& user_name,
                                 const std::vector<RECORD::DomainUser>& users) {
    std::vector<std::string> emails;
    for (const RECORD::DomainUser& user : users) {
      AppendAddresses(AliasesOf(user), names_by_domain[user.GetDomainIdx()], emails);
    }
    use(user_name, emails);
  };
  if (!domains.empty() && !DB::DomainUser().ForEachName(use_addresses)) {
    LOG_ERROR("Failed to List all domain users");
    return false;
  }
  return true;
}

}  // namespace MDOMAIN::API
