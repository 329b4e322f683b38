// Random texts that nobody can guess, and their digests.
#ifndef MDOMAIN_WEB_IDENTITY_SECRETS_H
#define MDOMAIN_WEB_IDENTITY_SECRETS_H

#include <string>

namespace mdomain_web {

// 256 random bits in hexadecimal. Throws std::runtime_error where the system has none.
std::string NewSecret();
// SHA-256 in hexadecimal.
std::string Digest(const std::string& text);
// In a time that does not tell where they differ.
bool IsSame(const std::string& one, const std::string& other);

}  // namespace mdomain_web

#endif  // MDOMAIN_WEB_IDENTITY_SECRETS_H
