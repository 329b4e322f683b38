// The account system: users, groups, members and names of the source in force.
//
// Three sources answer behind these calls: the local files, an LDAP directory, a Windows domain.
// Calls without an AUTH_TYPE use the source that "account_type" of the mail configuration names.
// Names are full names: as written in the local files, `name@domain` in a directory whose account
// domain is configured, `DOM\name` in a Windows domain, the name in lower case however the domain
// spells it. Not thread-safe.
//
// Part of an answer never looks like the whole. An enumeration that misses an entry says so by its
// count; a group whose members are not all known is a failure, so that the caller keeps what it
// knew; absent and failed have different error numbers. Every failure writes one log line at level
// 3. A source that is read with entries missing writes one at level 1.
#ifndef PLATFORM_ACCOUNT_H
#define PLATFORM_ACCOUNT_H

#include <sys/types.h>

#include <cstddef>
#include <functional>
#include <string>
#include <vector>

#include "platform/include/export.h"
#include "platform/include/mail_conf.h"
#include "platform/include/string_list.h"

// Error numbers of KLIBCErrGet.
constexpr int KLIB_ERR_NONE = 0;
constexpr int KLIB_ERR_FAILED = 0x0100;         // the source failed or did not answer in time
constexpr int KLIB_ERR_NO_SUCH_GROUP = 0x1800;  // the group does not exist (any more)
constexpr int KLIB_ERR_NO_SUCH_USER = 0x1D00;   // the user does not exist (any more)

// The error number of the last failed call of this header; success does not clear it.
MDOMAIN_EXPORT int KLIBCErrGet();

constexpr unsigned int KORV_UNKNOWN_ID = 0xFFFFFFFFU;

struct KORVUser {
  std::string name;
  unsigned int uid = KORV_UNKNOWN_ID;
  unsigned int gid = KORV_UNKNOWN_ID;
  // The account's mail address, empty when it has none. A local account has one when the last
  // comma-separated part of its comment field is an address, as in
  // "Bob Smith,Room 1,,,bob@example.com": that part is the one that hosts are free to use.
  std::string mail;
  std::string full_name;  // the comment field up to its first comma, cn, display name
};
using PKORVUser = KORVUser*;

struct KORVGroup {
  std::string name;
  unsigned int gid = KORV_UNKNOWN_ID;
};
using PKORVGroup = KORVGroup*;

// Called once per account; `uid` is KORV_UNKNOWN_ID when the enumeration does not tell it. Non-zero
// ends the enumeration.
using KLIBUserInfoCallback = int (*)(const char* name, unsigned int uid, void* context);

// Enumerates the users of a source from number `offset`, at most `limit`, in the source's order.
// `domain` is the Windows domain's short name, else null. Returns the number of accounts that the
// source holds, which is larger than the number handed out when the answer was cut short or an
// entry could not be read (then one log line says why); negative when the source failed. The number
// is the same when a callback ends the enumeration. Of accounts that share a uid only the first is
// handed out; of local accounts, only those whose uid lies within the range of login.defs.
MDOMAIN_EXPORT long KLIBUserInfoEnum(AUTH_TYPE type, const char* domain, unsigned int offset,
                                     unsigned int limit, KLIBUserInfoCallback callback,
                                     void* context);

// Appends the names of all groups of a source to `*list`. The number appended, negative on failure.
// A group that the source announced and that could not be read is in the list too, by its name or,
// if even that is unknown, as a text in brackets that says what is missing: looking it up fails,
// and so the caller sees that the answer is incomplete. Of local groups, only "users" and those
// within the range of login.defs are listed.
MDOMAIN_EXPORT int KLIBGroupEnum(PKLIBCSzList* list, AUTH_TYPE type, const char* domain);

// The account with this full name or id, also one that enumerations leave out. Letter case does not
// matter in a source that ignores it; an exact spelling wins. 0 and a new record, which the caller
// frees with KORVUserFree; negative, with `*user` untouched, on failure (KLIBCErrGet says which).
MDOMAIN_EXPORT int KORVUserGet(const char* name, PKORVUser* user);
MDOMAIN_EXPORT int KORVUserGetByUID(unsigned int uid, PKORVUser* user);
MDOMAIN_EXPORT void KORVUserFree(PKORVUser user);
// Uid and primary gid of a full name. 0, or negative as KORVUserGet. `gid` may be null.
MDOMAIN_EXPORT int KORVUserGetUGID(const char* name, uid_t* uid, gid_t* gid);

