// Disclaimer lists as they are stored: one text of JSON per domain, without the disclaimers' texts.
#ifndef LIB_DOMAIN_API_DISCLAIMER_STORED_LIST_H
#define LIB_DOMAIN_API_DISCLAIMER_STORED_LIST_H

#include <json/value.h>

#include <map>
#include <string>
#include <vector>

namespace MDOMAIN::RECORD {
class Domain;
}

namespace MDOMAIN::API::INTERNAL {

constexpr const char* kDisclaimerListPrefix = "mimedefang_disclaimers-";
std::string DisclaimerListKey(int domain_idx);

// Reads strict JSON: nothing after the value, no comments, no repeated member. False, with `value`
// untouched, when the text is something else.
bool ParseJson(const std::string& text, Json::Value& value);
// Compact, strings in UTF-8 as they are.
std::string WriteJson(const Json::Value& value);

bool IsArrayOfObjects(const Json::Value& value);

// Appends every domain in listing order, with index and name; no user is counted. False with a log
// line.
bool ListAllDomains(std::vector<RECORD::Domain>& domains);

// Appends those for which a list is stored. False with a log line.
bool ListDomainsWithLists(std::vector<RECORD::Domain>& domains);

// Reads a stored list. The empty text, which a domain without disclaimers has, gives an empty
// array. False when the text is no array of objects; `list` is then of no use.
bool ParseStoredList(const std::string& text, Json::Value& list);
// The same for the list of one domain, with log lines that name its key.
bool ParseStoredList(int domain_idx, const std::string& text, Json::Value& list);

// Adds the stored text of every domain's list, by domain, with one read. False with a log line.
bool ReadStoredTexts(const std::vector<RECORD::Domain>& domains, std::map<int, std::string>& texts);
// ListAllDomains, then ReadStoredTexts of them all.
bool ReadAllStoredTexts(std::vector<RECORD::Domain>& domains, std::map<int, std::string>& texts);

// Reads a pattern of type "uid" or "gid": a number, or a text that is one. False, with `id`
// untouched, when it is something else.
bool PatternAsId(const Json::Value& pattern, unsigned int& id);

}  // namespace MDOMAIN::API::INTERNAL

#endif  // LIB_DOMAIN_API_DISCLAIMER_STORED_LIST_H
