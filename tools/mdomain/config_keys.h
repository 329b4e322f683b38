// Which keys of the mail configuration this system knows, and who writes them.
#ifndef TOOLS_MDOMAIN_CONFIG_KEYS_H
#define TOOLS_MDOMAIN_CONFIG_KEYS_H

#include <string>
#include <vector>

namespace mdomain {

enum class KeyKind {
  kUnknown,    // of another program, or misspelt
  kSetting,    // the administrator's or the mail server's; read here
  kPublished,  // follows from the model: the next publication writes it again
};

KeyKind KindOfKey(const std::string& key);

// The keys that this system knows, but those that a domain's index ends.
std::vector<std::string> KnownKeys();

// That there is no such key, and which one may have been meant.
std::string NoKey(const std::string& key);

// Whether the key has a value; an unknown one may be another program's. Throws a Failure when the
// configuration cannot be read.
bool IsKeySet(const std::string& key);

// Refuses a key that nobody knows, and, where there are domains, another value of one that follows
// from them.
void RequireSettable(const std::string& key, const std::string& value);

}  // namespace mdomain

#endif  // TOOLS_MDOMAIN_CONFIG_KEYS_H
