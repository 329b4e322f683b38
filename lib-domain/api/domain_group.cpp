#include "lib-domain/api/domain_group.h"

#include "lib-domain/api/trigger.h"
#include "lib-domain/base/log_line.h"
#include "lib-domain/control/departure.h"
#include "lib-domain/utils/updater.h"
#include "platform/include/nodes.h"

namespace MDOMAIN::API {

namespace {

unsigned int& ErrorCode() {
  return INTERNAL::ErrorCodeOf("DomainGroup");
}

}  // namespace

unsigned int DomainGroup::GetErrorCode() {
  return ErrorCode();
}

bool DomainGroup::GetMemberStatus(
    const int& domain_idx, const unsigned int& gid,
    std::vector<std::tuple<unsigned int, std::string, std::string>>& members) {
  return CheckMemberStatus(domain_idx, gid, members);
}

bool DomainGroup::Set(const std::vector<RECORD::DomainGroupRole>& roles) {
  const korvmailserver::PublicationScope publication;
  ErrorCode() = 0;
  if (!CONTROL::DomainGroup::Set(roles)) {
    LOG_ERROR("Failed to Set domain_group_role");
    return false;
  }
  return INTERNAL::PublishChange(ErrorCode());
}

bool DomainGroup::Delete(const int& domain_idx, const std::vector<unsigned int>& gids) {
  const korvmailserver::PublicationScope publication;
  ErrorCode() = 0;
  if (!CONTROL::DomainGroup::Delete(domain_idx, gids)) {
    LOG_ERROR("Failed to delete domain groups, domain_id: [%d]", domain_idx);
    INTERNAL::FinishLeftovers();
    return false;
  }
  return INTERNAL::PublishChange(ErrorCode());
}

bool DomainGroup::RestoreMemberStatus(const int& domain_idx,
                                      const std::vector<unsigned int>& gids) {
  const korvmailserver::PublicationScope publication;
  ErrorCode() = 0;
  // Whoever comes back must not be taken out by what is left of an earlier removal.
  if (!CONTROL::INTERNAL::FinishDepartures() ||
      !CONTROL::DomainGroup::RestoreMemberStatus(domain_idx, gids)) {
    LOG_ERROR("Failed to RestoreMemberStatus");
    return false;
  }
  return _AddAndTrigger(domain_idx);
}

bool DomainGroup::RestoreMemberStatus(const int& domain_idx, const unsigned int& gid,
                                      const std::vector<unsigned int>& uids) {
  const korvmailserver::PublicationScope publication;
  ErrorCode() = 0;
  if (!CONTROL::INTERNAL::FinishDepartures() ||
      !CONTROL::DomainGroup::RestoreMemberStatus(domain_idx, gid, uids)) {
    LOG_ERROR("Failed to RestoreMemberStatus, domain_id: [%d], gid: [%u]", domain_idx, gid);
    return false;
  }
  return _AddAndTrigger(domain_idx);
}

bool DomainGroup::_AddAndTrigger(int domain_idx) {
  if (!UTILS::Updater().AutoAddNewUsers({domain_idx})) {
    LOG_ERROR("Failed to AutoAddNewUsers, domain_id: [%d]", domain_idx);
    return false;
  }
  return INTERNAL::PublishChange(ErrorCode());
}

}  // namespace MDOMAIN::API
