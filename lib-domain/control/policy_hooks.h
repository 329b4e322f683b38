// What the controls have removed from the per-domain mail policies (BCC rules, disclaimers).
//
// The policies are built on the controls, so these functions are only declared here. They are
// defined in lib-domain/api/bcc (hooks.cpp, departure.cpp) and lib-domain/api/disclaimer/hooks.cpp.
// Those that remove leave the log to the control that called; those that list log one line.
#ifndef LIB_DOMAIN_CONTROL_POLICY_HOOKS_H
#define LIB_DOMAIN_CONTROL_POLICY_HOOKS_H

#include <functional>
#include <set>
#include <string>
#include <vector>

#include "platform/include/export.h"

namespace MDOMAIN::CONTROL::INTERNAL {

enum class BccOutcome { kDone, kNoInstance, kFailed };
enum class DisclaimerOutcome { kDone, kLoadFailed, kListFailed, kSaveFailed };

// Whether a domain index is asked about.
using IndexFilter = std::function<bool(int domain_idx)>;

// Adds the indexes asked about that have a rule (a disclaimer or its text).
bool ListBccDomains(const IndexFilter& is_asked, std::set<int>& domain_idxs);
bool ListDisclaimerDomains(const IndexFilter& is_asked, std::set<int>& domain_idxs);

// Removes every rule of the domain, and of no other.
BccOutcome DeleteDomainBcc(int domain_idx);
// Removes the domain's rules whose destination is one of the account names, ignoring case. Then the
// rules for these accounts, and those for and to `aliases`, local parts that nobody in the domain
// has any more: bare, or at one of the domain's names. An alias that the alias table has stays.
BccOutcome DeleteUsersBcc(int domain_idx, const std::vector<std::string>& names,
                          const std::vector<std::string>& aliases = {});

// Where the maps of blind copies lie that the map compiler makes; the report is made last.
constexpr const char* kRecipientMap = "recipient_bcc";
constexpr const char* kSenderMap = "sender_bcc";
constexpr const char* kMapReport = "bcc_maps.json";
// Whether maps were made and would be others now; never where there is no map compiler. False with
// a log line when it cannot be told.
MDOMAIN_EXPORT bool AreBccMapsOld(bool& are_old);
// Makes them. False with a log line, and the old ones in place.
MDOMAIN_EXPORT bool MakeBccMaps();

// The key under which other machines find the settings database with the BCC rules.
constexpr const char* kBccFileKey = "bcc_db";
// Publishes that file under it.
bool PublishBccFile(const std::string& path);

// Empties the domain's disclaimer list and saves the settings that follow from all lists. They are
// saved, too, when the list cannot be emptied, which is logged where it fails.
DisclaimerOutcome DeleteDomainDisclaimers(int domain_idx);
// Adds the indexes whose texts of disclaimers a killed writer left beside their place, and those of
// domains in the model whose texts are in place and not published. False with a log line.
bool ListUnsettledTexts(const IndexFilter& is_in_model, std::set<int>& unsettled);
// Puts the texts of the stored list into place, removes others and publishes those in place. Texts
// that somebody is writing are left to them. False with a log line.
bool SettleTexts(int domain_idx);
// Removes the rules that name these users (groups) from the domain's disclaimers. False when the
// settings could not be loaded, changed or saved.
bool RemoveUsersFromDisclaimers(int domain_idx, const std::vector<unsigned int>& uids);
bool RemoveGroupsFromDisclaimers(int domain_idx, const std::vector<unsigned int>& gids);

}  // namespace MDOMAIN::CONTROL::INTERNAL

#endif  // LIB_DOMAIN_CONTROL_POLICY_HOOKS_H
