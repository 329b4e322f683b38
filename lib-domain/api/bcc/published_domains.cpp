// Reads each source once, and the users' aliases of those domains only that somebody asks for.
#include "lib-domain/api/bcc/published_domains.h"

#include "lib-domain/base/log_line.h"
#include "lib-domain/base/paths.h"
#include "lib-domain/base/text.h"
#include "platform/include/alias.h"
#include "platform/include/smtp_conf.h"

namespace MDOMAIN::API::INTERNAL {

bool PublishedDomains::Load() {
  return LoadAliasEntries() && LoadNames();
}

bool PublishedDomains::LoadAliasEntries() {
  Alias table(PATHS::AliasDb());
  if (table.load() < 0) {
    return false;
  }
  for (const Alias::Entry& entry : table.list()) {
    alias_entries_[entry.domain_id].insert(entry.name);
  }
  return true;
}

bool PublishedDomains::LoadNames() {
  SmtpConf settings;
  if (settings.LoadSettings() < 0) {
    return false;
  }
  for (const auto& [domain_id, name] : settings.GetMultiDomainMap()) {
    std::list<std::string> names;
    if (settings.GetAdditionalDomainList(domain_id, names) < 0) {
      LOG_ERROR("failed to GetAdditionalDomainList with id %d", domain_id);
      return false;
    }
    names.push_front(name);
    for (const std::string& own_name : names) {
      owners_.emplace(forms_.Get(BASE::ToLowerAscii(own_name)).punycode, domain_id);
    }
    names_by_domain_[domain_id] = std::move(names);
  }
  return true;
}

int PublishedDomains::OwnerOf(const std::string& punycode) const {
  const auto owner = owners_.find(punycode);
  return owner == owners_.end() ? -1 : owner->second;
}

LocalPartFinder& PublishedDomains::NamesIn(int domain_id) {
  const auto found = finders_.find(domain_id);
  if (found != finders_.end()) {
    return found->second;
  }
  return finders_.try_emplace(domain_id, domain_id, std::move(alias_entries_[domain_id]))
      .first->second;
}

bool PublishedDomains::IsUnknown(int domain_id, const std::string& destination, bool& unknown) {
  unknown = false;
  std::string local_part;
  std::string domain;
  int owner = domain_id;
  if (SplitAddress(destination, local_part, domain)) {
    owner = OwnerOf(forms_.Get(BASE::ToLowerAscii(domain)).punycode);
  } else {
    const LocalParts* found = NamesIn(domain_id).Find(destination);
    if (found == nullptr) {
      return false;
    }
    local_part = found->parts.empty() ? "" : found->parts.front();
  }
  bool has = true;
  if (owner >= 0 && !local_part.empty() && !NamesIn(owner).HasAddress(local_part, has)) {
    return false;
  }
  unknown = !has;
  return true;
}

}  // namespace MDOMAIN::API::INTERNAL

using namespace MDOMAIN::API::INTERNAL;  // NOLINT(google-build-using-namespace)

namespace {

bool AddWarnings(int domain_id, const std::list<BccInfo>& rules, PublishedDomains& domains,
                 std::vector<std::string>& warnings) {
  std::unordered_set<std::string> done;
  for (const BccInfo& rule : rules) {
    if (!done.insert(rule.bcc_to).second) {
      continue;
    }
    bool unknown = false;
    if (!domains.IsUnknown(domain_id, rule.bcc_to, unknown)) {
      return false;
    }
    if (unknown) {
      warnings.push_back(rule.bcc_to + ": nobody has this address");
    } else if (rule.bcc_to.find('@') == std::string::npos) {
      const std::string& reason = domains.NamesIn(domain_id).Find(rule.bcc_to)->reason;
      if (!reason.empty()) {
        warnings.push_back(rule.bcc_to + ": " + reason);
      }
    }
  }
  return true;
}

}  // namespace

int BCC::CheckDestinations(int domain_id, const std::list<BccInfo>& rules,
                           std::vector<std::string>& warnings) {
  PublishedDomains domains;
  return domains.Load() && AddWarnings(domain_id, rules, domains, warnings) ? 0 : -1;
}

int BCC::CheckAllDestinations(const std::map<int, std::list<BccInfo>>& rules,
                              std::map<int, std::vector<std::string>>& warnings) {
  PublishedDomains domains;
  if (rules.empty() || !domains.Load()) {
    return rules.empty() ? 0 : -1;
  }
  for (const auto& [domain_id, of_domain] : rules) {
    if (!AddWarnings(domain_id, of_domain, domains, warnings[domain_id])) {
      return -1;
    }
  }
  return 0;
}
