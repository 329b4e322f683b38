// The process-wide handler of the model, for work below another root.
#ifndef LIB_DOMAIN_DB_OTHER_MODEL_H
#define LIB_DOMAIN_DB_OTHER_MODEL_H

#include <utility>

#include "lib-domain/db/handler.h"
#include "lib-domain/db/read_scope.h"

namespace MDOMAIN::DB {

// While one lives, the process-wide handler is another one, which opens the model of the root in
// force then. The one of before stays open, with all that it knows.
class ReadScope::OtherModel {
 public:
  OtherModel() : kept_(std::exchange(DomainDBHandler::_singleDomainDBHandler, nullptr)) {}
  ~OtherModel() {
    DomainDBHandler::CloseDomainDBHandler();
    DomainDBHandler::_singleDomainDBHandler = kept_;
  }
  OtherModel(const OtherModel&) = delete;
  OtherModel& operator=(const OtherModel&) = delete;

 private:
  DomainDBHandler* kept_;
};

}  // namespace MDOMAIN::DB

#endif  // LIB_DOMAIN_DB_OTHER_MODEL_H
