// What is to be removed outside the domain database for users, groups and domains that went, and
// the promise that it will be: who leaves is recorded in the transaction that deletes the rows.
//
// Rules of blind copies, members of the alias table and rules of disclaimers name accounts and
// addresses. Left in place they would serve whoever gets the name next.
#ifndef LIB_DOMAIN_CONTROL_DEPARTURE_H
#define LIB_DOMAIN_CONTROL_DEPARTURE_H

#include <string>
#include <vector>

#include "lib-domain/db/departure.h"
#include "lib-domain/db/domain.h"
#include "platform/include/export.h"

namespace MDOMAIN::CONTROL {

class Group;
class User;

namespace INTERNAL {

// Record who leaves which domain, then delete the rows. When the deletion fails nobody has left,
// and nothing stays recorded.
bool DeleteDeparting(User& users, const std::vector<unsigned int>& uids);
bool DeleteDeparting(Group& groups, const std::vector<unsigned int>& gids);
bool DeleteDeparting(DB::Domain& domains, const std::vector<int>& domain_idxs);

// The aliases of users who left the domain that nobody in it had any more. False with a log line.
bool ListDepartedAliases(int domain_idx, std::vector<std::string>& aliases);

// Drops the record of deleted domains whose settings are gone, or were never theirs. False with a
// log line that names what is left when there is something, and the record stays.
bool ForgetClearedDomains(const std::vector<int>& domain_idxs);

// Finishes what is recorded: what a killed or failed run left, and what a refresh deleted. Every
// domain is tried; each step that fails is one log line, and its record stays for the next run.
// Does nothing while the model has no domain, except for domains whose deletion is recorded. Where
// what stands under the indexes is another model's, nothing is removed and the record is dropped.
MDOMAIN_EXPORT bool FinishDepartures();

// Adds one line for each domain with something to finish, and whether the domain itself was
// deleted.
struct PendingDeparture {
  int domain_idx;
  std::string deleted_name;        // of a deleted domain, else empty
  std::vector<unsigned int> uids;  // of users who left, or whose removal did not end
};
MDOMAIN_EXPORT bool ListPendingDepartures(std::vector<PendingDeparture>& pending);

}  // namespace INTERNAL
}  // namespace MDOMAIN::CONTROL

#endif  // LIB_DOMAIN_CONTROL_DEPARTURE_H
