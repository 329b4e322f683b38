// Users and groups from the mirror. Names are compared here and not in SQL, where a name could be
// taken for a pattern or for a column.
#include <unordered_map>
#include <unordered_set>

#include "lib-domain/accounts/account_source.h"
#include "lib-domain/api/group.h"
#include "lib-domain/api/user.h"
#include "lib-domain/base/text.h"
#include "platform/include/account.h"
#include "tools/mdomain/lookup.h"
#include "tools/mdomain/status.h"

namespace mdomain {
namespace {

using MDOMAIN::BASE::ToLowerAscii;
using MDOMAIN::RECORD::Group;
using MDOMAIN::RECORD::User;

unsigned int Id(const User& user) {
  return user.GetUID();
}
unsigned int Id(const Group& group) {
  return group.GetGID();
}
std::string Name(const User& user) {
  return user.GetUserName();
}
std::string Name(const Group& group) {
  return group.GetGroupName();
}
constexpr const char* Kind(const User* /*type*/) {
  return "user";
}
constexpr const char* Kind(const Group* /*type*/) {
  return "group";
}

// `query` narrows the answer to names that contain it; empty: all.
std::vector<User> List(const std::string& query, const User* /*type*/) {
  MDOMAIN::DB::UserDBFilter filter;
  filter.SetQuery(query);
  std::vector<User> users;
  if (!MDOMAIN::API::User().List(filter, users)) {
    throw Failure(kFailed, "the users could not be read");
  }
  return users;
}
std::vector<Group> List(const std::string& query, const Group* /*type*/) {
  MDOMAIN::DB::GroupDBFilter filter;
  filter.SetQuery(query);
  std::vector<Group> groups;
  if (!MDOMAIN::API::Group().List(filter, groups)) {
    throw Failure(kFailed, "the groups could not be read");
  }
  return groups;
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

// Records by each way to name one. A full name wins over a short one, both over an id.
template <typename Record>
class Index {
 public:
  explicit Index(std::vector<Record> records) : records_(std::move(records)) {
    for (size_t i = 0; i < records_.size(); ++i) {
      by_name_.emplace(ToLowerAscii(Name(records_[i])), i);
      by_short_name_.emplace(ToLowerAscii(TrimDomainName(Name(records_[i]))), i);
      by_id_.emplace(Id(records_[i]), i);
    }
  }

  const Record* Find(const std::string& text) const {
    const std::string key = ToLowerAscii(text);
    if (const auto found = by_name_.find(key); found != by_name_.end()) {
      return &records_[found->second];
    }
    if (const auto found = by_short_name_.find(key); found != by_short_name_.end()) {
      return &records_[found->second];
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
  std::vector<Record> records_;
  std::unordered_map<std::string, size_t> by_name_;
  std::unordered_map<std::string, size_t> by_short_name_;
  std::unordered_map<unsigned int, size_t> by_id_;
};

template <typename Record>
[[noreturn]] void Unknown(const std::string& text) {
  const Record* type = nullptr;
  const std::string kind = Kind(type);
  std::string message = "there is no " + kind + " \"" + text + "\"";
  if (AccountSystemKnows(text, kind == "user")) {
    message += " in the mirror yet, only in the account system: run mdomain refresh";
  }
  throw Failure(kNotFound, message);
}

// One name asks for the few records that contain it; many names read the mirror once.
template <typename Record>
std::vector<Record> FindAll(const std::vector<std::string>& texts) {
  unsigned int id = 0;
  const bool narrow = texts.size() == 1 && !MDOMAIN::BASE::ConvertToUID(texts[0], id);
  const Record* type = nullptr;
  const Index<Record> index(texts.empty() ? std::vector<Record>()
                                          : List(narrow ? texts[0] : "", type));
  std::vector<Record> found;
  std::unordered_set<unsigned int> seen;
  for (const std::string& text : texts) {
    const Record* record = text.empty() ? nullptr : index.Find(text);
    if (record == nullptr) {
      Unknown<Record>(text);
    }
    if (seen.insert(Id(*record)).second) {
      found.push_back(*record);
    }
  }
  return found;
}

template <typename Record>
std::vector<std::string> ShortNamesOf(const std::vector<Record>& records) {
  std::vector<std::string> names;
  names.reserve(records.size());
  for (const Record& record : records) {
    names.push_back(TrimDomainName(Name(record)));
  }
  return names;
}

template <typename Record>
std::vector<unsigned int> IdsOf(const std::vector<Record>& records) {
  std::vector<unsigned int> ids;
  ids.reserve(records.size());
  for (const Record& record : records) {
    ids.push_back(Id(record));
  }
  return ids;
}

}  // namespace

std::vector<User> FindUsers(const std::vector<std::string>& texts) {
  return FindAll<User>(texts);
}
std::vector<Group> FindGroups(const std::vector<std::string>& texts) {
  return FindAll<Group>(texts);
}
User FindUser(const std::string& text) {
  return FindUsers({text}).front();
}
Group FindGroup(const std::string& text) {
  return FindGroups({text}).front();
}

std::vector<std::string> ShortNames(const std::vector<User>& users) {
  return ShortNamesOf(users);
}
std::vector<std::string> ShortNames(const std::vector<Group>& groups) {
  return ShortNamesOf(groups);
}
std::vector<unsigned int> Ids(const std::vector<User>& users) {
  return IdsOf(users);
}
std::vector<unsigned int> Ids(const std::vector<Group>& groups) {
  return IdsOf(groups);
}

std::map<unsigned int, std::string> UserNames() {
  std::map<unsigned int, std::string> names;
  const User* type = nullptr;
  for (const User& user : List("", type)) {
    names.emplace(user.GetUID(), user.GetUserName());
  }
  return names;
}

Json::Value NamedUsers(const std::vector<unsigned int>& uids) {
  Json::Value array(Json::arrayValue);
  const std::map<unsigned int, std::string> names =
      uids.empty() ? std::map<unsigned int, std::string>() : UserNames();
  for (const unsigned int uid : uids) {
    Json::Value user;
    user["uid"] = uid;
    const auto name = names.find(uid);
    user["name"] = name == names.end() ? "" : name->second;
    array.append(user);
  }
  return array;
}

}  // namespace mdomain
