#include "lib-domain/sync/dead_end.h"

#include <algorithm>
#include <map>
#include <set>
#include <utility>

#include "lib-domain/base/log_line.h"
#include "lib-domain/base/paths.h"
#include "lib-domain/control/entry_names.h"
#include "lib-domain/db/domain.h"
#include "lib-domain/db/look_up.h"
#include "lib-domain/sync/mail_target.h"
#include "lib-domain/sync/owner_content.h"
#include "lib-domain/sync/postfix_maps.h"
#include "lib-domain/sync/special_address.h"
#include "platform/include/postfix_map.h"

namespace MDOMAIN::UTILS {

using korvmailserver::FoldMapKey;

namespace {

using Place = std::pair<int, std::string>;  // domain and folded local part

class Ways {
 public:
  bool Read() {
    std::vector<RECORD::DomainPart> names;
    std::vector<RECORD::Domain> domains;
    if (!target_.Read() || !CollectSpecialAddresses(target_, special_) ||
        !CollectDomainNames(names) || !DB::Domain().ListNames(domains)) {
      return false;
    }
    for (const RECORD::DomainPart& name : names) {
      if (!INTERNAL::IsTakenForAnother(name.GetDomainName())) {
        domains_.emplace(FoldMapKey(name.GetDomainName()), name.GetDomainIdx());
      }
    }
    for (const RECORD::Domain& domain : domains) {
      names_.emplace(domain.GetDomainIdx(), domain.GetDomainName());
    }
    return true;
  }

  const DB::INTERNAL::SpecialAddresses& Special() const { return special_; }

  // As if the entry were stored.
  bool Set(const ::Alias::Entry& entry) {
    std::string receivers;
    special_.erase({entry.domain_id, FoldMapKey(entry.name)});
    if (!ReceiversOf(target_, entry, receivers)) {
      return false;
    }
    special_[{entry.domain_id, FoldMapKey(entry.name)}] = {receivers, false};
    return true;
  }

  // What is wrong with the receivers of one of the special addresses.
  bool Check(const Place& place, std::vector<DeadEnd>& dead_ends) {
    const auto domain = names_.find(place.first);
    if (domain == names_.end()) {
      return true;
    }
    const std::string address = place.second + "@" + domain->second;
    const std::string& receivers = special_.at(place).addresses;
    if (receivers.empty()) {
      dead_ends.push_back({address, "", false});
    }
    for (const std::string& receiver : Split(receivers)) {
      Place next;
      std::set<Place> seen;
      if (!IsOurs(receiver, next)) {
        continue;
      }
      const Answer answer = _Ask(next);
      if (answer == Answer::kFailed) {
        return false;
      }
      if (answer == Answer::kNobody || (answer == Answer::kGoesOn && _Reaches(next, place, seen))) {
        dead_ends.push_back({address, receiver, answer == Answer::kGoesOn});
      }
    }
    return !has_failed_;
  }

 private:
  enum class Answer { kUser, kGoesOn, kNobody, kFailed };

  static std::vector<std::string> Split(const std::string& receivers) {
    std::vector<std::string> list;
    for (size_t begin = 0; begin < receivers.size();) {
      const size_t end = std::min(receivers.find(kSeparator, begin), receivers.size());
      list.push_back(receivers.substr(begin, end - begin));
      begin = end + std::string(kSeparator).size();
    }
    return list;
  }

  bool IsOurs(const std::string& address, Place& place) const {
    const size_t at = address.rfind('@');
    const auto domain =
        domains_.find(at == std::string::npos ? "" : FoldMapKey(address.substr(at + 1)));
    if (domain == domains_.end()) {
      return false;
    }
    place = {domain->second, FoldMapKey(address.substr(0, at))};
    return true;
  }

  // `place` becomes the one without what stands behind a "+", when it is that one that answers.
  Answer _Ask(Place& place) const {
    Answer answer = _AskExactly(place);
    const size_t plus = place.second.find('+', 1);
    if (answer == Answer::kNobody && plus != std::string::npos) {
      place.second.erase(plus);
      answer = _AskExactly(place);
    }
    return answer;
  }

  Answer _AskExactly(const Place& place) const {
    const auto special = special_.find(place);
    const bool is_special = special != special_.end() && !special->second.addresses.empty();
    if (is_special && !special->second.gives_way) {
      return Answer::kGoesOn;
    }
    std::vector<std::string> aliases = {place.second};
    std::vector<RECORD::DomainUser> holders;
    if (!CONTROL::INTERNAL::AddSameAddresses(place.first, aliases) ||
        !DB::INTERNAL::ListHoldersOf(place.first, aliases, holders)) {
      return Answer::kFailed;
    }
    for (const RECORD::DomainUser& holder : holders) {
      for (const auto& pair : holder.GetAliasDuplicatedPairs()) {
        if (!holder.GetRole().empty() && FoldMapKey(pair.first) == place.second) {
          return Answer::kUser;
        }
      }
    }
    return is_special ? Answer::kGoesOn : Answer::kNobody;
  }

  // Whether one leads to the other, over special addresses alone.
  bool _Reaches(const Place& from, const Place& to, std::set<Place>& seen) {
    if (from == to) {
      return true;
    }
    const auto special = special_.find(from);
    if (special == special_.end() || !seen.insert(from).second) {
      return false;
    }
    for (const std::string& receiver : Split(special->second.addresses)) {
      Place next;
      const Answer answer = IsOurs(receiver, next) ? _Ask(next) : Answer::kUser;
      has_failed_ = has_failed_ || answer == Answer::kFailed;
      if (answer == Answer::kGoesOn && _Reaches(next, to, seen)) {
        return true;
      }
    }
    return false;
  }

  MailTarget target_;
  DB::INTERNAL::SpecialAddresses special_;
  std::map<std::string, int> domains_;  // by every folded name
  std::map<int, std::string> names_;
  bool has_failed_ = false;  // a way could not be followed to its end
};

}  // namespace

bool ListDeadEnds(std::vector<DeadEnd>& dead_ends) {
  Ways ways;
  ::Alias table(PATHS::AliasDb());
  if (!ways.Read()) {
    return false;
  }
  if (table.load() < 0) {
    LOG_ERROR("Failed to load alias");
    return false;
  }
  for (const ::Alias::Entry& entry : table.list()) {
    const Place place = {entry.domain_id, FoldMapKey(entry.name)};
    if (ways.Special().count(place) == 0 && !ways.Set({entry.name, entry.domain_id, {}})) {
      return false;
    }
  }
  for (const auto& special : ways.Special()) {
    if (!ways.Check(special.first, dead_ends)) {
      return false;
    }
  }
  return true;
}

bool ListDeadEnds(const ::Alias::Entry& entry, std::vector<DeadEnd>& dead_ends) {
  Ways ways;
  return ways.Read() && ways.Set(entry) &&
         ways.Check({entry.domain_id, FoldMapKey(entry.name)}, dead_ends);
}

}  // namespace MDOMAIN::UTILS
