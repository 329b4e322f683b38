// The public interface for explicit synchronisation.
#ifndef LIB_DOMAIN_API_UPDATER_H
#define LIB_DOMAIN_API_UPDATER_H

#include "lib-domain/utils/updater.h"

namespace MDOMAIN::API {

class Updater : public UTILS::Updater {
 public:
  bool Refresh();
  bool InitDBIfNotExists();
  unsigned int GetErrorCode() const { return error_code_; }

 private:
  unsigned int error_code_ = 0;
};

}  // namespace MDOMAIN::API

#endif  // LIB_DOMAIN_API_UPDATER_H
