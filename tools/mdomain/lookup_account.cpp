// Users and groups from the mirror. Names are compared here and not in SQL, where a name could be
// taken for a pattern or for a column.
#include <algorithm>
#include <iterator>
#include <unordered_map>
#include <unordered_set>

#include "lib-domain/accounts/account_source.h"
#include "lib-domain/api/group.h"
#include "lib-domain/api/user.h"
#include "lib-domain/base/text.h"
#include "lib-domain/db/look_up.h"
#include "platform/include/account.h"
#include "platform/include/text.h"
#include "tools/mdomain/lookup.h"
#include "tools/mdomain/status.h"
#include "tools/mdomain/suggestion.h"

namespace mdomain {
namespace {

using MDOMAIN::RECORD::Group;
using MDOMAIN::RECORD::User;

// What differs between users and groups.
struct Users {
  using Record = User;
  using Api = MDOMAIN::API::User;
  using Filter = MDOMAIN::DB::UserDBFilter;
  static constexpr const char* kKind = "user";
  static constexpr const char* kList = "mdomain account users shows them";
  static unsigned int Id(const User& user) { return user.GetUID(); }
  static std::string Name(const User& user) { return user.GetUserName(); }
  static Filter ById(unsigned int uid) {
    Filter filter;
    filter.SetUIDs({uid});
    return filter;
  }
};

struct Groups {
  using Record = Group;
  using Api = MDOMAIN::API::Group;
  using Filter = MDOMAIN::DB::GroupDBFilter;
  static constexpr const char* kKind = "group";
  static constexpr const char* kList = "mdomain account groups shows them";
  static unsigned int Id(const Group& group) { return group.GetGID(); }
  static std::string Name(const Group& group) { return group.GetGroupName(); }
  static Filter ById(unsigned int gid) {
    Filter filter;
    filter.SetGIDs({gid});
    return filter;
  }
};

template <typename Kind>
using Records = std::vector<typename Kind::Record>;

template <typename Kind>
Records<Kind> List(const typename Kind::Filter& filter) {
  Records<Kind> records;
  if (!typename Kind::Api().List(filter, records)) {
    throw Failure(kFailed, std::string("the ") + Kind::kKind + "s could not be read");
  }
  return records;
}

bool AccountSystemKnows(const std::string& text, bool is_user) {
  std::string full_name;
  if (!MDOMAIN::UTILS::ShortName2RealName(is_user, text, full_name)) {
    return false;
  }
  if (is_user) {
    PKORVUser user = nullptr;
    const bool known = KORVUserGet(full_name.c_str(), &user) == 0;
    KORVUserFree(user);
    return known;
  }
  PKORVGroup group = nullptr;
  const bool known = KORVGroupGet(full_name.c_str(), &group) == 0;
  KORVGroupFree(group);
  return known;
}

// Records by each way to name one. The exact spelling wins over one that differs in letter case, a
// full name over a short one, both over an id. A text that could mean several ends the command.
template <typename Kind>
class Index {
 public:
  explicit Index(Records<Kind> records) : records_(std::move(records)) {
    for (size_t i = 0; i < records_.size(); ++i) {
      const std::string name = Kind::Name(records_[i]);
      by_name_[name].push_back(i);
      by_short_name_[TrimDomainName(name)].push_back(i);
      by_folded_name_[FoldAccountName(name)].push_back(i);
      by_folded_short_name_[FoldAccountName(TrimDomainName(name))].push_back(i);
      by_id_.emplace(Kind::Id(records_[i]), i);
    }
  }

  // Whether the text is the name of one as it is spelt.
  bool IsExact(const std::string& text) const {
    return by_name_.count(text) != 0 || by_short_name_.count(text) != 0;
  }
  const typename Kind::Record* Find(const std::string& text) const {
    const std::string folded = FoldAccountName(text);
    for (const auto& [names, key] :
         {std::pair(&by_name_, &text), std::pair(&by_short_name_, &text),
          std::pair(&by_folded_name_, &folded), std::pair(&by_folded_short_name_, &folded)}) {
      if (const auto found = names->find(*key); found != names->end()) {
        return &records_[OnlyOne(text, found->second)];
      }
    }
    unsigned int id = 0;
    if (MDOMAIN::BASE::ConvertToUID(text, id)) {
      if (const auto found = by_id_.find(id); found != by_id_.end()) {
        return &records_[found->second];
      }
    }
    return nullptr;
  }

 private:
  using Names = std::unordered_map<std::string, std::vector<size_t>>;

  size_t OnlyOne(const std::string& text, const std::vector<size_t>& numbers) const {
    std::vector<std::string> meant;
    meant.reserve(numbers.size());
    for (const size_t number : numbers) {
      meant.push_back("\"" + Kind::Name(records_[number]) + "\" (" +
                      std::to_string(Kind::Id(records_[number])) + ")");
    }
    if (meant.size() > 1) {
      throw Failure(kRefused, "\"" + text + "\" could mean " + MDOMAIN::BASE::Join(meant, ", ") +
                                  ": type one name or its id");
    }
    return numbers.front();
  }

