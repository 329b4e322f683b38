// Whether the domain database changed since something was made from it.
#ifndef LIB_DOMAIN_DB_CHANGE_COUNTER_H
#define LIB_DOMAIN_DB_CHANGE_COUNTER_H

struct sqlite3;

namespace MDOMAIN::DB {

// A number that is another one after each committed change of the file. False with a log line, and
// `counter` untouched, when it cannot be read.
bool GetChangeCounter(int& counter);

namespace INTERNAL {

// The same of the file of any connection, after what it has written itself was committed. Nothing
// is logged.
bool ReadChangeCounter(sqlite3* db, int& counter);

}  // namespace INTERNAL

}  // namespace MDOMAIN::DB

#endif  // LIB_DOMAIN_DB_CHANGE_COUNTER_H
