// Paged searches and the judgement of their result codes.
#include <algorithm>
#include <utility>

#include "platform/directory/session.h"
#include "platform/directory/sigpipe_guard.h"
#include "platform/include/text.h"

namespace korvmailserver::directory {

namespace {

void TakeValues(LDAP* ldap, LDAPMessage* message, Entry& entry) {
  BerElement* position = nullptr;
  for (char* name = ldap_first_attribute(ldap, message, &position); name != nullptr;
       name = ldap_next_attribute(ldap, message, position)) {
    std::vector<std::string>& values = entry.values[ToLowerAscii(std::string(name))];
    berval** list = ldap_get_values_len(ldap, message, name);
    for (berval** value = list; value != nullptr && *value != nullptr; value++) {
      values.emplace_back((*value)->bv_val, (*value)->bv_len);
    }
    ldap_value_free_len(list);
    ldap_memfree(name);
  }
  ber_free(position, 0);
}

// Which setting to look at; empty where nothing general can be said.
const char* Advice(int code) {
  switch (code) {
    case LDAP_SIZELIMIT_EXCEEDED:
      return "; the server's size limit counts all pages together: raise it for this bind dn "
             "(OpenLDAP: olcLimits or limits with size.prtotal=unlimited, or olcSizeLimit)";
    case LDAP_TIMELIMIT_EXCEEDED:
      return "; raise the server's time limit (OpenLDAP: olcTimeLimit) or index the attributes of "
             "the filter";
    case LDAP_ADMINLIMIT_EXCEEDED:
      return "; the server allows no such pages: lower page_size, or raise its limit for this bind "
             "dn (OpenLDAP: size.pr and size.prtotal of olcLimits)";
    case LDAP_UNAVAILABLE_CRITICAL_EXTENSION:
      return "; the server must support paged results";
    case LDAP_NO_SUCH_OBJECT:
      return "; is the base right, and may this bind dn see it?";
    case LDAP_INSUFFICIENT_ACCESS:
      return "; the server's access rules must let this bind dn read";
    case LDAP_REFERRAL:
    case LDAP_PARTIAL_RESULTS:
      return "; referrals are not followed: use that server's uri, or a base that it holds whole";
    default:
      return "";
  }
}

}  // namespace

Search::Search(Session& session, SearchQuery query) : session_(session), query_(std::move(query)) {
  query_.page_size = std::clamp(query_.page_size, 1, 1000);
}

Search::~Search() {
  ber_memfree(cookie_.bv_val);
}

int Search::Next(const Entry*& entry) {
  while (next_ == page_.size() && more_) {
    FetchPage();
  }
  if (next_ == page_.size()) {
    return code_ == LDAP_SUCCESS ? 0 : -1;
  }
  entry = &page_[next_++];
  return 1;
}

void Search::BreakOff(int code, const std::string& text) {
  more_ = false;
  code_ = code;
  error_ = "the answer below \"" + query_.base + "\" broke off after " + std::to_string(received_) +
           " entries: " + text + Advice(code);
}

void Search::FetchPage() {
  const SigpipeGuard guard;
  page_.clear();
  next_ = 0;
  LDAPMessage* result = nullptr;
  const int code = Receive(result);
  if (code != LDAP_SUCCESS) {
    BreakOff(code, code == LDAP_TIMEOUT
                       ? "no answer within " + std::to_string(session_.budget().seconds()) +
                             " seconds (timeout in [ldap] of the host settings)"
                       : session_.ErrorText(code));
    return;
  }
  TakeEntries(result);
  Judge(result);
  ldap_msgfree(result);
}

int Search::Receive(LDAPMessage*& result) {
  LDAP* ldap = session_.handle();
  LDAPControl* page = nullptr;
  int code = ldap_create_page_control(ldap, query_.page_size,
                                      cookie_.bv_len > 0 ? &cookie_ : nullptr, 1, &page);
  if (code != LDAP_SUCCESS) {
    return code;
  }
  LDAPControl* controls[] = {page, nullptr};
  std::vector<char*> attributes;
  for (std::string& attribute : query_.attributes) {
    attributes.push_back(attribute.data());
  }
  attributes.push_back(nullptr);
  const long left = session_.budget().Left().count();
  if (left == 0) {
    ldap_control_free(page);
    return LDAP_TIMEOUT;
  }
  timeval timeout = {left / 1000, left % 1000 * 1000};
  int id = 0;
  code = ldap_search_ext(ldap, query_.base.c_str(), LDAP_SCOPE_SUBTREE, query_.filter.c_str(),
                         attributes.data(), 0, controls, nullptr, &timeout, LDAP_NO_LIMIT, &id);
  ldap_control_free(page);
  if (code != LDAP_SUCCESS) {
    return code;
  }
  const int type = ldap_result(ldap, id, LDAP_MSG_ALL, &timeout, &result);
  if (type > 0) {
    return LDAP_SUCCESS;
  }
  if (type == 0) {
    ldap_abandon_ext(ldap, id, nullptr, nullptr);
    return LDAP_TIMEOUT;
  }
  ldap_get_option(ldap, LDAP_OPT_RESULT_CODE, &code);
  return code == LDAP_SUCCESS ? LDAP_SERVER_DOWN : code;
}

void Search::TakeEntries(LDAPMessage* result) {
  LDAP* ldap = session_.handle();
  for (LDAPMessage* message = ldap_first_entry(ldap, result); message != nullptr;
       message = ldap_next_entry(ldap, message)) {
    Entry entry;
    char* dn = ldap_get_dn(ldap, message);
    entry.dn = dn == nullptr ? "" : dn;
    ldap_memfree(dn);
    TakeValues(ldap, message, entry);
    page_.push_back(std::move(entry));
  }
  received_ += page_.size();
  session_.budget().ExtendFor(page_.size());
}

void Search::Judge(LDAPMessage* result) {
  LDAP* ldap = session_.handle();
  int code = LDAP_SUCCESS;
  char* detail = nullptr;
  LDAPControl** controls = nullptr;
  const int parsed =
      ldap_parse_result(ldap, result, &code, nullptr, &detail, nullptr, &controls, 0);
  std::string text = ldap_err2string(parsed == LDAP_SUCCESS ? code : parsed);
  text += " (" + std::to_string(parsed == LDAP_SUCCESS ? code : parsed) + ")";
  text += detail == nullptr || *detail == '\0' ? "" : std::string(": ") + detail;
  ldap_memfree(detail);
  if (parsed != LDAP_SUCCESS || code != LDAP_SUCCESS) {
    BreakOff(parsed != LDAP_SUCCESS ? parsed : code, text);
  } else if (ldap_first_reference(ldap, result) != nullptr) {
    BreakOff(LDAP_REFERRAL, "the server refers to another one");
  } else {
    TakeCookie(controls);
  }
  ldap_controls_free(controls);
}

void Search::TakeCookie(LDAPControl** controls) {
  ber_memfree(std::exchange(cookie_.bv_val, nullptr));
  cookie_.bv_len = 0;
  LDAPControl* page = ldap_control_find(LDAP_CONTROL_PAGEDRESULTS, controls, nullptr);
  ber_int_t estimate = 0;
  if (page != nullptr) {
    const int code = ldap_parse_pageresponse_control(session_.handle(), page, &estimate, &cookie_);
    if (code != LDAP_SUCCESS) {
      BreakOff(code, session_.ErrorText(code));
      return;
    }
  }
  more_ = cookie_.bv_len > 0;
}

}  // namespace korvmailserver::directory
