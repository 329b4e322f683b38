// Recording departures and finishing them.
#include "lib-domain/control/departure.h"

#include <list>
#include <map>
#include <set>

#include "lib-domain/base/log_line.h"
#include "lib-domain/base/paths.h"
#include "lib-domain/base/text.h"
#include "lib-domain/control/domain_user.h"
#include "lib-domain/control/group.h"
#include "lib-domain/control/notice.h"
#include "lib-domain/control/outside_settings.h"
#include "lib-domain/control/policy_hooks.h"
#include "lib-domain/control/user.h"
#include "lib-domain/db/model_state.h"
#include "lib-domain/db/published_model.h"
#include "lib-domain/db/read_scope.h"
#include "platform/include/alias.h"
#include "platform/include/batch_scope.h"

namespace MDOMAIN::CONTROL::INTERNAL {

namespace {

using Leavers = std::vector<std::pair<unsigned int, std::string>>;

std::vector<unsigned int> IdsOf(const Leavers& leavers) {
  std::vector<unsigned int> ids;
  for (const auto& leaver : leavers) {
    ids.push_back(leaver.first);
  }
  return ids;
}

std::list<std::string> NamesOf(const Leavers& leavers) {
  std::list<std::string> names;
  for (const auto& leaver : leavers) {
    if (!leaver.second.empty()) {
      names.push_back(leaver.second);
    }
  }
  return names;
}

bool RemoveFromAliases(int domain_idx, const DB::DomainDepartures& departed) {
  const std::list<std::string> users = NamesOf(departed.users);
  const std::list<std::string> groups = NamesOf(departed.groups);
  if (users.empty() && groups.empty()) {
    return true;
  }
  Alias alias(PATHS::AliasDb());
  return alias.load() >= 0 && alias.delDomainUserMember(domain_idx, users) >= 0 &&
         alias.delDomainGroupMember(domain_idx, groups) >= 0;
}

bool RemoveFromBcc(int domain_idx, const DB::DomainDepartures& departed) {
  const std::list<std::string> names = NamesOf(departed.users);
  return (names.empty() && departed.aliases.empty()) ||
         DeleteUsersBcc(domain_idx, {names.begin(), names.end()}, departed.aliases) ==
             BccOutcome::kDone;
}

bool RemoveFromDisclaimers(int domain_idx, const DB::DomainDepartures& departed) {
  return (departed.users.empty() ||
          RemoveUsersFromDisclaimers(domain_idx, IdsOf(departed.users))) &&
         (departed.groups.empty() ||
          RemoveGroupsFromDisclaimers(domain_idx, IdsOf(departed.groups)));
}

// Every step is tried, and one that fails is named.
bool CleanUp(int domain_idx, const DB::DomainDepartures& departed) {
  const struct {
    const char* what;
    std::string place;
    bool is_done;
  } steps[] = {
      {"alias members", PATHS::AliasDb(), RemoveFromAliases(domain_idx, departed)},
      {"BCC rules", PATHS::SettingsDb(), RemoveFromBcc(domain_idx, departed)},
      {"disclaimer rules", PATHS::DisclaimerDir(), RemoveFromDisclaimers(domain_idx, departed)},
  };
  bool is_done = true;
  for (const auto& step : steps) {
    if (!step.is_done) {
      LOG_ERROR("Failed to remove the %s of those who left, domain_id: [%d], place: [%s]",
                step.what, domain_idx, step.place.c_str());
      is_done = false;
    }
  }
  return is_done;
}

// What is left of them in the model itself.
bool FinishRemovals(int domain_idx, const DB::DomainDepartures& departed) {
  if (!departed.removals.empty() && !DomainUser().Delete(domain_idx, departed.removals)) {
    LOG_ERROR("Failed to finish the removal of users, domain_id: [%d]", domain_idx);
    return false;
  }
  return true;
}

// What was on record at one moment.
struct Record {
  std::map<int, DB::DomainDepartures> departures;
  std::string version;  // of the model then; empty when it is not known

