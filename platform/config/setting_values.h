// The kinds of values that host settings have: each turns a text into a field, or says what is
// wrong.
#ifndef PLATFORM_CONFIG_SETTING_VALUES_H
#define PLATFORM_CONFIG_SETTING_VALUES_H

#include <functional>
#include <set>
#include <string>
#include <utility>
#include <vector>

namespace korvmailserver {

// Puts a value into its field; false with what is wrong with it. `folder` is that of the settings
// file: relative file names start there.
using SettingSetter =
    std::function<bool(const std::string& value, const std::string& folder, std::string& problem)>;

SettingSetter TextSetting(std::string* field);
SettingSetter NumberSetting(int* field, int smallest, int largest);
// "yes" or "no".
SettingSetter FlagSetting(bool* field);
SettingSetter OneOfSetting(std::string* field, const std::vector<std::string>& choices);
// The name of a directory attribute (RFC 4512 keystring with options), sent to servers as it is.
SettingSetter AttributeSetting(std::string* field, bool may_be_empty = false);
SettingSetter LdapUriSetting(std::string* field);
SettingSetter PathSetting(std::string* field);
// The first line of a file that only its owner may read.
SettingSetter PasswordFileSetting(std::string* password);
// A list of HOST, HOST:PORT, [V6ADDRESS] or [V6ADDRESS]:PORT; without a port, that of sentinels.
SettingSetter AddressesSetting(std::vector<std::pair<std::string, int>>* field);
SettingSetter NameSetSetting(std::set<std::string>* field);
// Refuses every value.
SettingSetter NoTlsSetting();

// The parts of `text` between commas and white space, in order; empty ones are left out.
std::vector<std::string> SplitList(const std::string& text);

}  // namespace korvmailserver

#endif  // PLATFORM_CONFIG_SETTING_VALUES_H
