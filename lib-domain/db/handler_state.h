// What a handler of the domain database knows besides its connection. It lies beside the object,
// whose size programs know.
#ifndef LIB_DOMAIN_DB_HANDLER_STATE_H
#define LIB_DOMAIN_DB_HANDLER_STATE_H

#include <memory>

#include "lib-domain/db/remembered.h"
#include "lib-domain/db/sql.h"

namespace MDOMAIN::DB::INTERNAL {

struct HandlerState {
  std::shared_ptr<KeptStatements> kept = std::make_shared<KeptStatements>();
  Memory memory;
  bool has_own_views = false;
  bool is_pinned = false;  // by a ReadScope
  // How many rows of the tables of names this connection has written.
  unsigned long name_changes = 0;
};

}  // namespace MDOMAIN::DB::INTERNAL

#endif  // LIB_DOMAIN_DB_HANDLER_STATE_H
