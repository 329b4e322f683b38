// Whole operations on domains: index, names, primary domain, and the settings kept elsewhere.
//
// Changes go to the domain database first and then to what hangs on a domain outside of it: limits
// in the settings database, alias table, BCC rules, disclaimers, DKIM. No transaction spans both: a
// failure behind the first database write leaves the rest undone and is reported as false with one
// log line. What belongs together in the database is one transaction, begun before the first
// look-up: two processes never get one index or one name. A look-up that fails is a failure of the
// operation. Only a taken name (3002) and a bad name (3003) are thrown, as
// korvmailserver::LogException, which logs itself.
#ifndef LIB_DOMAIN_CONTROL_DOMAIN_H
#define LIB_DOMAIN_CONTROL_DOMAIN_H

#include <map>
#include <string>
#include <vector>

#include "lib-domain/db/domain.h"
#include "lib-domain/db/domain_db_filter.h"
#include "lib-domain/record/domain.h"
#include "platform/include/export.h"

namespace MDOMAIN::CONTROL {

class MDOMAIN_EXPORT Domain {
 public:
  // Stores a new domain under the next free index, which is written into `domain` and
  // `new_domain_idx`; the first domain of the database becomes the primary one. Throws 3003 when
  // the record is not valid, 3002 when the name is taken by a domain or an additional domain, in
  // either spelling and whatever its case. A failure leaves nothing, unless the caller has a
  // BatchScope of its own, which decides.
  bool Create(RECORD::Domain& domain, int& new_domain_idx);

  // Rewrites the domain of the record's index; an unknown index changes nothing and succeeds.
  // Throws 3003 and 3002 like Create. A new name that differs only in letter case is taken too: by
  // the domain itself. After a change of name the domain's users count as changed for the SMTP
  // side.
  bool Set(const RECORD::Domain& domain);

  // Deletes domains with their members, aliases and outside settings. Refused as a whole when the
  // primary domain is among them, unless `allow_primary`. The settings of the domains are removed
  // one domain after the other; the first failure leaves the rest of them behind.
  bool Delete(const std::vector<int>& domain_idxs, bool allow_primary);

  bool SetPrimaryDomain(const int& domain_idx);

  // Adds further names, repeats in either spelling dropped. A taken name: with `skip_existing` it
  // is left out with a notice, else 3002 is thrown and nothing is stored. Names that are not valid
  // are left out with a warning.
  bool CreateAdditionalDomains(const int& domain_idx, const std::vector<std::string>& names,
                               bool skip_existing);

  // Replaces `current_names` by `new_names`. When one of the new names is taken, every such name is
  // logged, 3002 is thrown, and the domain has exactly the names that it had, whatever
  // `current_names` says; likewise, and false, when a name cannot be looked up.
  bool SetAdditionalDomains(const int& domain_idx, const std::vector<std::string>& current_names,
                            const std::vector<std::string>& new_names);

  // These forward to the store.
  bool DeleteAdditionalDomains(const int& domain_idx, const std::vector<std::string>& names);
  bool ListAdditionalDomains(const int& domain_idx, std::vector<std::string>& names);
  bool ListAllAdditionalDomains(std::map<int, std::vector<std::string>>& names_by_domain);
  bool List(DB::DomainDBFilter& filter, std::vector<RECORD::Domain>& domains);
  bool GetDomainCount(DB::DomainDBFilter& filter, int& count);
  bool GetAllDomainCount(int& count);
  bool GetPrimaryDomain(RECORD::Domain& domain);
  bool GetPrimaryDomainIdx(int& domain_idx);
  bool GetDelegatedDomainIds(const unsigned int& uid, std::vector<int>& domain_idxs);
  bool GetAutoAddingUserDomainIds(std::vector<int>& domain_idxs);

  // An unknown index is a failure; `name` is then untouched.
  bool GetDomainNameByIdx(const int& domain_idx, std::string& name);

  // Whether the user is "domain_admin" of some domain, of this domain. False also on failure.
  bool IsAnyDomainsAdmin(const unsigned int& uid);
  bool IsDomainAdmin(const unsigned int& uid, const int& domain_idx);

 private:
  bool _StoreNew(RECORD::Domain& domain, int& new_domain_idx);
  bool _FindName(const std::string& name, bool& taken);
  bool _DeleteRows(const std::vector<int>& domain_idxs, bool allow_primary);
  bool _InitDomainRelatedSettings(const int& domain_idx);
  // The hook for settings that follow the primary domain. There are none: succeeds.
  bool _UpdatePrimaryDomainRelatedSettings(const int& domain_idx);
  bool _DeleteRelatedSettings(const std::vector<int>& domain_idxs);
  bool _DeleteAliasRelatedSettings(const int& domain_idx);
  bool _DeleteUsageLimitRelatedSettings(const int& domain_idx);
  bool _DeleteBCCRelatedSettings(const int& domain_idx);
  bool _DeleteDisclaimerSettings(const int& domain_idx);
  bool _DeleteDKIMSettings(const int& domain_idx);
  void _NotifyBelongedUsers(const std::vector<int>& domain_idxs);

 protected:
  DB::Domain store_;
};

}  // namespace MDOMAIN::CONTROL

#endif  // LIB_DOMAIN_CONTROL_DOMAIN_H
