// Indexes that are no part of the schema's versions, and the views that rely on them.
//
// A program without them reads and writes the same file: they change what a statement costs, never
// what it gives.
#ifndef LIB_DOMAIN_DB_OWN_INDEXES_H
#define LIB_DOMAIN_DB_OWN_INDEXES_H

#include <sqlite3.h>

#include "platform/include/db_handler.h"

namespace MDOMAIN::DB::INTERNAL {

constexpr const char* kUserView = "domain_user_view";
constexpr const char* kUserWithRoleView = "domain_user_with_role_view";

// Whether the file has all of them. False also when it cannot be read.
bool HasOwnIndexes(sqlite3* db);
// What makes those that are absent.
SQLCmd OwnIndexStatements();
// Defines domain_user_view and domain_view for this connection, in front of the file's own views.
// Their rows are the same, but the role of each user is looked up where the file's views work out
// those of all users. And domain_user_with_role_view: the rows of domain_user_view whose role is
// not NULL, but for the role itself, with the row of the alias (alias_row), and
// domain_user_without_role_view: domain and user of the
// others, both at less cost. For a file that has all indexes. False with one warning when it fails.
bool DefineOwnViews(sqlite3* db);

}  // namespace MDOMAIN::DB::INTERNAL

#endif  // LIB_DOMAIN_DB_OWN_INDEXES_H
