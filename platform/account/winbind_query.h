// Queries to winbindd, each to be made in a child process (QueryInChild): libwbclient waits without
// end for a winbindd that hangs.
#ifndef PLATFORM_ACCOUNT_WINBIND_QUERY_H
#define PLATFORM_ACCOUNT_WINBIND_QUERY_H

#include <string>

#include "platform/account/child_query.h"

namespace korvmailserver::account::winbind {

// Kinds of answers and their texts.
constexpr char kUser = 'u';           // name, uid, gid, comment, group ids joined by ","
constexpr char kGroup = 'g';          // name, gid
constexpr char kNoUser = 'x';         // name: listed, and cannot be looked up
constexpr char kNoGroup = 'y';        // name: the same of a group
constexpr char kNoMemberships = 'm';  // name: a user whose groups are not known
constexpr char kUnknown = '?';        // there is no such account
constexpr char kFailed = 'f';         // why: the answer is not whole, or there is none
constexpr char kCount = 'c';          // how many users are going to be looked up
constexpr char kReady = 'r';          // text of a step that succeeded

// Names in answers are `DOM\name`, in lower case as winbindd spells them. The `name` of a query has
// no domain.

// What a reading is to tell.
struct Wanted {
  bool users = false;
  bool memberships = false;  // of the users
  bool groups = false;
};
// Without a domain controller, or with one that refuses this machine, winbindd tells what it
// remembers: old names, and of each user's groups often the primary one alone. So the controller is
// asked before and after; without it the answers end with kFailed and no membership is told.
void QueryAccounts(const std::string& domain, const Wanted& wanted, const AnswerWriter& out);
void QueryUser(const std::string& domain, const std::string& name, const AnswerWriter& out);
void QueryUid(const std::string& domain, unsigned int uid, const AnswerWriter& out);
void QueryGroup(const std::string& domain, const std::string& name, const AnswerWriter& out);
void QueryGid(const std::string& domain, unsigned int gid, const AnswerWriter& out);
// Does winbindd run?
void QueryDaemon(const AnswerWriter& out);
// Does a domain controller answer?
void QueryController(const std::string& domain, const AnswerWriter& out);

}  // namespace korvmailserver::account::winbind

#endif  // PLATFORM_ACCOUNT_WINBIND_QUERY_H