  Records<Kind> records_;
  Names by_name_;
  Names by_short_name_;
  Names by_folded_name_;
  Names by_folded_short_name_;
  std::unordered_map<unsigned int, size_t> by_id_;
};

// Why no refresh brings this name from a Windows domain; empty when one may.
std::string NeverMirrored(const std::string& text, bool is_user) {
  AUTH_TYPE type = AUTH_UNKNOWN;
  std::string domain;
  if (!MDOMAIN::UTILS::DomainMailConfCurrentAuthTypeGet(type) || type != AUTH_WIN ||
      !MDOMAIN::UTILS::DomainMailConfWinDomainShortNameGet(domain)) {
    return {};
  }
  const size_t backslash = text.find('\\');
  if (backslash != std::string::npos &&
      FoldAccountName(text.substr(0, backslash)) != FoldAccountName(domain)) {
    return "it belongs to another domain, and only accounts of " + domain + " are mirrored";
  }
  const bool is_machine = is_user && !text.empty() && text.back() == '$';
  return is_machine ? "it is a machine's account, and these are not mirrored" : std::string();
}

template <typename Kind>
[[noreturn]] void Unknown(const std::string& text) {
  const std::string kind = Kind::kKind;
  const bool is_user = kind == Users::kKind;
  std::string message = "there is no " + kind + " \"" + text + "\"";
  std::string next = Kind::kList;
  const std::string never = NeverMirrored(text, is_user);
  if (!never.empty()) {
    message += " in the mirror: " + never;
  } else if (AccountSystemKnows(text, is_user)) {
    message += " in the mirror yet, only in the account system";
    next = "mdomain refresh";
  } else {
    const typename Kind::Filter everybody;
    std::vector<std::string> names;
    for (const auto& record : List<Kind>(everybody)) {
      names.push_back(Kind::Name(record));
    }
    message += DidYouMean(text, names);
  }
  throw Failure(kNotFound, message, next);
}

// The records of these names, and those whose ids the texts are.
template <typename Kind>
Records<Kind> ListNamed(const std::vector<std::string>& texts) {
  Records<Kind> records;
  if (!MDOMAIN::DB::INTERNAL::ListNamed(texts, records)) {
    throw Failure(kFailed, std::string("the ") + Kind::kKind + "s could not be read");
  }
  std::unordered_set<unsigned int> known;
  for (const auto& record : records) {
    known.insert(Kind::Id(record));
  }
  for (const std::string& text : texts) {
    unsigned int id = 0;
    if (MDOMAIN::BASE::ConvertToUID(text, id) && known.insert(id).second) {
      const Records<Kind> with_id = List<Kind>(Kind::ById(id));
      records.insert(records.end(), with_id.begin(), with_id.end());
    }
  }
  return records;
}

// The records among which the texts are looked for: those of these names. Only a text that is none
// of them as it was typed, and has letters whose case SQLite does not know, reads the mirror.
template <typename Kind>
Index<Kind> Candidates(const std::vector<std::string>& texts) {
  if (texts.empty()) {
    return Index<Kind>({});
  }
  Index<Kind> index(ListNamed<Kind>(texts));
  const bool is_settled = std::all_of(texts.begin(), texts.end(), [&](const std::string& text) {
    return text.empty() || index.IsExact(text) || !korvmailserver::HasNonAscii(text);
  });
  return is_settled ? std::move(index) : Index<Kind>(List<Kind>(typename Kind::Filter()));
}

template <typename Kind>
Records<Kind> FindAll(const std::vector<std::string>& texts) {
  const Index<Kind> index = Candidates<Kind>(texts);
  Records<Kind> found;
  std::unordered_set<unsigned int> seen;
  for (const std::string& text : texts) {
    const auto* record = text.empty() ? nullptr : index.Find(text);
    if (record == nullptr) {
      Unknown<Kind>(text);
    }
    if (seen.insert(Kind::Id(*record)).second) {
      found.push_back(*record);
    }
  }
  return found;
}

template <typename Kind>
std::vector<std::string> ShortNamesOf(const Records<Kind>& records) {
  std::vector<std::string> names;
  for (const auto& record : records) {
    names.push_back(TrimDomainName(Kind::Name(record)));
  }
  return names;
}

template <typename Kind>
std::vector<unsigned int> IdsOf(const Records<Kind>& records) {
  std::vector<unsigned int> ids;
  std::transform(records.begin(), records.end(), std::back_inserter(ids), Kind::Id);
  return ids;
}

}  // namespace

std::vector<User> ListUsers(const MDOMAIN::DB::UserDBFilter& filter) {
  return List<Users>(filter);
}
void ForEachUser(const MDOMAIN::DB::UserDBFilter& filter,
                 const std::function<void(const User&)>& use) {
  if (!MDOMAIN::API::User().ForEach(filter, use)) {
    throw Failure(kFailed, "the users could not be read");
  }
}
std::vector<Group> ListGroups(const MDOMAIN::DB::GroupDBFilter& filter) {
  return List<Groups>(filter);
}

std::vector<User> FindUsers(const std::vector<std::string>& texts) {
  return FindAll<Users>(texts);
}
std::vector<Group> FindGroups(const std::vector<std::string>& texts) {
  return FindAll<Groups>(texts);
}
User FindUser(const std::string& text) {
  return FindUsers({text}).front();
}
Group FindGroup(const std::string& text) {
  return FindGroups({text}).front();
}

std::vector<std::string> ShortNames(const std::vector<User>& users) {
  return ShortNamesOf<Users>(users);
}
std::vector<std::string> ShortNames(const std::vector<Group>& groups) {
  return ShortNamesOf<Groups>(groups);
}
std::vector<unsigned int> Ids(const std::vector<User>& users) {
  return IdsOf<Users>(users);
}
std::vector<unsigned int> Ids(const std::vector<Group>& groups) {
  return IdsOf<Groups>(groups);
}

}  // namespace mdomain
