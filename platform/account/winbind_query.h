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
constexpr char kUnresolved = 'x';     // name: listed, and cannot be looked up
constexpr char kNoMemberships = 'm';  // name: a user whose groups are not known
constexpr char kUnknown = '?';        // there is no such account
constexpr char kFailed = 'f';         // why; nothing follows
constexpr char kReady = 'r';          // text of a step that succeeded

// Names in answers are `DOM\name`, in lower case as winbindd spells them. The `name` of a query has
// no domain.
void QueryUsers(const std::string& domain, bool with_groups, const AnswerWriter& out);
void QueryGroups(const std::string& domain, const AnswerWriter& out);
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
