// Telling the SMTP side whose addresses changed.
#ifndef LIB_DOMAIN_UTILS_DOMAIN_BACKEND_RELATED_H
#define LIB_DOMAIN_UTILS_DOMAIN_BACKEND_RELATED_H

#include <vector>

namespace MDOMAIN::UTILS {

bool NotifySMTPChangedUIDs(const std::vector<unsigned int>& uids);
bool _TouchSMTPChangedUIDsFlags(const std::vector<unsigned int>& uids);
bool _SetSMTPChangedUIDsToRedis(const std::vector<unsigned int>& uids);

}  // namespace MDOMAIN::UTILS

#endif  // LIB_DOMAIN_UTILS_DOMAIN_BACKEND_RELATED_H