MDOMAIN_EXPORT int KORVGroupGet(const char* name, PKORVGroup* group);
MDOMAIN_EXPORT int KORVGroupGetByGID(unsigned int gid, PKORVGroup* group);
MDOMAIN_EXPORT void KORVGroupFree(PKORVGroup group);
// The description of a group; a group without one gives the empty string, and local groups have
// none. 0, or -1 on failure, also when there is no such group.
MDOMAIN_EXPORT int KORVGroupDescGet(const char* name, std::string& description);
// Appends the full names of a group's members, each once: those that the group lists, those whose
// primary group it is, and the members of nested groups where the source has them (cycles end). A
// listed name without an account is appended as it is; accounts that enumerations leave out are
// left out here, too. 0 on success; negative, with the list unchanged, on failure, also when the
// source does not know all members.
MDOMAIN_EXPORT int KORVGroupListMember(const char* name, PKLIBCSzList list);

// True for accounts that are not people: ids outside the source's range, names that the host
// settings call internal. An unknown name is not internal.
MDOMAIN_EXPORT bool KORVUserIsInternal(const char* name);

// Writes the name as the account system spells it, with its terminating zero, into `buffer`. 0, or
// negative when there is no such account, the source failed or the buffer is too small.
MDOMAIN_EXPORT int KLIBUserRealNameGet(const char* name, char* buffer, size_t size);
MDOMAIN_EXPORT int KLIBGroupRealNameGet(const char* name, char* buffer, size_t size);

// "name@domain" into `buffer`, the name alone when the domain is empty. 0, or negative when it does
// not fit.
MDOMAIN_EXPORT int KORVLDAPCatName(char* buffer, size_t size, const char* domain, const char* name);

// Short name: `DOM\alice` and `alice@dom` give `alice`; any other text unchanged, also one that
// would leave nothing (`@dom`). Of several "@" the last counts.
MDOMAIN_EXPORT std::string TrimDomainName(const std::string& name);

// One spelling for all names that a directory or a Windows domain takes for the same: letter case
// is folded beyond ASCII too (`Ärzte`, `ärzte`). Local files tell such names apart; whoever looks
// up one of them tries the exact spelling first.
MDOMAIN_EXPORT std::string FoldAccountName(const std::string& name);

// The full names under which the source in force would know `short_names`, in order, one each.
// Nothing is looked up.
MDOMAIN_EXPORT std::vector<std::string> GetFullNames(const std::vector<std::string>& short_names);

namespace korvmailserver {

// While one lives, the source is read once, users and groups together, at the first call, and every
// enumeration, look-up and list of members is answered from that: all of it is of one point in
// time. A failure is kept in the same way. Scopes nest; the outermost counts.
class MDOMAIN_EXPORT AccountSnapshot {
 public:
  AccountSnapshot();
  ~AccountSnapshot();
  AccountSnapshot(const AccountSnapshot&) = delete;
  AccountSnapshot& operator=(const AccountSnapshot&) = delete;
};

// While one lives, single local accounts and the members of local groups are told from one reading
// of the files, without a look at every account, as long as few are asked about. An AccountSnapshot
// within it takes the local accounts of that reading. Within an AccountSnapshot it changes nothing,
// nor for other sources.
class MDOMAIN_EXPORT FewAccounts {
 public:
  FewAccounts();
  ~FewAccounts();
  FewAccounts(const FewAccounts&) = delete;
  FewAccounts& operator=(const FewAccounts&) = delete;

  // The full names of users who will be asked about, who are then looked up together.
  static void Expect(const std::vector<std::string>& names);
};

// Of a source, appends the users whom an enumeration would hand out first under the names of the
// members of these groups, letter case folded (FoldAccountName); maybe others. False, with nothing
// said and `users` unchanged, when only an enumeration tells.
MDOMAIN_EXPORT bool ListMemberUsers(AUTH_TYPE type, const std::vector<std::string>& groups,
                                    std::vector<KORVUser>& users);

// Called with the number of a group in a list and the uids of its members, ascending, each once.
using PlainGroupVisitor = std::function<void(size_t number, const std::vector<unsigned int>& uids)>;
// Within an AccountSnapshot, calls `use` with those of the groups of which every member is a user
// whom an enumeration hands out first under the name, letter case folded. Of the others
// KORVGroupListMember tells the members, or why it cannot. False, with nothing said and `use` not
// called, when only that tells, or users are missing from the source.
MDOMAIN_EXPORT bool ForEachPlainGroup(const std::vector<std::string>& groups,
                                      const PlainGroupVisitor& use);

// One step of an inspection of the source in force.
struct AccountCheckStep {
  std::string name;  // "settings", "connect", "bind", "users", "groups", "complete"
  bool ok = false;
  std::string detail;  // a count, or what failed and which setting or server limit to change
};
// Inspects the source in force, from reading its settings to a whole enumeration, and gives the
// steps in order; stops at the first that fails. True when every step is ok.
MDOMAIN_EXPORT bool CheckAccountSource(std::vector<AccountCheckStep>& steps);

}  // namespace korvmailserver

#endif  // PLATFORM_ACCOUNT_H