  bool Read() {
    const DB::ReadScope of_one_moment;
    if (!DB::Departure().List(departures)) {
      return false;
    }
    if (!departures.empty() && !DB::INTERNAL::GetDataVersion(version)) {
      version.clear();
    }
    return true;
  }
};

// Under the lock of a BatchScope. All rows at once go without a look at each.
bool ForgetFinished(const Record& record, int domain_idx, const DB::DomainDepartures& departed) {
  DB::Departure store;
  std::string now;
  if (record.departures.size() == 1 && !record.version.empty() &&
      DB::INTERNAL::GetDataVersion(now) && now == record.version) {
    return store.DeleteAll();
  }
  return store.DeleteFinished(domain_idx, IdsOf(departed.users), IdsOf(departed.groups)) &&
         (!departed.is_domain_deleted || store.DeleteDomains({domain_idx}));
}

bool Finish(const Record& record, int domain_idx, const DB::DomainDepartures& departed) {
  if (!FinishRemovals(domain_idx, departed) || !CleanUp(domain_idx, departed)) {
    return false;
  }
  BatchScope scope(DB::DomainDBHandler::GetDomainDBHandler());
  if (!DB::INTERNAL::BeginWriting() || !ForgetFinished(record, domain_idx, departed)) {
    return false;
  }
  if (scope.Commit() != 0) {
    LOG_ERROR("Failed to commit what is done with those who left");
    return false;
  }
  return true;
}

bool ListModel(std::set<int>& domain_idxs) {
  std::vector<RECORD::Domain> domains;
  if (!DB::Domain().ListNames(domains)) {
    LOG_ERROR("Failed to List domains");
    return false;
  }
  for (const RECORD::Domain& domain : domains) {
    domain_idxs.insert(domain.GetDomainIdx());
  }
  return true;
}

// They had nothing under the indexes: it is another model's.
bool Forget(const std::map<int, DB::DomainDepartures>& departures) {
  std::set<int> model;
  if (!ListModel(model)) {
    return false;
  }
  std::vector<int> forgotten;
  for (const auto& [domain_idx, departed] : departures) {
    if (model.count(domain_idx) == 0 || FinishRemovals(domain_idx, departed)) {
      forgotten.push_back(domain_idx);
    }
  }
  return DB::Departure().DeleteDomains(forgotten) && forgotten.size() == departures.size();
}

bool FinishAll(const Record& record) {
  std::set<int> model;
  if (!ListModel(model)) {
    return false;
  }
  bool is_finished = true;
  for (const auto& [domain_idx, departed] : record.departures) {
    if (model.count(domain_idx) != 0) {
      is_finished = Finish(record, domain_idx, departed) && is_finished;
    } else if (!model.empty() || departed.is_domain_deleted) {
      is_finished = ClearIndex(domain_idx) && is_finished;
    }
  }
  return is_finished;
}

}  // namespace

bool DeleteDeparting(User& users, const std::vector<unsigned int>& uids) {
  DB::Departure store;
  if (!store.AddUsers(DB::Departure::kEveryDomain, uids)) {
    return false;
  }
  return users.Delete(uids) || (store.DeleteUsers(DB::Departure::kEveryDomain, uids) && false);
}

bool DeleteDeparting(Group& groups, const std::vector<unsigned int>& gids) {
  DB::Departure store;
  if (!store.AddGroups(DB::Departure::kEveryDomain, gids)) {
    return false;
  }
  return groups.Delete(gids) || (store.DeleteGroups(DB::Departure::kEveryDomain, gids) && false);
}

bool DeleteDeparting(DB::Domain& domains, const std::vector<int>& domain_idxs) {
  BatchScope scope(DB::DomainDBHandler::GetDomainDBHandler());
  DB::Departure store;
  if (!store.AddDomains(domain_idxs)) {
    return false;
  }
  if (!domains.Delete(domain_idxs)) {
    store.DeleteDomains(domain_idxs);
    return false;
  }
  if (scope.Commit() != 0) {
    LOG_ERROR("Failed to commit the deletion of domains");
    return false;
  }
  return true;
}

bool ListDepartedAliases(int domain_idx, std::vector<std::string>& aliases) {
  std::map<int, DB::DomainDepartures> departures;
  if (!DB::Departure().List(departures)) {
    return false;
  }
  aliases = departures[domain_idx].aliases;
  return true;
}

bool ForgetClearedDomains(const std::vector<int>& domain_idxs) {
  for (const int domain_idx : domain_idxs) {
    std::vector<std::string> left;
    if (!ListUnderIndex(domain_idx, left)) {
      return false;
    }
    if (!left.empty()) {
      LOG_ERROR("The deleted domain still has %s, domain_id: [%d]", BASE::Join(left, ", ").c_str(),
                domain_idx);
      return false;
    }
  }
  return domain_idxs.empty() || GivenNotice::ForgetWith([&domain_idxs] {
           return DB::Departure().DeleteDomains(domain_idxs);
         });
}

bool FinishDepartures() {
  Record record;
  bool are_foreign = false;
  if (!record.Read()) {
    return false;
  }
  if (record.departures.empty()) {
    return true;
  }
  if (!DB::INTERNAL::AreSettingsForeign(are_foreign)) {
    return false;
  }
  return are_foreign ? Forget(record.departures) : FinishAll(record);
}

bool ListPendingDepartures(std::vector<PendingDeparture>& pending) {
  std::map<int, DB::DomainDepartures> departures;
  if (!DB::Departure().List(departures)) {
    return false;
  }
  for (const auto& [domain_idx, departed] : departures) {
    pending.push_back({domain_idx, departed.is_domain_deleted ? departed.domain_name : "",
                       IdsOf(departed.users)});
  }
  return true;
}

}  // namespace MDOMAIN::CONTROL::INTERNAL
