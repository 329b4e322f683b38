// The public interface for explicit synchronisation.
// For one thread at a time, with all else of the library (domain.h).
#ifndef LIB_DOMAIN_API_UPDATER_H
#define LIB_DOMAIN_API_UPDATER_H

#include "lib-domain/utils/updater.h"
#include "platform/include/export.h"

namespace MDOMAIN::API {

// GetSummary tells what the refresh found. One object per run.
class MDOMAIN_EXPORT MDOMAIN_LAYOUT(v1_1) Updater : public UTILS::Updater {
 public:
  // UTILS::Updater::Refresh; when it succeeded everything is published, and that is the result.
  bool Refresh();
  // UTILS::Updater::InitDBIfNotExists, likewise: also when there was nothing to create.
  bool InitDBIfNotExists();
  // UTILS::Updater::Trigger; what does not follow from the model is brought in line with it, too.
  // False also while the key store would not keep what is published.
  bool Trigger();
  // The API error number of the last exception (5618 a taken name, 5633 an invalid one, else 117);
  // 0 when there was none. A later success does not reset it. 5635, of the last call alone: what
  // the call did before is stored, and could not be published.
  unsigned int GetErrorCode() const { return error_code_; }

 private:
  bool _RunAndTrigger(bool (UTILS::Updater::*operation)());

  unsigned int error_code_ = 0;
};

}  // namespace MDOMAIN::API

#endif  // LIB_DOMAIN_API_UPDATER_H
