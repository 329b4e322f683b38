#include "platform/directory/session.h"

#include <algorithm>

#include "platform/directory/sigpipe_guard.h"
#include "platform/directory/text.h"

namespace korvmailserver::directory {

const LateLibrary ldap_library(MDOMAIN_LDAP_FILE);

namespace {

bool UsesTls(const LdapSettings& settings) {
  return settings.start_tls || settings.uri.compare(0, 8, "ldaps://") == 0;
}

}  // namespace

const std::string* Entry::First(const std::string& attribute) const {
  const auto found = values.find(attribute);
  if (found == values.end()) {
    return nullptr;
  }
  const auto text = std::find_if(found->second.begin(), found->second.end(), IsText);
  return text == found->second.end() ? nullptr : &*text;
}

bool ReadLdapSettings(LdapSettings& settings, std::string& error) {
  HostSettings all;
  if (!ReadHostSettings(all, error)) {
    return false;
  }
  settings = all.ldap;
  if (settings.uri.empty()) {
    error = HostSettingsPath() + ": uri is missing in [ldap]";
  }
  return !settings.uri.empty();
}

Session::~Session() {
  if (ldap_ != nullptr) {
    const SigpipeGuard guard;
    ldap_unbind_ext_s(ldap_, nullptr, nullptr);
  }
}

std::string Session::ErrorText(int code) const {
  std::string text = std::string(ldap_err2string(code)) + " (" + std::to_string(code) + ")";
  char* detail = nullptr;
  if (ldap_ != nullptr &&
      ldap_get_option(ldap_, LDAP_OPT_DIAGNOSTIC_MESSAGE, &detail) == LDAP_OPT_SUCCESS &&
      detail != nullptr) {
    text += *detail == '\0' ? "" : std::string(": ") + detail;
    ldap_memfree(detail);
  }
  return text;
}

bool Session::SetOptions(const LdapSettings& settings, std::string& error) {
  const int version = LDAP_VERSION3;  // its address also means "on", as any does
  const int demand = LDAP_OPT_X_TLS_DEMAND;
  const int client = 0;
  const timeval timeout = {settings.timeout, 0};
  bool ok = ldap_set_option(ldap_, LDAP_OPT_PROTOCOL_VERSION, &version) == 0 &&
            ldap_set_option(ldap_, LDAP_OPT_REFERRALS, LDAP_OPT_OFF) == 0 &&
            ldap_set_option(ldap_, LDAP_OPT_RESTART, &version) == 0 &&
            ldap_set_option(ldap_, LDAP_OPT_NETWORK_TIMEOUT, &timeout) == 0 &&
            ldap_set_option(ldap_, LDAP_OPT_TIMEOUT, &timeout) == 0 &&
            ldap_set_option(ldap_, LDAP_OPT_X_TLS_REQUIRE_CERT, &demand) == 0 &&
            deadline_.Attach(ldap_);
  if (ok && !settings.ca_file.empty()) {
    ok = ldap_set_option(ldap_, LDAP_OPT_X_TLS_CACERTFILE, settings.ca_file.c_str()) == 0;
  }
  if (ok && UsesTls(settings) && ldap_set_option(ldap_, LDAP_OPT_X_TLS_NEWCTX, &client) != 0) {
    error = "TLS cannot be set up with ca_file \"" + settings.ca_file + "\"";
    return false;
  }
  if (!ok) {
    error = "the LDAP library refuses its options";
  }
  return ok;
}

bool Session::Connect(const LdapSettings& settings, std::string& error) {
  const SigpipeGuard guard;
  timeout_ = settings.timeout;
  Renew();
  if (!ldap_library.Load(error)) {
    return false;
  }
  int code = ldap_initialize(&ldap_, settings.uri.c_str());
  if (code != LDAP_SUCCESS) {
    error = "uri \"" + settings.uri + "\": " + ldap_err2string(code);
    return false;
  }
  if (!SetOptions(settings, error)) {
    return false;
  }
  deadline_.Arm(timeout_);
  code = ldap_connect(ldap_);
  if (code == LDAP_SUCCESS && settings.start_tls) {
    code = ldap_start_tls_s(ldap_, nullptr, nullptr);
  }
  deadline_.Disarm();
  if (code != LDAP_SUCCESS) {
    error = "cannot connect to " + settings.uri + ": " + ErrorText(code);
    if (UsesTls(settings)) {
      // The TLS library's own text can be empty when it cannot use the file.
      error += "; with TLS, ca_file \"" + settings.ca_file + "\"";
    }
  }
  return code == LDAP_SUCCESS;
}

bool Session::Bind(const LdapSettings& settings, std::string& error) {
  const SigpipeGuard guard;
  std::string password = settings.bind_dn.empty() ? "" : settings.password;
  berval credentials = {password.size(), password.data()};
  const long left = std::max<long>(budget_.Left().count(), 1);
  const timeval timeout = {left / 1000, left % 1000 * 1000};
  ldap_set_option(ldap_, LDAP_OPT_TIMEOUT, &timeout);
  const int code = ldap_sasl_bind_s(ldap_, settings.bind_dn.c_str(), LDAP_SASL_SIMPLE, &credentials,
                                    nullptr, nullptr, nullptr);
  if (code != LDAP_SUCCESS) {
    const std::string who = settings.bind_dn.empty() ? "anonymously" : "as " + settings.bind_dn;
    error = "cannot bind " + who + " at " + settings.uri + ": " + ErrorText(code);
  }
  return code == LDAP_SUCCESS;
}

}  // namespace korvmailserver::directory
