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
#include "lib-domain/control/notice.h"
#include "lib-domain/control/outside_settings.h"
#include "lib-domain/db/handler.h"
#include "lib-domain/db/model_state.h"
#include "platform/include/batch_scope.h"
#include "platform/include/eai.h"

namespace MDOMAIN::CONTROL {

namespace {

using DB::INTERNAL::Content;
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

// The controls log what was not done; this line says why.
bool IsCommitted(BatchScope& scope) {
  if (scope.Commit() == 0) {
    return true;
  }
  const DB::DomainDBHandler* const handler = DB::DomainDBHandler::GetDomainDBHandler();
  if (handler == nullptr) {
    return false;
  }
  LOG_WARNING("Cannot commit to database [%s]: %s", handler->GetPath().c_str(),
              handler->GetErrText().c_str());
  return false;
}

}  // namespace

// Half a domain would be in the way of the next try. One that a killed process leaves without its
// settings is completed by the reconcile step.
bool Domain::Create(RECORD::Domain& domain, int& new_domain_idx) {
  {
    BatchScope scope(DB::DomainDBHandler::GetDomainDBHandler());
    if (!_StoreNew(domain, new_domain_idx)) {
      scope.Drop();
      return false;
    }
    if (!IsCommitted(scope)) {
      LOG_ERROR("Failed to Create domain");
      return false;
    }
  }
  if (!_InitDomainRelatedSettings(new_domain_idx)) {
    LOG_ERROR("Failed to _InitDomainRelatedSettings, domain_id: [%d]", new_domain_idx);
    _DeleteRows({new_domain_idx}, true);
    return false;
  }
  return true;
}

// One transaction, begun before anything is read: no other process takes the index or the name in
// between, and no first domain is without the primary mark after a crash.
bool Domain::_StoreNew(RECORD::Domain& domain, int& new_domain_idx) {
  int next_idx = -1;
  if (!DB::INTERNAL::BeginWriting() || !store_.GetNextDomainIDX(next_idx)) {
    LOG_ERROR("GetNextDomainID failed");
    return false;
  }
  domain.SetDomainIdx(next_idx);
  const std::string refusal = "Unable to create domain [" + domain.GetDomainName() + "]";
  if (!domain.IsValid()) {
    THROW_LOGGED(ErrorCode::ERR_INVALID_DOMAIN_NAME, refusal);
  }
  bool taken = false;
  if (!_FindName(domain.GetDomainName(), taken)) {
    return false;
  }
  if (taken) {
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
  return true;
}

// A name that cannot be looked up is not free: whoever wants it gives up.
bool Domain::_FindName(const std::string& name, bool& taken) {
  if (!store_.FindName(name, taken)) {
    LOG_ERROR("Failed to look up domain name [%s]", name.c_str());
    return false;
  }
  return true;
}

bool Domain::Set(const RECORD::Domain& domain) {
  const std::string refusal = "Unable to set domain [" + domain.GetDomainName() + "]";
  if (!domain.IsValid()) {
    THROW_LOGGED(ErrorCode::ERR_INVALID_DOMAIN_NAME, refusal);
  }
  // The name is still free when it is written.
  BatchScope scope(DB::DomainDBHandler::GetDomainDBHandler());
  std::string stored = domain.GetDomainName();
  if (!DB::INTERNAL::BeginWriting() || !store_.GetName(domain.GetDomainIdx(), stored)) {
    LOG_ERROR("Failed to look up the name of domain_id: [%d]", domain.GetDomainIdx());
    return false;
  }
  if (stored != domain.GetDomainName()) {
    bool taken = false;
    if (!_FindName(domain.GetDomainName(), taken)) {
      return false;
    }
    if (taken) {
      THROW_LOGGED(ErrorCode::ERR_DUPLICATE_DOMAIN_NAME, refusal);
    }
    _NotifyBelongedUsers({domain.GetDomainIdx()});
  }
  return store_.Set(domain) && IsCommitted(scope);
}

bool Domain::Delete(const std::vector<int>& domain_idxs, bool allow_primary) {
  const INTERNAL::GivenNotice notice;
  if (!_DeleteRows(domain_idxs, allow_primary)) {
    return false;
  }
  // Within a caller's transaction the departure on record waits for the reconcile step.
  return BatchScope::IsAnyOpen() || _DeleteRelatedSettings(domain_idxs);
}

bool Domain::_DeleteRows(const std::vector<int>& domain_idxs, bool allow_primary) {
  BatchScope scope(DB::DomainDBHandler::GetDomainDBHandler());
  Content before = Content::kNothing;
  if (!DB::INTERNAL::BeginWriting() || !DB::INTERNAL::GetContent(before)) {
    return false;
  }
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
  const bool marked = before != Content::kDomains || DB::INTERNAL::SetEmptiedIfEmpty();
  return marked && IsCommitted(scope);
}

void Domain::_NotifyBelongedUsers(const std::vector<int>& domain_idxs) {
  std::vector<unsigned int> uids;
  if (!store_.GetBelongedUsers(domain_idxs, uids)) {
    LOG_ERROR("Failed to GetBelongedUsers");
  }
  if (!INTERNAL::Announce(uids)) {
    LOG_ERROR("Failed to NotifySMTPChangedUIDs");
  }
}

bool Domain::SetPrimaryDomain(const int& domain_idx) {
  return store_.SetPrimaryDomain(domain_idx) && _UpdatePrimaryDomainRelatedSettings(domain_idx);
}

bool Domain::CreateAdditionalDomains(const int& domain_idx, const std::vector<std::string>& names,
                                     bool skip_existing) {
  // The names are still free when they are written.
  BatchScope scope(DB::DomainDBHandler::GetDomainDBHandler());
  if (!DB::INTERNAL::BeginWriting()) {
    return false;
  }
  std::vector<std::string> kept;
  for (const std::string& name : INTERNAL::EraseDuplicatedDomainNames(names)) {
    bool taken = false;
    if (!_FindName(name, taken)) {
      return false;
    }
    if (!taken) {
      kept.push_back(name);
      continue;
    }
    if (!skip_existing) {
      THROW_LOGGED(ErrorCode::ERR_DUPLICATE_DOMAIN_NAME,
                   "Unable to create additional domain [" + name + "]");
    }
    LOG_NOTICE("domain_name [%s] exists, skipped", name.c_str());
  }
  return store_.CreateAdditionalDomains(domain_idx, kept) && IsCommitted(scope);
}

bool Domain::SetAdditionalDomains(const int& domain_idx,
                                  const std::vector<std::string>& current_names,
                                  const std::vector<std::string>& new_names) {
  // One transaction, so that no other process sees, or keeps after a crash, the domain without its
  // names. An exception leaves it with the names that were put back.
  BatchScope scope(DB::DomainDBHandler::GetDomainDBHandler());
  std::vector<std::string> stored;
  if (!DB::INTERNAL::BeginWriting() || !store_.ListAdditionalDomains(domain_idx, stored) ||
      !store_.DeleteAdditionalDomains(domain_idx, current_names)) {
    LOG_ERROR("Failed to DeleteAdditionalDomains, domain_id: [%d]", domain_idx);
    return false;
  }
  const std::vector<std::string> wanted = INTERNAL::EraseDuplicatedDomainNames(new_names);
  bool need_fall_back = false;
  bool looked_up = true;
  for (const std::string& name : wanted) {
    bool taken = false;
    looked_up = _FindName(name, taken) && looked_up;
    if (taken) {
      LOG_ERROR("domain name [%s] exists, need_fall_back", name.c_str());
      need_fall_back = true;
    }
  }
  // What was stored and not what the caller believes to be: `current_names` may be wrong.
  if ((need_fall_back || !looked_up) && !store_.RestoreAdditionalDomains(domain_idx, stored)) {
    LOG_ERROR("Failed to CreateAdditionalDomains, domain_id: [%d]", domain_idx);
  }
  if (need_fall_back) {
    THROW_LOGGED(ErrorCode::ERR_DUPLICATE_DOMAIN_NAME, "Unable to set additional domains");
  }
  if (!looked_up) {
    return false;
  }
  if (!store_.CreateAdditionalDomains(domain_idx, wanted) || !IsCommitted(scope)) {
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
