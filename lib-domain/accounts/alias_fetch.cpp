// Attributes of accounts from the three sources. A directory is searched once for all its accounts,
// and the wanted ones are picked out of the answer; local accounts are looked up one by one.
#include "lib-domain/accounts/alias_fetch.h"

#include <algorithm>
#include <array>
#include <chrono>
#include <memory>

#include "lib-domain/accounts/account_source.h"
#include "lib-domain/accounts/name_list.h"
#include "lib-domain/accounts/net_output.h"
#include "lib-domain/base/log_line.h"
#include "lib-domain/base/text.h"
#include "platform/include/account.h"
#include "platform/include/host_settings.h"
#include "platform/include/ldap_search.h"
#include "platform/include/process.h"
#include "platform/include/scope_guard.h"

namespace MDOMAIN::UTILS::INTERNAL {

namespace {

constexpr const char* kMailAttr = "mail";
constexpr const char* kLdapNameAttr = "uid";

// A search that failed after as long as this is not tried again for the next pattern.
constexpr std::chrono::seconds kDearSearch(1);

std::string JoinNames(const AttributeNames& names) {
  return BASE::Join(std::vector<std::string>(names.begin(), names.end()), ", ");
}

template <typename T>
using Freed = std::unique_ptr<T, void (*)(T*)>;

// Fills the list with "uid" and the needed attributes. False and an error line without memory.
bool ComposeLdapAttributes(const AttributeNames& needed, NameList& list) {
  if (!list.IsValid()) {
    LOG_ERROR("KLIBCSzListAlloc failed");
    return false;
  }
  if (KLIBCSzListPush(list.Address(), kLdapNameAttr) < 0) {
    LOG_ERROR("KLIBCSzListPush failed");
    return false;
  }
  for (const std::string& attribute : needed) {
    if (attribute != kAccountAttr && KLIBCSzListPush(list.Address(), attribute.c_str()) < 0) {
      LOG_ERROR("KLIBCSzListPush failed, attr: '%s'", attribute.c_str());
      return false;
    }
  }
  return true;
}

void ReadLdapEntry(const KORVLDAPEntry* entry, const AttributeNames& needed,
                   AccountAttributes& accounts) {
  std::string account;
  if (KORVLDAPResultGetFirst(entry, kLdapNameAttr, account) < 0) {
    return;
  }
  Attributes& values = accounts[account];
  values[kAccountAttr] = account;
  for (const std::string& attribute : needed) {
    std::string value;
    if (attribute != kAccountAttr && KORVLDAPResultGetFirst(entry, attribute.c_str(), value) >= 0) {
      values[attribute] = attribute == kMailAttr ? TrimDomainName(value) : value;
    }
  }
}

// Runs the request to the end of its answer. False and an error line when it broke off.
bool ReadLdapEntries(KORVLDAPHost* host, const KORVLDAPSearchRequest* request,
                     const AttributeNames& needed, AccountAttributes& accounts) {
  KORVLDAPSearch* started = nullptr;
  if (KORVLDAPSearchInit(&started, host, request) < 0) {
    LOG_ERROR("Failed to query ldap. ");
    return false;
  }
  const Freed<KORVLDAPSearch> search(started, &KORVLDAPSearchFree);
  const KORVLDAPEntry* entry = nullptr;
  int result = 0;
  while ((result = KORVLDAPSearchGetNext(search.get(), &entry)) > 0) {
    ReadLdapEntry(entry, needed, accounts);
  }
  if (result < 0) {
    LOG_ERROR("Failed to query ldap. ");
    return false;
  }
  return true;
}

// Everything that the program prints. When its output breaks off, its exit status says so.
std::string ReadAll(FILE* stream) {
  std::string output;
  std::array<char, 65536> buffer{};
  size_t size = 0;
  while ((size = fread(buffer.data(), 1, buffer.size(), stream)) > 0) {
    output.append(buffer.data(), size);
  }
  return output;
}

// Runs the search tool to its end. False and an error line when it cannot be started or fails.
bool RunNet(const AttributeNames& needed, std::string& output) {
  std::vector<const char*> argv = {"/usr/bin/net",          "ads",           "search", "-P",
                                   "(objectCategory=user)", "sAMAccountName"};
  for (const std::string& attribute : needed) {
    if (korvmailserver::IsAttributeName(attribute)) {
      argv.push_back(attribute.c_str());
    }
  }
  argv.push_back(nullptr);
  korvmailserver::HostSettings settings;
  std::string error;
  if (!korvmailserver::ReadHostSettings(settings, error)) {
    LOG_ERROR("Failed to read the host settings: %s", error.c_str());
    return false;
  }
  const int deadline = KLIBCPopenSetDeadline(settings.winbind.net_timeout);
  const postara::ScopeGuard restore([deadline] { KLIBCPopenSetDeadline(deadline); });
  FILE* stream = KLIBCPopenv(argv.front(), "r", argv.data());
  if (stream == nullptr) {
    LOG_ERROR("Failed to KLIBCPopenv");
    return false;
  }
  output = ReadAll(stream);
  const int status = KLIBCPclose(stream);
  if (status != 0) {
    LOG_ERROR("net ended with status [%d]: %s", status, KLIBCPopenErrorText().c_str());
    return false;
  }
  return true;
}

// The mail address of a local account, which may be empty. False and an error line when there is no
// such account.
bool GetLocalMail(const std::string& short_name, std::string& mail) {
  std::string real_name;
  if (!ShortName2RealName(true, short_name, real_name)) {
    LOG_ERROR("Failed to ShortName2RealName [%s]", short_name.c_str());
    return false;
  }
  PKORVUser found = nullptr;
  if (KORVUserGet(real_name.c_str(), &found) < 0 || found == nullptr) {
    LOG_ERROR("Cannot get user %s", real_name.c_str());
    return false;
  }
  const std::unique_ptr<KORVUser, decltype(&KORVUserFree)> user(found, &KORVUserFree);
  mail = user->mail;
  return true;
}

bool SearchLdap(const AttributeNames& needed, AccountAttributes& accounts) {
  KORVLDAPHost* connected = nullptr;
  if (KORVLDAPHostInitByBindConfig(&connected) < 0) {
    LOG_ERROR("Failed to get LDAP browser config. ");
    return false;
  }
  const Freed<KORVLDAPHost> host(connected, &KORVLDAPHostFree);
  const Freed<KORVLDAPSearchOption> option(KORVLDAPSearchOptionAlloc(), &KORVLDAPSearchOptionFree);
  if (!option) {
    LOG_ERROR("Failed to alloc LDAP search option. ");
    return false;
  }
  if (KORVLDAPSearchOptionGet(option.get()) < 0) {
    LOG_ERROR("Failed to get LDAP search option. ");
    return false;
  }
  NameList attributes;
  if (!ComposeLdapAttributes(needed, attributes)) {
    return false;
  }
  KORVLDAPSearchRequest* made = nullptr;
  if (KORVLDAPSearchRequestInit(&made, option.get(), attributes.Get()) < 0) {
    LOG_ERROR("Failed to KORVLDAPSearchRequestInit. ");
    return false;
  }
  const Freed<KORVLDAPSearchRequest> request(made, &KORVLDAPSearchRequestFree);
  return ReadLdapEntries(host.get(), request.get(), needed, accounts);
}

}  // namespace

SearchResult QueryLdap(const AttributeNames& needed, AccountAttributes& accounts) {
  return SearchLdap(needed, accounts) ? SearchResult::kWhole : SearchResult::kFailed;
}

SearchResult QueryWindowsDomain(const AttributeNames& needed, AccountAttributes& accounts) {
  std::string output;
  if (!RunNet(needed, output)) {
    return SearchResult::kFailed;
  }
  const bool is_read = ParseNetSearchOutput(output, needed, accounts);
  return is_read ? SearchResult::kWhole : SearchResult::kUnreadable;
}

void FetchLocalAttributes(const std::vector<std::string>& user_short_names,
                          const AttributeNames& needed, AccountAttributes& accounts) {
  const korvmailserver::AccountSnapshot snapshot;  // one reading of the files for all names
  const bool needs_mail = needed.count(kMailAttr) != 0;
  for (const std::string& name : user_short_names) {
    std::string mail;
    if (GetLocalMail(name, mail) && needs_mail && !mail.empty()) {
      accounts[name][kMailAttr] = TrimDomainName(mail);
    }
  }
}

SearchResult AttributeAnswer::_SearchFor(DirectoryQuery query, const AttributeNames& attributes) {
  using Clock = std::chrono::steady_clock;
  accounts_.clear();
  answered_ = attributes;
  is_answered_ = false;  // also when the search ends in an exception
  const Clock::time_point start = Clock::now();
  const SearchResult result = query(attributes, accounts_);
  is_answered_ = result == SearchResult::kWhole;
  is_given_up_ = result == SearchResult::kFailed && Clock::now() - start > kDearSearch;
  if (result == SearchResult::kUnreadable) {
    unreadable_.insert(attributes);
  }
  return result;
}

bool AttributeAnswer::Ask(DirectoryQuery query, const AttributeNames& needed) {
  if (is_answered_ &&
      std::includes(answered_.begin(), answered_.end(), needed.begin(), needed.end())) {
    return true;
  }
  if (is_given_up_) {
    LOG_ERROR("the directory let the last search wait in vain and is not asked again");
    return false;
  }
  if (!is_each_alone_) {
    together_.insert(needed.begin(), needed.end());
    const SearchResult result = _SearchFor(query, together_);
    is_each_alone_ = result == SearchResult::kUnreadable && needed != together_;
    if (!is_each_alone_) {
      return result == SearchResult::kWhole;
    }
    LOG_NOTICE("from here on each pattern's attributes are searched for alone");
  }
  if (unreadable_.count(needed) != 0) {
    LOG_ERROR("the attributes of this pattern, [%s], could not be read", JoinNames(needed).c_str());
    return false;
  }
  return _SearchFor(query, needed) == SearchResult::kWhole;
}

void AttributeAnswer::CopyTo(AccountAttributes& wanted) const {
  for (auto& [name, values] : wanted) {
    const auto account = accounts_.find(name);
    if (account != accounts_.end()) {
      values = account->second;
    }
  }
}

void AttributeAnswer::CopyToIgnoringCase(AccountAttributes& wanted) const {
  std::map<std::string, const Attributes*> by_folded_name;
  for (const auto& [name, values] : accounts_) {
    by_folded_name.emplace(FoldAccountName(name), &values);
  }
  for (auto& [name, values] : wanted) {
    const auto account = by_folded_name.find(FoldAccountName(name));
    if (account != by_folded_name.end()) {
      values = *account->second;
    }
  }
}

}  // namespace MDOMAIN::UTILS::INTERNAL
