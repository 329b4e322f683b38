// The process-wide object of blind-copy rules, as tests need it.
#ifndef LIB_DOMAIN_API_BCC_INSTANCE_H
#define LIB_DOMAIN_API_BCC_INSTANCE_H

namespace MDOMAIN::API::INTERNAL {

// Forgets the object, so that the next call makes one below the root of then. For tests only.
void ResetBccInstanceForTest();

}  // namespace MDOMAIN::API::INTERNAL

#endif  // LIB_DOMAIN_API_BCC_INSTANCE_H
