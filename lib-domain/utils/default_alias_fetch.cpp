// Attributes of accounts from the three sources. A directory answers for everybody at once: one
// search, in which the wanted accounts are picked out; local accounts are looked up one by one.
#define MDOMAIN_LOG_SOURCE "lib-domain/utils/default_alias_getter.cpp"

#include <algorithm>
#include <array>
#include <memory>

#include "lib-domain/base/log_line.h"
#include "lib-domain/utils/account_source.h"
#include "lib-domain/utils/default_alias_getter.h"
#include "lib-domain/utils/net_output.h"
#include "platform/include/account.h"
#include "platform/include/host_settings.h"
#include "platform/include/ldap_search.h"
#include "platform/include/process.h"
#include "platform/include/scope_guard.h"
#include "platform/include/string_list.h"

namespace MDOMAIN::UTILS {

namespace {

using Attributes = std::map<std::string, std::string>;
using AccountAttributes = std::map<std::string, Attributes>;
using AttributeNames = std::set<std::string>;

constexpr const char* kMailAttr = "mail";
constexpr const char* kLdapNameAttr = "uid";
constexpr int kNameListCapacity = 1024;

template <typename T>
using Freed = std::unique_ptr<T, void (*)(T*)>;

// Fills the list with "uid" and the needed attributes. False and an error line without memory.
bool ComposeLdapAttributes(const AttributeNames& needed, PKLIBCSzList* list) {
  *list = KLIBCSzListAlloc(kNameListCapacity);
  if (*list == nullptr) {
    LOG_ERROR("KLIBCSzListAlloc failed");
    return false;
  }
  if (KLIBCSzListPush(list, kLdapNameAttr) < 0) {
    LOG_ERROR("KLIBCSzListPush failed");
    return false;
  }
  for (const std::string& attribute : needed) {
    if (attribute != INTERNAL::kAccountAttr && KLIBCSzListPush(list, attribute.c_str()) < 0) {
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
  values[INTERNAL::kAccountAttr] = account;
  for (const std::string& attribute : needed) {
    std::string value;
    if (attribute != INTERNAL::kAccountAttr &&
        KORVLDAPResultGetFirst(entry, attribute.c_str(), value) >= 0) {
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
  PKLIBCSzList list = nullptr;
  const bool composed = ComposeLdapAttributes(needed, &list);
  const Freed<KLIBCSzList> attributes(list, &KLIBCSzListFree);
  if (!composed) {
    return false;
  }
  KORVLDAPSearchRequest* made = nullptr;
  if (KORVLDAPSearchRequestInit(&made, option.get(), attributes.get()) < 0) {
    LOG_ERROR("Failed to KORVLDAPSearchRequestInit. ");
    return false;
  }
  const Freed<KORVLDAPSearchRequest> request(made, &KORVLDAPSearchRequestFree);
  return ReadLdapEntries(host.get(), request.get(), needed, accounts);
}

// Everything that the program prints; an answer that breaks off shows in its exit status.
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
    if (INTERNAL::IsAttributeName(attribute)) {
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

bool QueryWindowsDomain(const AttributeNames& needed, AccountAttributes& accounts) {
  std::string output;
  return RunNet(needed, output) && INTERNAL::ParseNetSearchOutput(output, needed, accounts);
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

bool DefaultAliasGetter::_FetchAttrsFromLocal(const std::vector<std::string>& user_short_names,
                                              UserAttrsMap& attrs) {
  const korvmailserver::AccountSnapshot snapshot;  // one reading of the files for all names
  const bool needs_mail = _NeededAttrs().count(kMailAttr) != 0;
  for (const std::string& name : user_short_names) {
    std::string mail;
    if (GetLocalMail(name, mail) && needs_mail && !mail.empty()) {
      attrs[name][kMailAttr] = TrimDomainName(mail);
    }
  }
  return true;
}

bool DefaultAliasGetter::_FetchAttrsFromLDAP(UserAttrsMap& attrs) {
  return _FetchAttrsFromDirectory(&QueryLdap, attrs);
}

// The account system spells a Windows domain's names in lower case, the domain itself as they were
// typed: they are compared without regard to letter case.
bool DefaultAliasGetter::_FetchAttrsFromDomain(UserAttrsMap& attrs) {
  const AttributeScope alone({pattern_});  // no effect within a caller's scope
  AttributeScope* scope = AttributeScope::_current;
  if (!scope->_Ask(&QueryWindowsDomain, _NeededAttrs())) {
    return false;
  }
  std::map<std::string, const AttrMap*> by_folded_name;
  for (const auto& [name, values] : scope->accounts_) {
    by_folded_name.emplace(FoldAccountName(name), &values);
  }
  for (auto& [name, values] : attrs) {
    const auto account = by_folded_name.find(FoldAccountName(name));
    if (account != by_folded_name.end()) {
      values = *account->second;
    }
  }
  return true;
}

bool DefaultAliasGetter::_FetchAttrsFromDirectory(Query query, UserAttrsMap& attrs) {
  const AttributeScope alone({pattern_});  // no effect within a caller's scope
  AttributeScope* scope = AttributeScope::_current;
  if (!scope->_Ask(query, _NeededAttrs())) {
    return false;
  }
  for (auto& [name, values] : attrs) {
    const auto account = scope->accounts_.find(name);
    if (account != scope->accounts_.end()) {
      values = account->second;
    }
  }
  return true;
}

AttributeScope* AttributeScope::_current = nullptr;

AttributeScope::AttributeScope(const std::vector<std::string>& patterns) {
  if (_current != nullptr) {
    return;
  }
  for (const std::string& pattern : patterns) {
    needed_.merge(DefaultAliasGetter(pattern)._NeededAttrs());
  }
  _current = this;
}

AttributeScope::~AttributeScope() {
  if (_current == this) {
    _current = nullptr;
  }
}

bool AttributeScope::_Ask(DefaultAliasGetter::Query query,
                          const DefaultAliasGetter::AttrSet& needed) {
  if (is_answered_ && std::includes(needed_.begin(), needed_.end(), needed.begin(), needed.end())) {
    return true;
  }
  needed_.insert(needed.begin(), needed.end());
  accounts_.clear();
  is_answered_ = false;  // also when the search ends in an exception
  is_answered_ = query(needed_, accounts_);
  return is_answered_;
}

}  // namespace MDOMAIN::UTILS
