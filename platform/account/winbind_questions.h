// The questions that winbindd is asked, each to be run in a child process (AskInChild): libwbclient
// waits without end for a winbindd that hangs.
#ifndef PLATFORM_ACCOUNT_WINBIND_QUESTIONS_H
#define PLATFORM_ACCOUNT_WINBIND_QUESTIONS_H

#include <string>

#include "platform/account/asking.h"

namespace korvmailserver::account::winbind {

// Kinds of answers and their texts.
constexpr char kUser = 'u';           // name, uid, gid, comment, group ids joined by ","
constexpr char kGroup = 'g';          // name, gid
constexpr char kUnresolved = 'x';     // name: listed, but it cannot be looked up
constexpr char kNoMemberships = 'm';  // name: a user whose groups cannot be told
constexpr char kUnknown = '?';        // there is no such account
constexpr char kFailed = 'f';         // why; nothing follows
constexpr char kReady = 'r';          // text of a step that succeeded

// Names in answers are `DOM\name`, as winbindd spells them: in lower case. `name` in questions is
// without domain.
void AskUsers(const std::string& domain, bool with_groups, const AnswerWriter& out);
void AskGroups(const std::string& domain, const AnswerWriter& out);
void AskUser(const std::string& domain, const std::string& name, const AnswerWriter& out);
void AskUid(const std::string& domain, unsigned int uid, const AnswerWriter& out);
void AskGroup(const std::string& domain, const std::string& name, const AnswerWriter& out);
void AskGid(const std::string& domain, unsigned int gid, const AnswerWriter& out);
// Is winbindd there?
void AskDaemon(const AnswerWriter& out);
// Does a domain controller answer?
void AskController(const std::string& domain, const AnswerWriter& out);

}  // namespace korvmailserver::account::winbind

#endif  // PLATFORM_ACCOUNT_WINBIND_QUESTIONS_H
