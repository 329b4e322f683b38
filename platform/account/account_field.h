// The fields that files and directories share: what may be the name or the id of an account.
#ifndef PLATFORM_ACCOUNT_ACCOUNT_FIELD_H
#define PLATFORM_ACCOUNT_ACCOUNT_FIELD_H

#include <string_view>

namespace korvmailserver::account {

// UTF-8 without control characters, 1 to 255 bytes: no Linux host has longer names, and they would
// not fit the buffers that names travel in.
bool IsAccountName(std::string_view name);

// At most ten decimal digits, below the id that means "unknown". `id` stays untouched when false.
bool ParseId(std::string_view text, unsigned int& id);

}  // namespace korvmailserver::account

#endif  // PLATFORM_ACCOUNT_ACCOUNT_FIELD_H
