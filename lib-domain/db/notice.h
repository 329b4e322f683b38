// Whose addresses changed and who is still to be told of it.
//
// The rows are written in the transaction of the change, and go when the notice has been given. So
// no change that is committed stays without one, however the run ends. The table is ours: it is
// made with the first row.
//
// Operations return true on success. A failure is false and one error line.
#ifndef LIB_DOMAIN_DB_NOTICE_H
#define LIB_DOMAIN_DB_NOTICE_H

#include <vector>

#include "lib-domain/db/handler.h"

namespace MDOMAIN::DB {

namespace INTERNAL {
class Database;
}

class Notice {
 public:
  // Borrows the process-wide handler; without one every operation fails.
  Notice();

  // Records users, mirrored or not, repeats allowed. Nothing happens for none.
  bool Add(const std::vector<unsigned int>& uids);
  // Adds the uids on record, ascending.
  bool List(std::vector<unsigned int>& uids);
  // Forgets all of them; a record must have been made before.
  bool DeleteAll();

 private:
  INTERNAL::Database _DomainDb() const;

  DomainDBHandler* handler_;
  int status_;  // 0, or -1 without a handler
};

}  // namespace MDOMAIN::DB

#endif  // LIB_DOMAIN_DB_NOTICE_H
