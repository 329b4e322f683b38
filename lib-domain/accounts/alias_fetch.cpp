// Attributes of accounts from the three sources. A directory is searched once for all its accounts,
// and the wanted ones are picked out of the answer; local accounts are looked up one by one.
#include "lib-domain/accounts/alias_fetch.h"

#include <algorithm>
#include <array>
#include <memory>

#include "lib-domain/accounts/account_source.h"
#include "lib-domain/accounts/name_list.h"
#include "lib-domain/accounts/net_output.h"
#include "lib-domain/base/log_line.h"
#include "platform/include/account.h"
#include "platform/include/host_settings.h"
#include "platform/include/ldap_search.h"
#include "platform/include/process.h"
#include "platform/include/scope_guard.h"

namespace MDOMAIN::UTILS::INTERNAL {

namespace {

constexpr const char* kMailAttr = "mail";
constexpr const char* kLdapNameAttr = "uid";

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

}  // namespace

bool QueryLdap(const AttributeNames& needed, AccountAttributes& accounts) {
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

bool QueryWindowsDomain(const AttributeNames& needed, AccountAttributes& accounts) {
  std::string output;
  return RunNet(needed, output) && ParseNetSearchOutput(output, needed, accounts);
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

bool AttributeAnswer::Ask(DirectoryQuery query, const AttributeNames& needed) {
  if (is_answered_ && std::includes(needed_.begin(), needed_.end(), needed.begin(), needed.end())) {
    return true;
  }
  needed_.insert(needed.begin(), needed.end());
  accounts_.clear();
  is_answered_ = false;  // also when the search ends in an exception
  is_answered_ = query(needed_, accounts_);
  return is_answered_;
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
