// LDAP search sessions with the host's stored bind settings and search options.
#ifndef PLATFORM_LDAP_SEARCH_H
#define PLATFORM_LDAP_SEARCH_H

#include <string>

#include "platform/include/string_list.h"

struct KORVLDAPHost;          // a connected, bound session
struct KORVLDAPSearchOption;  // base, scope, filter, attribute names, page size, deadline
struct KORVLDAPSearchRequest;
struct KORVLDAPSearch;
struct KORVLDAPEntry;

// All return 0, or negative with one log line that says what failed, unless stated.
// Connects and binds as [ldap] of the host settings says. Free with KORVLDAPHostFree.
int KORVLDAPHostInitByBindConfig(KORVLDAPHost** host);
void KORVLDAPHostFree(KORVLDAPHost* host);
KORVLDAPSearchOption* KORVLDAPSearchOptionAlloc();
// Reads the stored options for users.
int KORVLDAPSearchOptionGet(KORVLDAPSearchOption* option);
void KORVLDAPSearchOptionFree(KORVLDAPSearchOption* option);
// A request for `attributes` of the entries that the options select. Names that are no attribute
// names are not sent. "uid" and "mail" stand for the attributes that the settings name.
int KORVLDAPSearchRequestInit(KORVLDAPSearchRequest** request, const KORVLDAPSearchOption* option,
                              const KLIBCSzList* attributes);
void KORVLDAPSearchRequestFree(KORVLDAPSearchRequest* request);
int KORVLDAPSearchInit(KORVLDAPSearch** search, KORVLDAPHost* host,
                       const KORVLDAPSearchRequest* request);
// The next entry, valid until the next call: 1 with an entry, 0 at the end of a complete answer,
// negative when the answer broke off.
int KORVLDAPSearchGetNext(KORVLDAPSearch* search, const KORVLDAPEntry** entry);
// The first value of an attribute (names without regard to case). 0, or negative when the entry has
// none that is valid UTF-8.
int KORVLDAPResultGetFirst(const KORVLDAPEntry* entry, const char* attribute, std::string& value);
void KORVLDAPSearchFree(KORVLDAPSearch* search);

#endif  // PLATFORM_LDAP_SEARCH_H
