// LDAP search sessions with the host's stored bind settings and search options.
//
// Searches go over the whole subtree below the users' base, in pages of at most 1000. Connecting,
// binding and a search end together at [ldap] timeout, which grows by a second for every 50 entries
// that come. Values are bytes; one that is not UTF-8, or holds a zero byte,
// counts as missing.
#ifndef PLATFORM_LDAP_SEARCH_H
#define PLATFORM_LDAP_SEARCH_H

#include <string>

#include "platform/include/export.h"
#include "platform/include/string_list.h"

struct KORVLDAPHost;          // a connected, bound session
struct KORVLDAPSearchOption;  // base, scope, filter, attribute names, page size, deadline
struct KORVLDAPSearchRequest;
struct KORVLDAPSearch;
struct KORVLDAPEntry;

// All calls return 0, or negative with one log line that says what failed, unless stated otherwise.

// Connects and binds as [ldap] of the host settings says. A server's certificate must verify with
// ca_file, or with the machine's own authorities when that is not set. Free with KORVLDAPHostFree.
MDOMAIN_EXPORT int KORVLDAPHostInitByBindConfig(KORVLDAPHost** host);
MDOMAIN_EXPORT void KORVLDAPHostFree(KORVLDAPHost* host);
MDOMAIN_EXPORT KORVLDAPSearchOption* KORVLDAPSearchOptionAlloc();
// Reads the stored options for users.
MDOMAIN_EXPORT int KORVLDAPSearchOptionGet(KORVLDAPSearchOption* option);
MDOMAIN_EXPORT void KORVLDAPSearchOptionFree(KORVLDAPSearchOption* option);
// A request for `attributes` of the entries that the options select. A text that IsAttributeName
// refuses is not sent, and no entry has a value for it. "uid" and "mail" stand for the attributes
// that the settings name. The option may be freed afterwards.
MDOMAIN_EXPORT int KORVLDAPSearchRequestInit(KORVLDAPSearchRequest** request,
                                             const KORVLDAPSearchOption* option,
                                             const KLIBCSzList* attributes);
MDOMAIN_EXPORT void KORVLDAPSearchRequestFree(KORVLDAPSearchRequest* request);
// The request may be freed afterwards, the host may not.
MDOMAIN_EXPORT int KORVLDAPSearchInit(KORVLDAPSearch** search, KORVLDAPHost* host,
                                      const KORVLDAPSearchRequest* request);
// The next entry, valid until the next call: 1 with an entry, 0 at the end of a complete answer,
// negative when the answer broke off: at a size or time limit of the server, at a referral, or when
// the connection was lost. The entries handed out before are then good, but not all there are.
MDOMAIN_EXPORT int KORVLDAPSearchGetNext(KORVLDAPSearch* search, const KORVLDAPEntry** entry);
// The first value of an attribute (names without regard to case). 0, or negative when the entry has
// none that is valid UTF-8.
MDOMAIN_EXPORT int KORVLDAPResultGetFirst(const KORVLDAPEntry* entry, const char* attribute,
                                          std::string& value);
MDOMAIN_EXPORT void KORVLDAPSearchFree(KORVLDAPSearch* search);

namespace korvmailserver {

// True when `name` is a letter, then letters, digits, "-" and ";" (RFC 4512, 2.5). No other text is
// given to a directory or its tools: a tool could take it for an option.
MDOMAIN_EXPORT bool IsAttributeName(const std::string& name);

}  // namespace korvmailserver

#endif  // PLATFORM_LDAP_SEARCH_H
