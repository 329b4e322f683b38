// Creating, renaming and listing domains and their additional names. What hangs on a domain outside
// the domain database lies in domain_settings.cpp.
#include "lib-domain/control/domain.h"

#include <algorithm>
#include <locale>
#include <unordered_set>
#include <utility>

#include "lib-domain/base/error_code.h"
#include "lib-domain/base/log_line.h"
#include "lib-domain/control/departure.h"
#include "lib-domain/control/domain_internal.h"
#include "lib-domain/control/outside_settings.h"
#include "lib-domain/db/handler.h"
#include "lib-domain/utils/domain_backend_related.h"
#include "platform/include/eai.h"

namespace MDOMAIN::CONTROL {

namespace {

using korvmailserver::ErrorCode;
using korvmailserver::LogException;

// The throw site's line stands in the log, hence a macro.
#define THROW_LOGGED(code, message) \
  throw LogException(code, message, BASE::kLogError, BASE::SourcePath(__FILE__), __LINE__)

std::string UpperCase(std::string text) {
  const std::locale locale;
  const auto& letters = std::use_facet<std::ctype<char>>(locale);
  letters.toupper(text.data(), text.data() + text.size());
  return text;
}

std::string OtherSpelling(const std::string& name) {
  std::string other;
  return KORV::POSTARA_SERVER::ConvertToPunycodeOrUTF8(name, other) < 0 ? name : other;
}

}  // namespace

bool Domain::Create(RECORD::Domain& domain, int& new_domain_idx) {
  int next_idx = -1;
  if (!store_.GetNextDomainIDX(next_idx)) {
    LOG_ERROR("GetNextDomainID failed");
    return false;
  }
  domain.SetDomainIdx(next_idx);
  const std::string refusal = "Unable to create domain [" + domain.GetDomainName() + "]";
  if (!domain.IsValid()) {
    THROW_LOGGED(ErrorCode::ERR_INVALID_DOMAIN_NAME, refusal);
  }
  if (store_.IsDomainNameExist(domain.GetDomainName())) {
    THROW_LOGGED(ErrorCode::ERR_DUPLICATE_DOMAIN_NAME, refusal);
  }
  int count = 0;
  if (!store_.GetAllDomainCount(count)) {
    LOG_ERROR("Get domain count failed");
    return false;
  }
  if (!INTERNAL::ClearNewIndex(next_idx, domain.GetDomainName(), count == 0)) {
    LOG_ERROR("Failed to clear what stands under the index, domain_id: [%d]", next_idx);
    return false;
  }
  if (!store_.Create(domain)) {
    LOG_ERROR("Failed to Create domain");
    return false;
  }
  new_domain_idx = domain.GetDomainIdx();
  if (count == 0 && !store_.SetPrimaryDomain(new_domain_idx)) {
    LOG_ERROR("Failed to SetPrimaryDomain");
    return false;
  }
  if (!_InitDomainRelatedSettings(new_domain_idx)) {
    LOG_ERROR("Failed to _InitDomainRelatedSettings, domain_id: [%d]", new_domain_idx);
    return false;
  }
  return true;
}

bool Domain::Set(const RECORD::Domain& domain) {
  const std::string refusal = "Unable to set domain [" + domain.GetDomainName() + "]";
  if (!domain.IsValid()) {
    THROW_LOGGED(ErrorCode::ERR_INVALID_DOMAIN_NAME, refusal);
  }
  if (store_.IsDomainNameChanged(domain)) {
    if (store_.IsDomainNameExist(domain.GetDomainName())) {
      THROW_LOGGED(ErrorCode::ERR_DUPLICATE_DOMAIN_NAME, refusal);
    }
    _NotifyBelongedUsers({domain.GetDomainIdx()});
  }
  return store_.Set(domain);
}

bool Domain::Delete(const std::vector<int>& domain_idxs, bool allow_primary) {
  if (!allow_primary) {
    int primary_idx = -1;
    if (!store_.GetPrimaryDomainIdx(primary_idx)) {
      LOG_ERROR("Failed to GetPrimaryDomainIdx");
      return false;
    }
    if (std::find(domain_idxs.begin(), domain_idxs.end(), primary_idx) != domain_idxs.end()) {
      LOG_ERROR("Can't delete primary domain");
      return false;
    }
  }
  // Before the rows go: afterwards nobody could tell who the members were.
  _NotifyBelongedUsers(domain_idxs);
  if (!INTERNAL::DeleteDeparting(store_, domain_idxs)) {
    return false;
  }
  return _DeleteRelatedSettings(domain_idxs);
}

void Domain::_NotifyBelongedUsers(const std::vector<int>& domain_idxs) {
  std::vector<unsigned int> uids;
  if (!store_.GetBelongedUsers(domain_idxs, uids)) {
    LOG_ERROR("Failed to GetBelongedUsers");
  }
  if (!UTILS::NotifySMTPChangedUIDs(uids)) {
    LOG_ERROR("Failed to NotifySMTPChangedUIDs");
  }
}

bool Domain::SetPrimaryDomain(const int& domain_idx) {
  return store_.SetPrimaryDomain(domain_idx) && _UpdatePrimaryDomainRelatedSettings(domain_idx);
}

bool Domain::CreateAdditionalDomains(const int& domain_idx, const std::vector<std::string>& names,
                                     bool skip_existing) {
  std::vector<std::string> kept;
  for (const std::string& name : INTERNAL::EraseDuplicatedDomainNames(names)) {
    if (!store_.IsDomainNameExist(name)) {
      kept.push_back(name);
      continue;
    }
    if (!skip_existing) {
      THROW_LOGGED(ErrorCode::ERR_DUPLICATE_DOMAIN_NAME,
                   "Unable to create additional domain [" + name + "]");
    }
    LOG_NOTICE("domain_name [%s] exists, skipped", name.c_str());
  }
  return store_.CreateAdditionalDomains(domain_idx, kept);
}

bool Domain::SetAdditionalDomains(const int& domain_idx,
                                  const std::vector<std::string>& current_names,
                                  const std::vector<std::string>& new_names) {
  // One transaction, so that no other process sees, or keeps after a crash, the domain without its
  // names. An exception leaves it with the names that were put back.
  BatchScope scope(DB::DomainDBHandler::GetDomainDBHandler());
  if (!store_.DeleteAdditionalDomains(domain_idx, current_names)) {
    LOG_ERROR("Failed to DeleteAdditionalDomains, domain_id: [%d]", domain_idx);
    return false;
  }
  const std::vector<std::string> wanted = INTERNAL::EraseDuplicatedDomainNames(new_names);
  bool need_fall_back = false;
  for (const std::string& name : wanted) {
    if (store_.IsDomainNameExist(name)) {
      LOG_ERROR("domain name [%s] exists, need_fall_back", name.c_str());
      need_fall_back = true;
    }
  }
  if (need_fall_back) {
    if (!store_.CreateAdditionalDomains(domain_idx, current_names)) {
      LOG_ERROR("Failed to CreateAdditionalDomains, domain_id: [%d]", domain_idx);
    }
    THROW_LOGGED(ErrorCode::ERR_DUPLICATE_DOMAIN_NAME, "Unable to set additional domains");
  }
  if (!store_.CreateAdditionalDomains(domain_idx, wanted) || scope.Commit() != 0) {
    LOG_ERROR("Failed to CreateAdditionalDomains, domain_id: [%d]", domain_idx);
    return false;
  }
  return true;
}

bool Domain::DeleteAdditionalDomains(const int& domain_idx, const std::vector<std::string>& names) {
  return store_.DeleteAdditionalDomains(domain_idx, names);
}

bool Domain::ListAdditionalDomains(const int& domain_idx, std::vector<std::string>& names) {
  return store_.ListAdditionalDomains(domain_idx, names);
}

bool Domain::ListAllAdditionalDomains(std::map<int, std::vector<std::string>>& names_by_domain) {
  return store_.ListAllAdditionalDomains(names_by_domain);
}

bool Domain::List(DB::DomainDBFilter& filter, std::vector<RECORD::Domain>& domains) {
  return store_.List(filter, domains);
}

bool Domain::GetDomainCount(DB::DomainDBFilter& filter, int& count) {
  return store_.GetDomainCount(filter, count);
}

bool Domain::GetAllDomainCount(int& count) {
  return store_.GetAllDomainCount(count);
}

bool Domain::GetPrimaryDomain(RECORD::Domain& domain) {
  return store_.GetPrimaryDomain(domain);
}

bool Domain::GetPrimaryDomainIdx(int& domain_idx) {
  return store_.GetPrimaryDomainIdx(domain_idx);
}

bool Domain::GetDelegatedDomainIds(const unsigned int& uid, std::vector<int>& domain_idxs) {
  return store_.GetDelegatedDomainIds(uid, domain_idxs);
}

bool Domain::GetAutoAddingUserDomainIds(std::vector<int>& domain_idxs) {
  return store_.GetAutoAddingUserDomainIds(domain_idxs);
}

bool Domain::GetDomainNameByIdx(const int& domain_idx, std::string& name) {
  // Not List: that would count the domain's users for a name.
  std::vector<RECORD::Domain> domains;
  const bool listed = store_.ListNames(domains);
  const auto domain = std::find_if(domains.begin(), domains.end(), [&](const RECORD::Domain& one) {
    return one.GetDomainIdx() == domain_idx;
  });
  if (!listed || domain == domains.end()) {
    LOG_ERROR("Failed to GetDomainNameByIdx");
    return false;
  }
  name = domain->GetDomainName();
  return true;
}

bool Domain::IsAnyDomainsAdmin(const unsigned int& uid) {
  std::vector<int> domain_idxs;
  if (!store_.GetDelegatedDomainIds(uid, domain_idxs)) {
    LOG_ERROR("Failed to GetDelegatedDomainIds, uid = [%u]", uid);
    return false;
  }
  return !domain_idxs.empty();
}

bool Domain::IsDomainAdmin(const unsigned int& uid, const int& domain_idx) {
  std::vector<int> domain_idxs;
  if (!store_.GetDelegatedDomainIds(uid, domain_idxs)) {
    LOG_ERROR("Failed to GetDelegatedDomainIds, uid = [%u]", uid);
    return false;
  }
  return std::find(domain_idxs.begin(), domain_idxs.end(), domain_idx) != domain_idxs.end();
}

namespace INTERNAL {

bool IExists(const std::vector<std::string>& names, const std::string& name) {
  const std::string wanted = UpperCase(name);
  return std::any_of(names.begin(), names.end(), [&wanted](const std::string& held) {
    return held.size() == wanted.size() && UpperCase(held) == wanted;
  });
}

std::vector<std::string> EraseDuplicatedDomainNames(const std::vector<std::string>& names) {
  std::vector<std::string> kept;
  std::unordered_set<std::string> kept_upper;  // IExists over `kept` without a search per name
  for (const std::string& name : names) {
    if (name.empty() || kept_upper.count(UpperCase(name)) != 0 ||
        kept_upper.count(UpperCase(OtherSpelling(name))) != 0) {
      continue;
    }
    kept.push_back(name);
    kept_upper.insert(UpperCase(name));
  }
  return kept;
}

}  // namespace INTERNAL
}  // namespace MDOMAIN::CONTROL
