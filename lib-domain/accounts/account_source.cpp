// The account system's side: configuration, enumeration, names and members.
#include "lib-domain/accounts/account_source.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <memory>

#include "lib-domain/accounts/account_source_internal.h"
#include "lib-domain/accounts/name_list.h"
#include "lib-domain/base/account_settings.h"
#include "lib-domain/base/log_line.h"
#include "platform/include/account.h"

namespace MDOMAIN::UTILS {

namespace {

using INTERNAL::NameList;

// The longest name that the account system takes and gives, with its terminating zero.
constexpr size_t kNameBufferSize = 492;
// The members of more are read twice for nothing.
constexpr size_t kFewGroups = 16;

using GroupPtr = std::unique_ptr<KORVGroup, decltype(&KORVGroupFree)>;

// Null when the account system does not give the group.
GroupPtr FindGroup(const char* name) {
  PKORVGroup group = nullptr;
  return {KORVGroupGet(name, &group) < 0 ? nullptr : group, &KORVGroupFree};
}

int CollectUser(const char* name, unsigned int uid, void* context) {
  auto* users = static_cast<std::vector<RECORD::User>*>(context);
  if (uid == KORV_UNKNOWN_ID) {
    uid_t found = KORV_UNKNOWN_ID;
    if (KORVUserGetUGID(name, &found, nullptr) < 0) {
      const int error = KLIBCErrGet();
      if (error == KLIB_ERR_NO_SUCH_USER) {
        LOG_ERROR("Cannot get user [%s], err: [%d], continue getting other users.", name, error);
        return 0;
      }
      LOG_ERROR("Cannot get user [%s], err: [%d], stop getting other users.", name, error);
      return -1;
    }
    uid = found;
  }
  users->emplace_back(uid, name);
  return 0;
}

bool GetSource(AUTH_TYPE& type, std::string& win_domain) {
  if (!DomainMailConfCurrentAuthTypeGet(type)) {
    LOG_ERROR("Failed to DomainMailConfCurrentAuthTypeGet");
    return false;
  }
  if (!DomainMailConfWinDomainShortNameGet(win_domain)) {
    LOG_ERROR("Failed to DomainMailConfWinDomainShortNameGet");
    return false;
  }
  return true;
}

// Looks up the announced groups one by one. False when a look-up failed for any reason but "no such
// group".
bool CollectGroups(const NameList& names, std::vector<RECORD::Group>& groups) {
  for (int i = 0; i < names.Count(); ++i) {
    const char* name = names.At(i);
    const GroupPtr group = FindGroup(name);
    if (!group) {
      const int error = KLIBCErrGet();
      if (error == KLIB_ERR_NO_SUCH_GROUP) {
        LOG_ERROR("Cannot get group [%s], err: [%d], continue getting other groups.", name, error);
        continue;
      }
      LOG_ERROR("Cannot get group [%s], err: [%d], stop getting other groups.", name, error);
      return false;
    }
    std::string description;
    if (KORVGroupDescGet(name, description) < 0) {
      LOG_ERROR("Failed to KORVGroupDescGet [%s]", name);
      description.clear();
    }
    groups.emplace_back(group->gid, name, description);
  }
  return true;
}

// The account system's spelling of a full name; false when it has no such account.
bool RealNameOf(bool is_user, const std::string& full_name, std::string& real_name) {
  std::array<char, kNameBufferSize> asked{};
  std::array<char, kNameBufferSize> answer{};
  std::snprintf(asked.data(), asked.size(), "%s", full_name.c_str());
  const int result = is_user ? KLIBUserRealNameGet(asked.data(), answer.data(), answer.size())
                             : KLIBGroupRealNameGet(asked.data(), answer.data(), answer.size());
  if (result < 0) {
    LOG_ERROR("Convert realname fail %s", full_name.c_str());
    return false;
  }
  answer.back() = '\0';
  real_name = answer.data();
  return true;
}

bool FullNameOf(const std::string& short_name, std::string& full_name) {
  AUTH_TYPE type = AUTH_UNKNOWN;
  if (!DomainMailConfCurrentAuthTypeGet(type)) {
    LOG_ERROR("cannot get current auth type");
    return false;
  }
  switch (type) {
    case AUTH_LOCAL:
      full_name = short_name;
      return true;
    case AUTH_WIN:
      if (!INTERNAL::_DomainShortName2FullName(short_name, full_name)) {
        LOG_ERROR("_DomainShortname2FullName convert fail");
        return false;
      }
      return true;
    case AUTH_LDAP:
      if (!INTERNAL::_LDAPShortname2FullName(short_name, full_name)) {
        LOG_ERROR("_LDAPShortname2FullName convert fail");
        return false;
      }
      return true;
    default:
      LOG_ERROR("unknown account type");
      return false;
  }
}

}  // namespace

bool DomainMailConfWinDomainShortNameGet(std::string& name) {
  if (!BASE::GetAccountSetting("win_domain_short_name", name)) {
    LOG_ERROR("Get mailconf get fail SZK_SMTP_WIN_DOMAIN_SHORT_NAME");
    return false;
  }
  return true;
}

bool DomainMailConfCurrentAuthTypeGet(AUTH_TYPE& type) {
  std::string text;
  if (!BASE::GetAccountSetting("account_type", text)) {
    LOG_ERROR("Cannot get account_type");
    return false;
  }
  type = ConvertAuthType(text);
  return true;
}

bool DomainMailConfAccDomainNameGet(std::string& name) {
  if (!BASE::GetAccountSetting("acc_domain_name", name)) {
    LOG_ERROR("Cannot get mailconf");
    return false;
  }
  return true;
}

bool TryToGetAllZelmUsers(std::vector<RECORD::User>& users, bool& complete) {
  return TryToGetZelmUsersOf({}, users, complete);
}

bool TryToGetZelmUsersOf(const std::vector<std::string>& groups, std::vector<RECORD::User>& users,
                         bool& complete) {
  complete = false;
  users.clear();
  AUTH_TYPE type = AUTH_UNKNOWN;
  std::string win_domain;
  if (!GetSource(type, win_domain)) {
    return false;
  }
  std::vector<KORVUser> members;
  if (!groups.empty() && groups.size() <= kFewGroups &&
      korvmailserver::ListMemberUsers(type, groups, members)) {
    for (const KORVUser& member : members) {
      users.emplace_back(member.uid, member.name);
    }
    return complete = true;
  }
  const long count = KLIBUserInfoEnum(type, type == AUTH_WIN ? win_domain.c_str() : nullptr, 0,
                                      0xFFFFFFFFU, &CollectUser, &users);
  if (count < 0) {
    LOG_ERROR("Failed to KLIBUserInfoEnum");
    return false;
  }
  if (users.empty()) {
    LOG_ERROR("The account system is abnormal, no users are obtained from Zelm.");
    return false;
  }
  complete = static_cast<size_t>(count) == users.size();
  return true;
}

bool TryToGetAllZelmGroups(std::vector<RECORD::Group>& groups, bool& complete) {
  complete = false;
  groups.clear();
  AUTH_TYPE type = AUTH_UNKNOWN;
  std::string win_domain;
  if (!GetSource(type, win_domain)) {
    return false;
  }
  NameList names;
  if (!names.IsValid()) {
    LOG_ERROR("Failed to KLIBCSzListAlloc");
    return false;
  }
  if (KLIBGroupEnum(names.Address(), type, type == AUTH_WIN ? win_domain.c_str() : nullptr) < 0) {
    LOG_ERROR("Failed to KLIBGroupEnum");
    return false;
  }
  if (!CollectGroups(names, groups)) {
    return false;
  }
  if (groups.empty()) {
    LOG_ERROR("The account system is abnormal, no groups are obtained from Zelm.");
    return false;
  }
  complete = static_cast<size_t>(names.Count()) == groups.size();
  return true;
}

bool ShortName2RealName(bool is_user, const std::string& short_name, std::string& real_name) {
  std::string full_name;
  if (!FullNameOf(short_name, full_name)) {
    return false;
  }
  if (!RealNameOf(is_user, full_name, real_name)) {
    real_name = full_name;
  }
  return true;
}

void GetUserShortNamesFromGroupShortNames(const std::vector<std::string>& group_short_names,
                                          std::vector<std::string>& user_short_names) {
  user_short_names.clear();
  const korvmailserver::AccountSnapshot snapshot;  // one reading of a directory for all members
  for (const std::string& group : group_short_names) {
    std::string real_name;
    if (!ShortName2RealName(false, group, real_name)) {
      LOG_ERROR("Failed to ShortName2RealName [%s]", group.c_str());
      continue;
    }
    if (!INTERNAL::_AppendUserShortNamesBelongToGroupRealName(real_name, user_short_names)) {
      LOG_ERROR("Failed to _AppendUserShortNamesBelongToGroupRealName [%s]", real_name.c_str());
    }
  }
}

void MergeAndDedupeUserShortNames(const std::vector<std::string>& a,
                                  const std::vector<std::string>& b,
                                  std::vector<std::string>& merged) {
  std::vector<std::string> names(a);
  names.insert(names.end(), b.begin(), b.end());
  std::sort(names.begin(), names.end());
  names.erase(std::unique(names.begin(), names.end()), names.end());
  merged = std::move(names);
}

namespace INTERNAL {

bool _DomainShortName2FullName(const std::string& short_name, std::string& full_name) {
  std::string win_domain;
  if (!DomainMailConfWinDomainShortNameGet(win_domain)) {
    return false;
  }
  const bool is_full = short_name.find('\\') != std::string::npos;
  full_name = is_full ? short_name : win_domain + "\\" + short_name;
  return true;
}

bool _LDAPShortname2FullName(const std::string& short_name, std::string& full_name) {
  std::string acc_domain;
  if (!DomainMailConfAccDomainNameGet(acc_domain)) {
    LOG_ERROR("Cannot get mailconf");
    return false;
  }
  if (short_name.find('@') != std::string::npos) {
    full_name = short_name;
    return true;
  }
  std::array<char, kNameBufferSize> buffer{};
  if (KORVLDAPCatName(buffer.data(), buffer.size(), acc_domain.c_str(), short_name.c_str()) < 0) {
    LOG_ERROR("Cannot KORVLDAPCatName");
    return false;
  }
  full_name = buffer.data();
  return true;
}

bool _AppendUserShortNamesBelongToGroupRealName(const std::string& group_real_name,
                                                std::vector<std::string>& user_short_names) {
  const NameList members;
  if (!members.IsValid()) {
    LOG_ERROR("Out of memory");
    return false;
  }
  const GroupPtr group = FindGroup(group_real_name.c_str());
  if (!group) {
    LOG_ERROR("Failed to KORVGroupGet [%s]", group_real_name.c_str());
    return false;
  }
  if (KORVGroupListMember(group->name.c_str(), members.Get()) != 0) {
    LOG_ERROR("Failed to KORVGroupListMember %s", group->name.c_str());
    return false;
  }
  for (int i = 0; i < members.Count(); ++i) {
    std::string real_name;
    if (RealNameOf(true, members.At(i), real_name)) {
      user_short_names.push_back(TrimDomainName(real_name));
    }
  }
  return true;
}

void ResetAccountConfigurationForTest() {
  BASE::ForgetAccountSettings();
}

}  // namespace INTERNAL
}  // namespace MDOMAIN::UTILS
