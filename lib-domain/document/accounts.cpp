#include "lib-domain/document/accounts.h"

#include "lib-domain/control/group.h"
#include "lib-domain/control/user.h"
#include "lib-domain/document/problem.h"
#include "platform/include/account.h"

namespace MDOMAIN::DOCUMENT {

void SiteAccountList::Add(unsigned int id, const std::string& full_name) {
  const size_t number = accounts_.size();
  accounts_.push_back({id, full_name, TrimDomainName(full_name)});
  by_id_.emplace(id, number);
  by_name_[accounts_.back().name].push_back(number);
}

void SiteAccountList::End() {
  for (SiteAccount& account : accounts_) {
    if (by_name_[account.name].size() > 1) {
      account.name = account.full_name;
    }
  }
  // One spelling after the other: a nearer one that names somebody is never hidden by the next.
  by_name_.clear();
  const auto add = [this](std::string (*spelling)(const SiteAccount&)) {
    std::unordered_map<std::string, std::vector<size_t>> more;
    for (size_t i = 0; i < accounts_.size(); ++i) {
      more[spelling(accounts_[i])].push_back(i);
    }
    by_name_.merge(more);
  };
  add([](const SiteAccount& account) { return account.name; });
  add([](const SiteAccount& account) { return account.full_name; });
  add([](const SiteAccount& account) { return FoldAccountName(account.name); });
  add([](const SiteAccount& account) { return FoldAccountName(account.full_name); });
}

const SiteAccount* SiteAccountList::Find(const std::string& name) const {
  auto found = by_name_.find(name);
  if (found == by_name_.end()) {
    found = by_name_.find(FoldAccountName(name));
  }
  const bool is_one = found != by_name_.end() && found->second.size() == 1;
  return is_one ? &accounts_[found->second.front()] : nullptr;
}

const SiteAccount* SiteAccountList::FindId(unsigned int id) const {
  const auto found = by_id_.find(id);
  return found == by_id_.end() ? nullptr : &accounts_[found->second];
}

unsigned int SiteAccountList::Id(const std::string& name) const {
  return Find(name)->id;
}

SiteAccounts::SiteAccounts() {
  const auto add = [this](const RECORD::User& user) {
    users.Add(user.GetUID(), user.GetUserName());
  };
  std::vector<RECORD::Group> records;
  if (!CONTROL::User().ForEach(DB::UserDBFilter(), add) ||
      !CONTROL::Group().List(DB::GroupDBFilter(), records)) {
    throw Problem(Problem::kFailed, "the users and groups could not be read");
  }
  for (const RECORD::Group& group : records) {
    groups.Add(group.GetGID(), group.GetGroupName());
  }
  users.End();
  groups.End();
}

}  // namespace MDOMAIN::DOCUMENT
