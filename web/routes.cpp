#include "web/routes.h"

#include <algorithm>
#include <cctype>
#include <cstdio>
#include <cstring>

#include "web/pages/pages.h"

namespace mdomain_web {

namespace {

std::vector<std::string> Parts(const std::string& path) {
  std::vector<std::string> parts;
  for (std::size_t begin = 0; begin <= path.size();) {
    const std::size_t end = std::min(path.find('/', begin), path.size());
    parts.push_back(path.substr(begin, end - begin));
    begin = end + 1;
  }
  return parts;
}

// What is no code stays as it is.
std::string Decoded(const std::string& part) {
  const auto digit = [&part](std::size_t at) {
    const char* const digits = "0123456789abcdef";
    const char* const found =
        at < part.size() ? strchr(digits, tolower(static_cast<unsigned char>(part[at]))) : nullptr;
    return found == nullptr || *found == '\0' ? -1 : static_cast<int>(found - digits);
  };
  std::string text;
  for (std::size_t at = 0; at < part.size(); ++at) {
    if (part[at] == '%' && digit(at + 1) >= 0 && digit(at + 2) >= 0) {
      text += static_cast<char>(digit(at + 1) * 16 + digit(at + 2));
      at += 2;
    } else {
      text += part[at];
    }
  }
  return text;
}

}  // namespace

std::optional<std::map<std::string, std::string>> Match(const std::string& route,
                                                        const std::string& target) {
  const std::vector<std::string> wanted = Parts(route);
  const std::vector<std::string> given = Parts(target.substr(0, target.find('?')));
  if (wanted.size() != given.size()) {
    return std::nullopt;
  }
  std::map<std::string, std::string> at;
  for (std::size_t i = 0; i < wanted.size(); ++i) {
    if (wanted[i].size() > 2 && wanted[i].front() == '{') {
      if (given[i].empty()) {
        return std::nullopt;
      }
      at[wanted[i].substr(1, wanted[i].size() - 2)] = Decoded(given[i]);
    } else if (wanted[i] != given[i]) {
      return std::nullopt;
    }
  }
  return at;
}

std::string Encoded(const std::string& text) {
  std::string encoded;
  for (const char character : text) {
    if (isalnum(static_cast<unsigned char>(character)) != 0 || character == '-' ||
        character == '_') {
      encoded += character;
    } else {
      char code[4];
      snprintf(code, sizeof(code), "%%%02X", static_cast<unsigned char>(character));
      encoded += code;
    }
  }
  return encoded;
}

namespace {

constexpr const char* kDisclaimerFields =
    "name enabled match_rule_list needs_all exception_rule_list disabled_for_local_recipient "
    "content_txt content_html";

}  // namespace

const std::vector<Route>& Routes() {
  using namespace pages;  // NOLINT(google-build-using-namespace): a table of them
  static const auto* routes = new std::vector<Route>{
      {"GET", "/", Home, nullptr},
      {"GET", "/own", Own, nullptr},
      {"GET", "/domains/new", NewDomain, nullptr},
      {"POST", "/domains/new", nullptr, CreateDomain, "name description pattern adds_accounts"},
      {"GET", "/domains/{domain}", DomainPage, nullptr},
      {"POST", "/domains/{domain}", nullptr, SetDomain, "description pattern adds_accounts",
       DomainNow},
      {"POST", "/domains/{domain}/delete", nullptr, DeleteDomain,
       "description pattern adds_accounts names count_people count_groups count_entries "
       "count_copies count_disclaimers",
       WholeDomainNow},
      {"POST", "/domains/{domain}/names", nullptr, SetNames, "names", NamesNow},
      {"GET", "/domains/{domain}/people", People, nullptr},
      {"GET", "/domains/{domain}/people/add", AddPeoplePage, nullptr},
      {"POST", "/domains/{domain}/people/add", nullptr, AddPeople, "people groups aliases"},
      {"GET", "/domains/{domain}/people/{uid}", PersonPage, nullptr},
      {"POST", "/domains/{domain}/people/{uid}", nullptr, SetPerson, "aliases role", PersonNow},
      {"POST", "/domains/{domain}/people/{uid}/remove", nullptr, RemovePerson, "aliases role",
       PersonNow},
      {"GET", "/domains/{domain}/groups", Groups, nullptr},
      {"GET", "/domains/{domain}/groups/{gid}", GroupPage, nullptr},
      {"POST", "/domains/{domain}/groups/{gid}", nullptr, SetGroup},
      {"POST", "/domains/{domain}/groups/{gid}/remove", nullptr, RemoveGroup},
      {"POST", "/domains/{domain}/groups/{gid}/restore", nullptr, RestoreMembers},
      {"GET", "/domains/{domain}/entries", Entries, nullptr},
      {"GET", "/domains/{domain}/entries/{name}", EntryPage, nullptr},
      {"POST", "/domains/{domain}/entries", nullptr, CreateEntry, "name users groups addresses"},
      {"POST", "/domains/{domain}/entries/{name}", nullptr, SetEntry, "users groups addresses",
       EntryNow},
      {"POST", "/domains/{domain}/entries/{name}/delete", nullptr, DeleteEntry,
       "users groups addresses", EntryNow},
      {"GET", "/domains/{domain}/copies", Copies, nullptr},
      {"POST", "/domains/{domain}/copies", nullptr, AddCopy, "name to"},
      {"POST", "/domains/{domain}/copies/remove", nullptr, RemoveCopy},
      {"GET", "/domains/{domain}/disclaimers", Disclaimers, nullptr},
      {"GET", "/domains/{domain}/disclaimers/new", NewDisclaimer, nullptr},
      {"POST", "/domains/{domain}/disclaimers/new", nullptr, SetDisclaimer, kDisclaimerFields,
       DisclaimerNow},
      {"GET", "/domains/{domain}/disclaimers/{id}", DisclaimerPage, nullptr},
      {"POST", "/domains/{domain}/disclaimers/preview", PreviewDisclaimer, nullptr},
      {"POST", "/domains/{domain}/disclaimers/{id}", nullptr, SetDisclaimer, kDisclaimerFields,
       DisclaimerNow},
      {"POST", "/domains/{domain}/disclaimers/{id}/delete", nullptr, DeleteDisclaimer,
       kDisclaimerFields, DisclaimerNow},
      {"GET", "/explain", Explain, nullptr},
      {"GET", "/doctor", Doctor, nullptr},
      {"GET", "/domains/{domain}/pattern", TryPattern, nullptr},
      {"GET", "/tokens", TokensPage, nullptr},
      {"POST", "/tokens", MakeToken, nullptr},
      {"POST", "/tokens/{id}/revoke", RevokeToken, nullptr},
      {"GET", "/history", History, nullptr},
      {"GET", "/history/{id}", HistoryEntry, nullptr},
      {"POST", "/history/{id}/undo", nullptr, Undo},
      {"GET", "/refresh", Refreshing, nullptr},
      {"POST", "/refresh", nullptr, Refresh},
      {"GET", "/published", Published, nullptr},
      {"POST", "/publish", nullptr, Publish},
      {"GET", "/domains/{domain}/picture", Picture, nullptr},
  };
  return *routes;
}

}  // namespace mdomain_web
