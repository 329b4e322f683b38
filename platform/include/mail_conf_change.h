// One change of several keys of the mail configuration, those that go included.
//
// For the sources of this project only; it is not installed.
#ifndef PLATFORM_MAIL_CONF_CHANGE_H
#define PLATFORM_MAIL_CONF_CHANGE_H

#include <string>
#include <utility>
#include <vector>

#include "platform/include/export.h"

// What mailConfSetMany does for `entries`, and together with it the removal of keys, which are none
// of those: all or none. A missing one is no failure. 0, or negative with one log line.
MDOMAIN_EXPORT int mailConfChange(const std::vector<std::pair<std::string, std::string>>& entries,
                                  const std::vector<std::string>& removed_keys);

#endif  // PLATFORM_MAIL_CONF_CHANGE_H
