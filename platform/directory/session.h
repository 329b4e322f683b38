// A connected, bound LDAP session, and searches in it.
//
// An operation - connecting, binding and a whole search, or a further search in an open session -
// has one time limit, that of the host settings, which grows with the entries that come. Results
// are asked for in pages, and the code of every page is judged: entries that came before a limit
// look as good as a whole answer.
#ifndef PLATFORM_DIRECTORY_SESSION_H
#define PLATFORM_DIRECTORY_SESSION_H

#include <map>
#include <string>
#include <vector>

#include "platform/directory/connect_deadline.h"
#include "platform/directory/ldap_library.h"
#include "platform/include/host_settings.h"
#include "platform/system/budget.h"

namespace korvmailserver::directory {

// An entry's values as the server gave them: bytes. Attribute names are in lower case.
struct Entry {
  std::string dn;
  std::map<std::string, std::vector<std::string>> values;

  // The first value that is UTF-8 without zero bytes; null when there is none.
  const std::string* First(const std::string& attribute) const;
};

// The [ldap] section of the host settings. False and `error` when the settings are wrong or name no
// server.
bool ReadLdapSettings(LdapSettings& settings, std::string& error);

class Session {
 public:
  Session() = default;
  ~Session();
  Session(const Session&) = delete;
  Session& operator=(const Session&) = delete;

  // Connects and starts TLS as the settings say. A certificate that does not verify is a failure,
  // whatever the machine's own LDAP client settings say. False and `error` on failure.
  bool Connect(const LdapSettings& settings, std::string& error);
  // Simple bind; an empty bind dn stays anonymous. False and `error` on failure.
  bool Bind(const LdapSettings& settings, std::string& error);

  // Begins another operation in an open session; connecting begins the first.
  void Renew() { budget_ = Budget(timeout_); }
  Budget& budget() { return budget_; }

  LDAP* handle() const { return ldap_; }
  // "Can't contact LDAP server (-1): what the server or the TLS library says"
  std::string ErrorText(int code) const;

 private:
  bool SetOptions(const LdapSettings& settings, std::string& error);

  ConnectDeadline deadline_;
  LDAP* ldap_ = nullptr;
  int timeout_ = 0;
  Budget budget_{0};
};

struct SearchQuery {
  std::string base;
  std::string filter;
  std::vector<std::string> attributes;
  int page_size = 500;
};

// One search below a base, page by page.
class Search {
 public:
  Search(Session& session, SearchQuery query);
  ~Search();
  Search(const Search&) = delete;
  Search& operator=(const Search&) = delete;

  // 1 and the next entry, valid until the next call; 0 at the end of a complete answer; -1 when the
  // answer broke off, after the entries that came.
  int Next(const Entry*& entry);

  // What broke the answer off, and the server setting to look at where one is known.
  const std::string& error() const { return error_; }
  // LDAP's code for that; LDAP_SUCCESS while all is well.
  int code() const { return code_; }

 private:
  void FetchPage();
  int Receive(LDAPMessage*& result);
  void TakeEntries(LDAPMessage* result);
  void Judge(LDAPMessage* result);
  void TakeCookie(LDAPControl** controls);
  void BreakOff(int code, const std::string& text);

  Session& session_;
  SearchQuery query_;
  std::vector<Entry> page_;
  size_t next_ = 0;
  size_t received_ = 0;
  berval cookie_ = {0, nullptr};
  bool more_ = true;
  int code_ = LDAP_SUCCESS;
  std::string error_;
};

}  // namespace korvmailserver::directory

#endif  // PLATFORM_DIRECTORY_SESSION_H
