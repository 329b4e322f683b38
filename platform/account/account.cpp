// The account operations under their fixed names, on top of the source in force: they translate
// outcomes into return values and error numbers, and say once what failed.
#include "platform/include/account.h"

#include <algorithm>
#include <cstring>
#include <iterator>

#include "platform/account/sources.h"
#include "platform/include/maillog.h"

using korvmailserver::account::GroupRow;
using korvmailserver::account::Outcome;
using korvmailserver::account::Source;
using korvmailserver::account::SourceFor;
using korvmailserver::account::SourceInForce;
using korvmailserver::account::UserRow;

namespace {

int last_error = KLIB_ERR_NONE;

int Failed(Source& source) {
  const std::string why = source.TakeError();
  if (!why.empty()) {
    maillog(korvmailserver::kLogError, "account system: %s", why.c_str());
  }
  last_error = KLIB_ERR_FAILED;
  return -1;
}

// 0 when found, else -1 with the error number set.
int Judge(Outcome outcome, int unknown_error, Source& source) {
  switch (outcome) {
    case Outcome::kFound:
      return 0;
    case Outcome::kUnknown:
      last_error = unknown_error;
      return -1;
    default:
      return Failed(source);
  }
}

int NoSuch(const UserRow& /*row*/) {
  return KLIB_ERR_NO_SUCH_USER;
}

int NoSuch(const GroupRow& /*row*/) {
  return KLIB_ERR_NO_SUCH_GROUP;
}

template <class Row>
int FindIn(Source& source, const char* name, Row& row) {
  return Judge(name == nullptr ? Outcome::kUnknown : source.Find(name, row), NoSuch(row), source);
}

template <class Row>
int Find(const char* name, Row& row) {
  return FindIn(*SourceInForce(), name, row);
}

template <class Row>
int Find(unsigned int id, Row& row) {
  const auto source = SourceInForce();
  return Judge(source->FindById(id, row), NoSuch(row), *source);
}

// Makes the caller's record of the account that has this name or id.
template <class Row, class Key, class Record>
int Get(Key key, Record** record) {
  Row row;
  if (Find(key, row) != 0) {
    return -1;
  }
  *record = new Record(row);
  return 0;
}

template <class Row>
int GetName(const char* name, char* buffer, size_t size) {
  Row row;
  if (Find(name, row) != 0) {
    return -1;
  }
  if (row.name.size() >= size) {
    last_error = KLIB_ERR_FAILED;
    return -1;
  }
  std::memcpy(buffer, row.name.c_str(), row.name.size() + 1);
  return 0;
}

}  // namespace

int KLIBCErrGet() {
  return last_error;
}

long KLIBUserInfoEnum(AUTH_TYPE type, const char* domain, unsigned int offset, unsigned int limit,
                      KLIBUserInfoCallback callback, void* context) {
  const auto source = SourceFor(type, domain);
  const auto users = source->Users();
  if (users == nullptr) {
    return Failed(*source);
  }
  unsigned int number = 0;
  unsigned int handed_out = 0;
  for (const UserRow& user : users->rows()) {
    if (!user.listed || number++ < offset) {
      continue;
    }
    if (handed_out++ == limit || callback(user.name.c_str(), user.uid, context) != 0) {
      break;
    }
  }
  return users->listed() + users->gaps().missing;
}

int KLIBGroupEnum(PKLIBCSzList* list, AUTH_TYPE type, const char* domain) {
  const auto source = SourceFor(type, domain);
  const auto groups = source->Groups();
  if (groups == nullptr) {
    return Failed(*source);
  }
  int count = 0;
  const auto push = [&](const std::string& name) {
    count++;
    return KLIBCSzListPush(list, name.c_str()) > 0;
  };
  bool pushed = true;
  for (const GroupRow& group : groups->rows()) {
    pushed = pushed && (!group.listed || push(group.name));
  }
  // The caller learns of a gap when it looks up a name and fails.
  bool told = groups->complete();
  for (const std::string& name : groups->gaps().names) {
    if (groups->ByName(name) == nullptr) {
      pushed = pushed && push(name);
      told = true;
    }
  }
  pushed = pushed && (told || push("(missing: " + groups->gaps().why + ")"));
  if (!pushed) {
    last_error = KLIB_ERR_FAILED;
    return -1;
  }
  return count;
}

