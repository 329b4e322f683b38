// Whether the domain database changed since something was made from it.
#ifndef LIB_DOMAIN_DB_CHANGE_COUNTER_H
#define LIB_DOMAIN_DB_CHANGE_COUNTER_H

namespace MDOMAIN::DB {

// A number that is another one after each committed change of the file. False with a log line, and
// `counter` untouched, when it cannot be read.
bool GetChangeCounter(int& counter);

}  // namespace MDOMAIN::DB

#endif  // LIB_DOMAIN_DB_CHANGE_COUNTER_H
