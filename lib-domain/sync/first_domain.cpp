// The first domain of an installation that had one domain in the older settings.

#include <list>

#include "lib-domain/accounts/account_source.h"
#include "lib-domain/base/log_line.h"
#include "lib-domain/control/domain.h"
#include "lib-domain/control/domain_group.h"
#include "lib-domain/db/handler.h"
#include "lib-domain/utils/updater.h"
#include "platform/include/account.h"
#include "platform/include/batch_scope.h"
#include "platform/include/mail_conf.h"
#include "platform/include/smtp_conf.h"

namespace MDOMAIN::UTILS {

namespace {

// The settings' further names of the main domain.
bool GetAdditionalNames(const std::string& main_domain, std::vector<std::string>& names) {
  SmtpConf conf;
  if (conf.LoadSettings() < 0) {
    LOG_ERROR("Failed to load smtpConf settings");
    return false;
  }
  const int domain_idx = conf.GetDomainId(main_domain);
  std::list<std::string> found;
  if (domain_idx < 0) {
    found = conf.GetCanonicalDomain();
  } else if (conf.GetAdditionalDomainList(domain_idx, found) < 0) {
    LOG_ERROR("Failed to GetAdditionalDomainList, domain_id: [%d]", domain_idx);
    return false;
  }
  names.assign(found.begin(), found.end());
  return true;
}

bool CreateFirstDomain(const std::string& main_domain, const std::vector<std::string>& names,
                       int& domain_idx) {
  CONTROL::Domain control;
  RECORD::Domain domain(main_domain);
  if (!control.Create(domain, domain_idx)) {
    LOG_ERROR("Failed to create domain, domain name: [%s]", main_domain.c_str());
    return false;
  }
  // The older settings may list the domain itself among its further names.
  if (!control.CreateAdditionalDomains(domain_idx, names, true)) {
    LOG_ERROR("Failed to create additional domains, domain_id: [%d]", domain_idx);
    return false;
  }
  return true;
}

bool AddAllGroups(int domain_idx) {
  std::vector<RECORD::Group> groups;
  bool complete = false;
  if (!TryToGetAllZelmGroups(groups, complete)) {
    LOG_ERROR("Failed to GetAllZelmGroups");
    return false;
  }
  if (!CONTROL::DomainGroup().Create(domain_idx, groups)) {
    LOG_ERROR("Failed to create domain groups, new_primary_domain_id: [%d]", domain_idx);
    return false;
  }
  return true;
}

}  // namespace

bool Updater::InitDBIfNotExists() {
  DB::DomainDBFilter filter;
  int count = 0;
  if (!CONTROL::Domain().GetDomainCount(filter, count)) {
    LOG_ERROR("Failed to GetDomainCount");
    return false;
  }
  if (count > 0) {
    return true;
  }
  std::string main_domain;
  if (mailConfGet("smtp_main_domain", main_domain) < 0) {
    LOG_ERROR("Failed to mailConfGet smtp main domain");
    return false;
  }
  if (main_domain.empty() || main_domain == "localdomain") {
    return true;
  }
  const korvmailserver::AccountSnapshot snapshot;
  std::vector<std::string> names;
  int domain_idx = 0;
  if (!GetAdditionalNames(main_domain, names)) {
    return false;
  }
  // One transaction: whoever is killed in it leaves no domain without its names, which the next
  // call would take for a finished one.
  BatchScope scope(DB::DomainDBHandler::GetDomainDBHandler());
  const bool done =
      CreateFirstDomain(main_domain, names, domain_idx) && AddAllGroups(domain_idx) && Refresh();
  if (scope.Commit() != 0) {
    LOG_ERROR("Failed to create domain, domain name: [%s]", main_domain.c_str());
    return false;
  }
  return done;
}

}  // namespace MDOMAIN::UTILS