int KORVUserGet(const char* name, PKORVUser* user) {
  return Get<UserRow>(name, user);
}

int KORVUserGetByUID(unsigned int uid, PKORVUser* user) {
  return Get<UserRow>(uid, user);
}

void KORVUserFree(PKORVUser user) {
  delete user;
}

int KORVUserGetUGID(const char* name, uid_t* uid, gid_t* gid) {
  UserRow row;
  if (Find(name, row) != 0) {
    return -1;
  }
  if (uid != nullptr) {
    *uid = row.uid;
  }
  if (gid != nullptr) {
    *gid = row.gid;
  }
  return 0;
}

int KORVGroupGet(const char* name, PKORVGroup* group) {
  return Get<GroupRow>(name, group);
}

int KORVGroupGetByGID(unsigned int gid, PKORVGroup* group) {
  return Get<GroupRow>(gid, group);
}

void KORVGroupFree(PKORVGroup group) {
  delete group;
}

int KORVGroupDescGet(const char* name, std::string& description) {
  GroupRow row;
  if (Find(name, row) != 0) {
    return -1;
  }
  description = row.description;
  return 0;
}

int KORVGroupListMember(const char* name, PKLIBCSzList list) {
  const auto source = SourceInForce();
  std::vector<std::string> names;
  const Outcome outcome = name == nullptr ? Outcome::kUnknown : source->ListMembers(name, names);
  if (Judge(outcome, KLIB_ERR_NO_SUCH_GROUP, *source) != 0) {
    return -1;
  }
  std::move(names.begin(), names.end(), std::back_inserter(list->items));
  return 0;
}

bool KORVUserIsInternal(const char* name) {
  const bool called_internal =
      name != nullptr && korvmailserver::account::IsCalledInternal(TrimDomainName(name));
  const auto source = SourceInForce();
  UserRow row;
  if ((!called_internal && name != nullptr && !source->MayBeInternal(name)) ||
      FindIn(*source, name, row) != 0) {
    return false;
  }
  return called_internal || !row.listed || row.internal;
}

int KLIBUserRealNameGet(const char* name, char* buffer, size_t size) {
  return GetName<UserRow>(name, buffer, size);
}

int KLIBGroupRealNameGet(const char* name, char* buffer, size_t size) {
  return GetName<GroupRow>(name, buffer, size);
}

namespace korvmailserver {

AccountSnapshot::AccountSnapshot() {
  account::EnterSnapshot();
}

AccountSnapshot::~AccountSnapshot() {
  account::LeaveSnapshot();
}

FewAccounts::FewAccounts() {
  account::EnterFew();
}

FewAccounts::~FewAccounts() {
  account::LeaveFew();
}

void FewAccounts::Expect(const std::vector<std::string>& names) {
  if (account::IsFewOpen()) {
    SourceInForce()->Expect(names);
  }
}

bool ListMemberUsers(AUTH_TYPE type, const std::vector<std::string>& groups,
                     std::vector<KORVUser>& users) {
  std::vector<UserRow> rows;
  if (type != AUTH_LOCAL || !SourceFor(type, nullptr)->ListMemberUsers(groups, rows)) {
    return false;
  }
  std::move(rows.begin(), rows.end(), std::back_inserter(users));
  return true;
}

bool ForEachPlainGroup(const std::vector<std::string>& groups, const PlainGroupVisitor& use) {
  return SourceInForce()->ForEachPlainGroup(groups, use);
}

}  // namespace korvmailserver
