#include "lib-domain/insight/disclaimer_reach.h"

#include <algorithm>
#include <set>

#include "lib-domain/base/domain_name.h"
#include "lib-domain/base/text.h"
#include "lib-domain/db/domain_user.h"
#include "lib-domain/db/group.h"
#include "lib-domain/insight/address_pattern.h"
#include "lib-domain/insight/reading.h"

namespace MDOMAIN::INSIGHT {

namespace {

constexpr size_t kNamed = 10;

// A rule that can be asked for one address after the other.
class Rule {
 public:
  explicit Rule(const Json::Value& rule)
      : is_pattern_(rule["pattern_type"] == "email"),
        pattern_(is_pattern_ ? ComparedForm(rule["pattern"].asString()) : "") {
    unsigned int id = 0;
    if (is_pattern_ || !BASE::ConvertToUID(rule["pattern"].asString(), id)) {
      return;
    }
    std::vector<unsigned int> uids = {id};
    if (rule["pattern_type"] == "gid") {
      uids.clear();
      RequireRead(DB::Group().ListGroupToUsers(id, uids), "the members of a group");
    }
    uids_.insert(uids.begin(), uids.end());
  }

  bool IsAbout(unsigned int uid, const std::string& address) const {
    return is_pattern_ ? Fits(pattern_, address) : uids_.count(uid) != 0;
  }

 private:
  bool is_pattern_;
  std::string pattern_;
  std::set<unsigned int> uids_;
};

// What the rules say of one side of a message.
class Side {
 public:
  Side(const Json::Value& disclaimer, const char* target)
      : needs_all_(disclaimer["op"] == "and"),
        rules_(_RulesOf(disclaimer["match_rule_list"], target)),
        exceptions_(_RulesOf(disclaimer["exception_rule_list"], target)) {}

  bool HasRules() const { return !rules_.empty(); }
  bool HasExceptions() const { return !exceptions_.empty(); }

  // Whether the address has the text where the other side allows it.
  bool Fits(unsigned int uid, const std::string& address) const {
    const auto is_about = [&](const Rule& rule) { return rule.IsAbout(uid, address); };
    const bool fits = needs_all_ ? std::all_of(rules_.begin(), rules_.end(), is_about)
                                 : std::any_of(rules_.begin(), rules_.end(), is_about);
    return HasRules() && fits && std::none_of(exceptions_.begin(), exceptions_.end(), is_about);
  }

 private:
  static std::vector<Rule> _RulesOf(const Json::Value& list, const char* target) {
    std::vector<Rule> rules;
    for (const Json::Value& rule : list) {
      if (rule["target"] == target) {
        rules.emplace_back(rule);
      }
    }
    return rules;
  }

  bool needs_all_;
  std::vector<Rule> rules_;
  std::vector<Rule> exceptions_;
};

void KeepFirst(mdomain::AffectedPeople& people) {
  const size_t kept = std::min(kNamed, people.names.size());
  std::partial_sort(people.names.begin(), people.names.begin() + static_cast<long>(kept),
                    people.names.end());
  people.count = people.names.size();
  people.names.resize(kept);
}

}  // namespace

// An alias counts for the one who gets its mail.
mdomain::DisclaimerReach ReachOf(const KnownDomain& domain, const Json::Value& disclaimer) {
  const Side senders(disclaimer, "sender");
  const Side recipients(disclaimer, "recipient");
  std::vector<std::string> names = {BASE::AsciiForm(domain.name)};
  for (const std::string& name : domain.additional_names) {
    names.push_back(BASE::AsciiForm(name));
  }
  std::vector<RECORD::DomainUser> users;
  RequireRead(DB::DomainUser().List(domain.idx, users), "the users of the domain");
  mdomain::DisclaimerReach reach;
  reach.people = users.size();
  const bool is_and = disclaimer["op"] == "and";
  reach.depends_on_other_side = (is_and && senders.HasRules() && recipients.HasRules()) ||
                                senders.HasExceptions() || recipients.HasExceptions() ||
                                disclaimer["disabled_for_local_recipient"] == Json::Value(true);
  for (const RECORD::DomainUser& user : users) {
    bool sends = false;
    bool gets = false;
    for (const auto& [alias, is_taken] : user.GetAliasDuplicatedPairs()) {
      const std::string local = is_taken ? "" : BASE::ToLowerAscii(alias) + "@";
      for (const std::string& name : is_taken ? std::vector<std::string>() : names) {
        sends = sends || senders.Fits(user.GetUID(), local + name);
        gets = gets || recipients.Fits(user.GetUID(), local + name);
      }
    }
    if (sends) {
      reach.senders.names.push_back(user.GetUserName());
    }
    if (gets) {
      reach.recipients.names.push_back(user.GetUserName());
    }
  }
  KeepFirst(reach.senders);
  KeepFirst(reach.recipients);
  return reach;
}

}  // namespace MDOMAIN::INSIGHT
