// The formats of passwd, group and login.defs, parsed into tables.
#ifndef PLATFORM_ACCOUNT_ACCOUNT_FILES_H
#define PLATFORM_ACCOUNT_ACCOUNT_FILES_H

#include <string>
#include <string_view>

#include "platform/account/table.h"

namespace korvmailserver::account {

// Ids of people and of their groups, ends included.
struct IdRanges {
  unsigned int uid_min = 1000, uid_max = 60000;
  unsigned int gid_min = 1000, gid_max = 60000;
};

// UID_MIN, UID_MAX, GID_MIN, GID_MAX of login.defs; decimal, 0x and leading-0 octal numbers, as the
// tools that create accounts read them. Anything else keeps the default.
IdRanges ParseLoginDefs(const std::string& bytes);

// A file as it was read; `path` is for messages.
struct AccountFile {
  std::string path;
  std::string bytes;
};

// A line without its end, which may be that of another system.
std::string_view WithoutCarriageReturn(std::string_view line);
// False for empty lines, comments and the "+"/"-" lines that include other databases.
bool HoldsEntry(std::string_view line);
// One entry. False, with the row changed in part, when the line is none. `all_members` tells
// whether each name in the list can be read.
bool ReadUserLine(std::string_view line, const IdRanges& ranges, UserRow& user);
bool ReadGroupLine(std::string_view line, const IdRanges& ranges, GroupRow& group,
                   bool& all_members);

// Seven fields a line. A line without an account leaves a gap; empty lines, comments and the
// "+"/"-" lines that include other databases do not. A gap whose name or primary group is unknown
// hides the members of every group. A control character, or a last line without line end, means
// that anything may be missing. Users outside the range are in the table, not listed.
void ParsePasswd(const AccountFile& file, const IdRanges& ranges, UserTable& users);

// Four fields a line, else as passwd. The members of a group whose line is damaged are hidden. The
// group "users" is listed whatever its id.
void ParseGroup(const AccountFile& file, const IdRanges& ranges, GroupTable& groups);

// The mail address in a comment field, empty when there is none. See KORVUser::mail.
std::string MailOfComment(std::string_view comment);

}  // namespace korvmailserver::account

#endif  // PLATFORM_ACCOUNT_ACCOUNT_FILES_H
