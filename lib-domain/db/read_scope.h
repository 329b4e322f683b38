// Several reads of the domain database that are of one moment.
#ifndef LIB_DOMAIN_DB_READ_SCOPE_H
#define LIB_DOMAIN_DB_READ_SCOPE_H

#include "lib-domain/db/handler.h"
#include "platform/include/export.h"

namespace MDOMAIN::DB {

// While one lives, everything that is read through the handler is of the moment of the first read,
// also when another file takes the place of this one. Nothing may be written through the handler in
// between, and others who write wait: keep it short. Inside another one, or inside a BatchScope
// that has written, it changes nothing. The handler must outlive it.
class MDOMAIN_EXPORT ReadScope {
 public:
  explicit ReadScope(DomainDBHandler* handler);  // null: does nothing
  // Of the process-wide handler. Where that is not open, or another file has taken the place of its
  // own, each read is of a moment of its own: it opens what it needs, and says why it cannot.
  ReadScope();
  ~ReadScope();
  // Whether reads are of one moment until the end of this one.
  bool IsInForce() const { return is_in_force_; }
  ReadScope(const ReadScope&) = delete;
  ReadScope& operator=(const ReadScope&) = delete;

  class OtherModel;  // other_model.h

 private:
  void _Begin(DomainDBHandler* handler);
  bool _Run(const char* sql);

  DomainDBHandler* handler_ = nullptr;  // while this is the scope that pins it
  bool is_in_force_ = false;
  bool has_begun_ = false;
};

}  // namespace MDOMAIN::DB

#endif  // LIB_DOMAIN_DB_READ_SCOPE_H
