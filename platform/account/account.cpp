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
    maillog(3, "account system: %s", why.c_str());
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

int FindUser(const char* name, UserRow& row) {
  const auto source = SourceInForce();
  return Judge(name == nullptr ? Outcome::kUnknown : source->FindUser(name, row),
               KLIB_ERR_NO_SUCH_USER, *source);
}

int FindGroup(const char* name, GroupRow& row) {
  const auto source = SourceInForce();
  return Judge(name == nullptr ? Outcome::kUnknown : source->FindGroup(name, row),
               KLIB_ERR_NO_SUCH_GROUP, *source);
}

int CopyName(const std::string& name, char* buffer, size_t size) {
  if (name.size() >= size) {
    last_error = KLIB_ERR_FAILED;
    return -1;
  }
  std::memcpy(buffer, name.c_str(), name.size() + 1);
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
  // A name that cannot be looked up is how the caller learns of a gap.
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
  UserRow row;
  if (FindUser(name, row) != 0) {
    return -1;
  }
  *user = new KORVUser(row);
  return 0;
}

int KORVUserGetByUID(unsigned int uid, PKORVUser* user) {
  UserRow row;
  const auto source = SourceInForce();
  if (Judge(source->FindUserById(uid, row), KLIB_ERR_NO_SUCH_USER, *source) != 0) {
    return -1;
  }
  *user = new KORVUser(row);
  return 0;
}

void KORVUserFree(PKORVUser user) {
  delete user;
}

int KORVUserGetUGID(const char* name, uid_t* uid, gid_t* gid) {
  UserRow row;
  if (FindUser(name, row) != 0) {
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
  GroupRow row;
  if (FindGroup(name, row) != 0) {
    return -1;
  }
  *group = new KORVGroup(row);
  return 0;
}

int KORVGroupGetByGID(unsigned int gid, PKORVGroup* group) {
  GroupRow row;
  const auto source = SourceInForce();
  if (Judge(source->FindGroupById(gid, row), KLIB_ERR_NO_SUCH_GROUP, *source) != 0) {
    return -1;
  }
  *group = new KORVGroup(row);
  return 0;
}

void KORVGroupFree(PKORVGroup group) {
  delete group;
}

int KORVGroupDescGet(const char* name, std::string& description) {
  GroupRow row;
  if (FindGroup(name, row) != 0) {
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
  UserRow row;
  if ((!called_internal && name != nullptr && !SourceInForce()->MayBeInternal(name)) ||
      FindUser(name, row) != 0) {
    return false;
  }
  return called_internal || !row.listed || row.internal;
}

int KLIBUserRealNameGet(const char* name, char* buffer, size_t size) {
  UserRow row;
  return FindUser(name, row) != 0 ? -1 : CopyName(row.name, buffer, size);
}

int KLIBGroupRealNameGet(const char* name, char* buffer, size_t size) {
  GroupRow row;
  return FindGroup(name, row) != 0 ? -1 : CopyName(row.name, buffer, size);
}

namespace korvmailserver {

AccountSnapshot::AccountSnapshot() {
  account::EnterSnapshot();
}

AccountSnapshot::~AccountSnapshot() {
  account::LeaveSnapshot();
}

}  // namespace korvmailserver
