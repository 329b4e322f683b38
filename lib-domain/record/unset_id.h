// The uid or gid of a record that names no account yet.
#ifndef LIB_DOMAIN_RECORD_UNSET_ID_H
#define LIB_DOMAIN_RECORD_UNSET_ID_H

namespace MDOMAIN::RECORD {

// (uid_t)-1, which chown(2) and setreuid(2) keep for "none", so no account can have it.
constexpr unsigned int kUnsetId = 4294967295U;

}  // namespace MDOMAIN::RECORD

#endif  // LIB_DOMAIN_RECORD_UNSET_ID_H
