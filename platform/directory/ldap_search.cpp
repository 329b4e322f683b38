// The LDAP search operations under their fixed names.
#include "platform/include/ldap_search.h"

#include <memory>

#include "platform/directory/session.h"
#include "platform/include/maillog.h"
#include "platform/system/fold_case.h"

using korvmailserver::LdapSettings;
using korvmailserver::directory::Entry;
using korvmailserver::directory::ReadLdapSettings;
using korvmailserver::directory::Search;
using korvmailserver::directory::SearchQuery;
using korvmailserver::directory::Session;

struct KORVLDAPHost {
  Session session;
};

struct KORVLDAPSearchOption {
  LdapSettings settings;
};

// Names as callers write them, in lower case, and the attribute that stands for each.
using AttributeNames = std::map<std::string, std::string>;

struct KORVLDAPSearchRequest {
  SearchQuery query;
  AttributeNames names;
};

struct KORVLDAPEntry {
  const Entry* entry = nullptr;
  const AttributeNames* names = nullptr;
};

struct KORVLDAPSearch {
  KORVLDAPSearch(Session& session, const KORVLDAPSearchRequest& request)
      : search(session, request.query), names(request.names) {
    current.names = &names;
  }
  Search search;
  AttributeNames names;
  KORVLDAPEntry current;
};

namespace {

int Failed(const std::string& text) {
  maillog(korvmailserver::kLogError, "directory: %s", text.c_str());
  return -1;
}

}  // namespace

int KORVLDAPHostInitByBindConfig(KORVLDAPHost** host) {
  LdapSettings settings;
  auto opened = std::make_unique<KORVLDAPHost>();
  std::string error;
  if (!ReadLdapSettings(settings, error) || !opened->session.Connect(settings, error) ||
      !opened->session.Bind(settings, error)) {
    return Failed(error);
  }
  *host = opened.release();
  return 0;
}

void KORVLDAPHostFree(KORVLDAPHost* host) {
  delete host;
}

KORVLDAPSearchOption* KORVLDAPSearchOptionAlloc() {
  return new KORVLDAPSearchOption();
}

int KORVLDAPSearchOptionGet(KORVLDAPSearchOption* option) {
  std::string error;
  return ReadLdapSettings(option->settings, error) ? 0 : Failed(error);
}

void KORVLDAPSearchOptionFree(KORVLDAPSearchOption* option) {
  delete option;
}

int KORVLDAPSearchRequestInit(KORVLDAPSearchRequest** request, const KORVLDAPSearchOption* option,
                              const KLIBCSzList* attributes) {
  const LdapSettings& settings = option->settings;
  auto made = std::make_unique<KORVLDAPSearchRequest>();
  made->query.base = settings.user_base;
  made->query.filter = settings.user_filter;
  made->query.page_size = settings.page_size;
  for (int i = 0; i < KLIBCSzListCount(attributes); i++) {
    const std::string name = korvmailserver::FoldCase(KLIBCSzListGet(attributes, i));
    if (!korvmailserver::IsAttributeName(name)) {
      continue;  // a pattern may name anything; users then have no value for it
    }
    const std::string attribute = name == "uid"    ? settings.user_name_attr
                                  : name == "mail" ? settings.user_mail_attr
                                                   : name;
    if (made->names.emplace(name, korvmailserver::FoldCase(attribute)).second) {
      made->query.attributes.push_back(attribute);
    }
  }
  if (made->query.attributes.empty()) {
    made->query.attributes.emplace_back(LDAP_NO_ATTRS);  // an empty list would ask for all
  }
  *request = made.release();
  return 0;
}

void KORVLDAPSearchRequestFree(KORVLDAPSearchRequest* request) {
  delete request;
}

int KORVLDAPSearchInit(KORVLDAPSearch** search, KORVLDAPHost* host,
                       const KORVLDAPSearchRequest* request) {
  *search = new KORVLDAPSearch(host->session, *request);
  return 0;
}

int KORVLDAPSearchGetNext(KORVLDAPSearch* search, const KORVLDAPEntry** entry) {
  const int state = search->search.Next(search->current.entry);
  if (state < 0) {
    return Failed(search->search.error());
  }
  *entry = &search->current;
  return state;
}

int KORVLDAPResultGetFirst(const KORVLDAPEntry* entry, const char* attribute, std::string& value) {
  const auto name = entry->names->find(korvmailserver::FoldCase(attribute));
  const std::string* first =
      name == entry->names->end() ? nullptr : entry->entry->First(name->second);
  if (first == nullptr) {
    return -1;
  }
  value = *first;
  return 0;
}

void KORVLDAPSearchFree(KORVLDAPSearch* search) {
  delete search;
}
