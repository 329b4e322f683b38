#include "lib-domain/api/domain.h"

#include <algorithm>

#include "lib-domain/accounts/account_source.h"
#include "lib-domain/api/trigger.h"
#include "lib-domain/base/error_code.h"
#include "lib-domain/base/log_line.h"
#include "lib-domain/control/domain_group.h"
#include "lib-domain/db/handler.h"
#include "lib-domain/db/model_state.h"
#include "lib-domain/utils/updater.h"
#include "platform/include/account.h"
#include "platform/include/batch_scope.h"
#include "platform/include/nodes.h"

namespace MDOMAIN::API {

bool Domain::_Catch(const std::function<bool()>& operation) {
  const korvmailserver::PublicationScope publication;
  INTERNAL::BeginChange(error_code_);
  try {
    return operation();
  } catch (const korvmailserver::LogException& exception) {
    error_code_ = BASE::ToApiError(exception.code);
    return false;
  }
}

bool Domain::Create(RECORD::Domain& domain, int& new_domain_idx) {
  return _Catch([&] {
    if (!CONTROL::Domain::Create(domain, new_domain_idx)) {
      LOG_ERROR("Failed to Create domain");
      return false;
    }
    return INTERNAL::PublishChange(error_code_);
  });
}

bool Domain::Set(const RECORD::Domain& domain) {
  return _Catch([&] {
    if (!CONTROL::Domain::Set(domain)) {
      LOG_ERROR("Failed to Set domain, domain_name: [%s]", domain.GetDomainName().c_str());
      return false;
    }
    return INTERNAL::PublishChange(error_code_);
  });
}

bool Domain::SetPrimary(const int& domain_idx) {
  INTERNAL::BeginChange(error_code_);
  if (!SetPrimaryDomain(domain_idx)) {
    LOG_ERROR("Failed to SetPrimaryDomain, domain_id: [%d]", domain_idx);
    return false;
  }
  return INTERNAL::PublishChange(error_code_);
}

bool Domain::Delete(const std::vector<int>& domain_idxs) {
  const korvmailserver::PublicationScope publication;
  INTERNAL::BeginChange(error_code_);
  if (!CONTROL::Domain::Delete(domain_idxs, false)) {
    LOG_ERROR("Failed to Delete domain_ids");
    INTERNAL::FinishLeftovers();
    return false;
  }
  return INTERNAL::PublishChange(error_code_);
}

bool Domain::CreateAdditionalDomains(const int& domain_idx, const std::vector<std::string>& names) {
  return _Catch([&] {
    if (!CONTROL::Domain::CreateAdditionalDomains(domain_idx, names, false)) {
      LOG_ERROR("Failed to CreateAdditionalDomains for domain_id: [%d]", domain_idx);
      return false;
    }
    return INTERNAL::PublishChange(error_code_);
  });
}

bool Domain::SetAdditionalDomains(const int& domain_idx, const std::vector<std::string>& old_names,
                                  const std::vector<std::string>& new_names) {
  return _Catch([&] {
    if (!CONTROL::Domain::SetAdditionalDomains(domain_idx, old_names, new_names)) {
      LOG_ERROR("Failed to UpdateAdditionalDomains for domain_id[%d]", domain_idx);
      return false;
    }
    return INTERNAL::PublishChange(error_code_);
  });
}

bool Domain::DeleteAdditionalDomains(const int& domain_idx, const std::vector<std::string>& names) {
  INTERNAL::BeginChange(error_code_);
  if (!CONTROL::Domain::DeleteAdditionalDomains(domain_idx, names)) {
    LOG_ERROR("Failed to DeleteAdditionalDomains for domain_id[%d]", domain_idx);
    return false;
  }
  return INTERNAL::PublishChange(error_code_);
}

bool Domain::CreatePrimary(RECORD::Domain& domain, int& new_domain_idx) {
  const korvmailserver::PublicationScope publication;
  INTERNAL::BeginChange(error_code_);
  if (!_CreatePrimaryImp(domain, new_domain_idx)) {
    LOG_ERROR("Failed to _CreatePrimaryImp");
    return false;
  }
  return INTERNAL::PublishChange(error_code_);
}

// One transaction: whoever is killed in it leaves the domains and the primary one as they were. A
// failure takes the new domain back within it; what the refresh mirrored is committed.
bool Domain::_CreatePrimaryImp(RECORD::Domain& domain, int& new_domain_idx) {
  BatchScope scope(DB::DomainDBHandler::GetDomainDBHandler());
  int primary_before = 0;
  if (!DB::INTERNAL::BeginWriting() || !GetPrimaryDomainIdx(primary_before)) {
    LOG_ERROR("Failed to GetPrimaryDomainIdx");
    return false;
  }
  int created_idx = 0;
  const bool created = _Catch([&] {
    if (!CONTROL::Domain::Create(domain, created_idx)) {
      LOG_ERROR("Failed to Create domain, domain_name: [%s]", domain.GetDomainName().c_str());
      return false;
    }
    return true;
  });
  new_domain_idx = created_idx != 0 ? created_idx : new_domain_idx;
  if (!created || !_FillPrimary(created_idx)) {
    _TakeBack(domain, created_idx, primary_before);
    return false;
  }
  if (scope.Commit() != 0) {
    LOG_ERROR("Failed to Create domain, domain_name: [%s]", domain.GetDomainName().c_str());
    return false;
  }
  return true;
}

// A creation that stopped behind the row leaves a domain, too.
void Domain::_TakeBack(const RECORD::Domain& domain, int created_idx, int primary_before) {
  if (created_idx == 0) {
    return;
  }
  if (primary_before != 0 && !SetPrimaryDomain(primary_before)) {
    LOG_ERROR("Failed to SetPrimaryDomain, domain_id: [%d]", primary_before);
  }
  if (!CONTROL::Domain::Delete({created_idx}, true)) {
    LOG_ERROR(
        "Failed to Delete domain, domain_name: [%s], may be unable to create primary domain with "
        "the same name",
        domain.GetDomainName().c_str());
  }
  DB::INTERNAL::ClearEmptied();  // nobody deleted the last domain on purpose
}

// Everything between the creation of the first domain and its publication.
bool Domain::_FillPrimary(int domain_idx) {
  const korvmailserver::AccountSnapshot snapshot;
  if (!SetPrimaryDomain(domain_idx)) {
    LOG_ERROR("Failed to SetPrimaryDomain, domain_id: [%d]", domain_idx);
    return false;
  }
  std::vector<RECORD::Group> groups;
  bool complete = false;
  if (!UTILS::TryToGetAllZelmGroups(groups, complete) || !complete) {
    LOG_ERROR("Failed to GetAllZelmGroups");
    error_code_ = BASE::kApiErrorAccounts;
    return false;
  }
  if (!CONTROL::DomainGroup().Create(domain_idx, groups)) {
    LOG_ERROR("Failed to create domain groups, new_primary_domain_id: [%d]", domain_idx);
    return false;
  }
  if (!UTILS::Updater().Refresh()) {
    LOG_ERROR("Failed to Refresh");
    error_code_ = BASE::kApiErrorAccounts;
    return false;
  }
  return true;
}

bool Domain::Migrate(RECORD::Domain& domain, const std::vector<std::string>& additional_domains) {
  return _Catch([&] {
    return _MigrateImp(domain, additional_domains) && INTERNAL::PublishChange(error_code_);
  });
}

// One transaction: whoever is killed in it does not leave the domain without its further names.
bool Domain::_MigrateImp(RECORD::Domain& domain,
                         const std::vector<std::string>& additional_domains) {
  BatchScope scope(DB::DomainDBHandler::GetDomainDBHandler());
  int count = 0;
  if (!GetAllDomainCount(count)) {
    LOG_ERROR("Failed to GetAllDomainCount");
    return false;
  }
  int domain_idx = -1;  // where no domain is primary the record is refused as invalid
  if (count != 0) {
    if (!GetPrimaryDomainIdx(domain_idx)) {
      LOG_ERROR("Failed to GetPrimaryDomainIdx");
      return false;
    }
    domain.SetDomainIdx(domain_idx);
    if (!CONTROL::Domain::Set(domain)) {
      LOG_ERROR("Failed to Set domain, domain_id: [%d]", domain_idx);
      return false;
    }
  } else if (!_CreatePrimaryImp(domain, domain_idx)) {
    LOG_ERROR("Failed to _CreatePrimaryImp");
    return false;
  }
  if (!CONTROL::Domain::DeleteAdditionalDomains(domain_idx, additional_domains)) {
    LOG_ERROR("Failed to DeleteAdditionalDomains, domain_id: [%d]", domain_idx);
    return false;
  }
  if (!CONTROL::Domain::CreateAdditionalDomains(domain_idx, additional_domains, false) ||
      scope.Commit() != 0) {
    LOG_ERROR("Failed to CreateAdditionalDomains for domain_id: [%d]", domain_idx);
    return false;
  }
  return true;
}

bool Domain::ListNames(std::vector<RECORD::Domain>& domains) {
  domains.clear();
  if (!store_.ListNames(domains)) {
    LOG_ERROR("Failed to List domains");
    return false;
  }
  INTERNAL::MovePrimaryDomainToFront(domains);
  return true;
}

namespace INTERNAL {

bool GetAllDomains(std::vector<RECORD::Domain>& domains) {
  DB::DomainDBFilter filter;
  filter.SetLimit(-1);
  if (!CONTROL::Domain().List(filter, domains)) {
    LOG_ERROR("Failed to List domains");
    return false;
  }
  MovePrimaryDomainToFront(domains);
  return true;
}

void MovePrimaryDomainToFront(std::vector<RECORD::Domain>& domains) {
  const auto primary =
      std::find_if(domains.begin(), domains.end(),
                   [](const RECORD::Domain& domain) { return domain.IsPrimary(); });
  if (primary != domains.end()) {
    std::rotate(domains.begin(), primary, primary + 1);
  }
}

}  // namespace INTERNAL
}  // namespace MDOMAIN::API
