// The public interface for mail domains.
//
// Reading calls are those of CONTROL::Domain: List, GetDelegatedDomainIds, GetDomainCount,
// ListAdditionalDomains, IsAnyDomainsAdmin, IsDomainAdmin, GetDomainNameByIdx. Every changing call
// ends by publishing all domain data and is false when that fails, although the change stays: the
// error number 5635 says so.
// Objects are made per use. One thread at a time may use them, of all threads of a process: the
// connection that they share takes no lock of its own. A program with several threads guards all
// calls of the library with one mutex.
#ifndef LIB_DOMAIN_API_DOMAIN_H
#define LIB_DOMAIN_API_DOMAIN_H

#include <functional>
#include <string>
#include <vector>

#include "lib-domain/control/domain.h"
#include "lib-domain/record/domain.h"
#include "platform/include/export.h"

namespace MDOMAIN::API {

class MDOMAIN_EXPORT Domain : public CONTROL::Domain {
 public:
  // Creates a domain under the next free index, which is put into `domain` and `new_domain_idx`.
  // The first domain becomes the primary one. Nothing is created when the name is invalid (error
  // number 5633) or taken in either spelling by any domain or additional name (5618).
  bool Create(RECORD::Domain& domain, int& new_domain_idx);

  // Rewrites the domain of the record's index: name, description, pattern, automatic adding. An
  // index without a domain changes nothing and succeeds. Error numbers as Create; a new name that
  // differs from the old one in letter case only counts as taken.
  bool Set(const RECORD::Domain& domain);

  // Replaces `domains` by every domain with its index, name and primary flag alone, the primary one
  // first. No user is counted, so the cost does not grow with the users. False when they cannot be
  // read.
  bool ListNames(std::vector<RECORD::Domain>& domains);

  // Makes the domain the only primary one. False, with the old one still primary, when it does not
  // exist.
  bool SetPrimary(const int& domain_idx);

  // Deletes domains with their users' aliases, roles and mail settings. Nothing is deleted when the
  // primary domain is among them.
  bool Delete(const std::vector<int>& domain_idxs);

  // Adds further names. The first that is taken already stops the call, nothing is added, and the
  // error number is 5618; names that are no domain names are left out with a warning.
  bool CreateAdditionalDomains(const int& domain_idx, const std::vector<std::string>& names);

  // Replaces the names `old_names` by `new_names`. When one of the new ones is taken by another
  // domain the old ones are put back and the error number is 5618.
  bool SetAdditionalDomains(const int& domain_idx, const std::vector<std::string>& old_names,
                            const std::vector<std::string>& new_names);

  // Removes further names, spelt exactly as they are stored; others are ignored.
  bool DeleteAdditionalDomains(const int& domain_idx, const std::vector<std::string>& names);

  // Creates the first domain of an installation: primary, with every group of the account system,
  // followed by a refresh. When a step fails, the domain is deleted again and the one that was
  // primary before is so again; what the refresh mirrored stays. A process that is killed leaves
  // the domains as they were. Error numbers as Create, and 5634 when the account system cannot be
  // read as a whole or the refresh fails.
  bool CreatePrimary(RECORD::Domain& domain, int& new_domain_idx);

  // Brings an installation with one domain into the database: without any domain as CreatePrimary,
  // else the primary domain is set to the record (whose index is replaced). Then the further names
  // are removed and added anew, so that the call can be repeated.
  bool Migrate(RECORD::Domain& domain, const std::vector<std::string>& additional_domains);

  // The API error number of the last refusal: that of an exception, or 5634 (CreatePrimary); 0 when
  // there was none. A later success does not reset it, and a plain failure does not set it. 5635,
  // of the last changing call alone: the change is stored, and could not be published.
  unsigned int GetErrorCode() const { return error_code_; }

 private:
  bool _CreatePrimaryImp(RECORD::Domain& domain, int& new_domain_idx);
  bool _FillPrimary(int domain_idx);
  bool _MigrateImp(RECORD::Domain& domain, const std::vector<std::string>& additional_domains);
  void _TakeBack(const RECORD::Domain& domain, int created_idx, int primary_before);
  // Runs `operation`; an exception is turned into the error number and false.
  bool _Catch(const std::function<bool()>& operation);

  unsigned int error_code_ = 0;
};

namespace INTERNAL {

// Appends every domain with its user count, the primary one first. False with a log line when the
// database cannot be read.
MDOMAIN_EXPORT bool GetAllDomains(std::vector<RECORD::Domain>& domains);
// Puts the primary domain first; the others keep their order. Without one nothing changes.
MDOMAIN_EXPORT void MovePrimaryDomainToFront(std::vector<RECORD::Domain>& domains);

}  // namespace INTERNAL
}  // namespace MDOMAIN::API

#endif  // LIB_DOMAIN_API_DOMAIN_H
