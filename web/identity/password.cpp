#include "web/identity/password.h"

#include <grp.h>
#include <pwd.h>
#include <security/pam_appl.h>
#include <syslog.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <vector>

namespace mdomain_web {

namespace {

// Modules that ask for a password get it, once each time; whatever else is asked has no answer.
int Converse(int count, const pam_message** messages, pam_response** responses, void* password) {
  if (count <= 0 || count > PAM_MAX_NUM_MSG) {
    return PAM_CONV_ERR;
  }
  auto* answers =
      static_cast<pam_response*>(calloc(static_cast<size_t>(count), sizeof(pam_response)));
  if (answers == nullptr) {
    return PAM_BUF_ERR;
  }
  for (int i = 0; i < count; ++i) {
    if (messages[i]->msg_style == PAM_PROMPT_ECHO_OFF) {
      answers[i].resp = strdup(static_cast<const char*>(password));
    } else if (messages[i]->msg_style == PAM_PROMPT_ECHO_ON) {
      for (int k = 0; k < i; ++k) {
        free(answers[k].resp);
      }
      free(answers);
      return PAM_CONV_ERR;
    }
  }
  *responses = answers;
  return PAM_SUCCESS;
}

// Modules would sleep after a wrong password: whoever tries often waits by the throttle instead,
// and holds no thread meanwhile.
void DoNotSleep(int /*status*/, unsigned int /*microseconds*/, void* /*data*/) {}

// Group ids are read with a buffer that grows.
template <typename Entry, typename Ask>
bool Find(Entry& entry, std::vector<char>& buffer, const Ask& ask) {
  Entry* found = nullptr;
  buffer.resize(4096);
  int status = 0;
  while ((status = ask(&entry, buffer.data(), buffer.size(), &found)) == ERANGE) {
    buffer.resize(buffer.size() * 4);
  }
  return status == 0 && found != nullptr;
}

bool FindPerson(const std::string& account, passwd& person, std::vector<char>& buffer) {
  return Find(person, buffer, [&](auto... rest) { return getpwnam_r(account.c_str(), rest...); });
}

// Whether a module decided about the person, not about itself.
bool IsJudgement(int status) {
  static const int kOwnTroubles[] = {PAM_OPEN_ERR,       PAM_SYMBOL_ERR,      PAM_SERVICE_ERR,
                                     PAM_SYSTEM_ERR,     PAM_BUF_ERR,         PAM_ABORT,
                                     PAM_MODULE_UNKNOWN, PAM_AUTHINFO_UNAVAIL};
  return std::find(std::begin(kOwnTroubles), std::end(kOwnTroubles), status) ==
         std::end(kOwnTroubles);
}

Checked::Outcome OutcomeOf(int status, bool is_password_right) {
  if (!IsJudgement(status)) {
    return Checked::Outcome::kNotAsked;
  }
  if (!is_password_right) {
    return Checked::Outcome::kWrong;
  }
  return status == PAM_SUCCESS ? Checked::Outcome::kRight
         : status == PAM_NEW_AUTHTOK_REQD || status == PAM_AUTHTOK_EXPIRED
             ? Checked::Outcome::kMustChange
             : Checked::Outcome::kShutOut;
}

}  // namespace

Checked CheckPassword(const std::string& service, const std::string& name,
                      const std::string& password, const std::string& remote_address) {
  const auto has_nul = [](const std::string& text) { return text.find('\0') != std::string::npos; };
  if (name.empty() || password.empty() || has_nul(name) || has_nul(password)) {
    return {};
  }
  const pam_conv conversation{Converse, const_cast<char*>(password.c_str())};
  pam_handle_t* handle = nullptr;
  int status = pam_start(service.c_str(), name.c_str(), &conversation, &handle);
  if (status != PAM_SUCCESS) {
    syslog(LOG_AUTHPRIV | LOG_ERR, "PAM of %s does not begin: %s", service.c_str(),
           pam_strerror(nullptr, status));
    return {Checked::Outcome::kNotAsked, ""};
  }
  pam_set_item(handle, PAM_FAIL_DELAY, reinterpret_cast<const void*>(DoNotSleep));
  pam_set_item(handle, PAM_RHOST, remote_address.c_str());
  status = pam_authenticate(handle, PAM_SILENT | PAM_DISALLOW_NULL_AUTHTOK);
  const bool is_password_right = status == PAM_SUCCESS;
  Checked checked;
  if (is_password_right) {
    status = pam_acct_mgmt(handle, PAM_SILENT | PAM_DISALLOW_NULL_AUTHTOK);
    const void* user = nullptr;
    if (pam_get_item(handle, PAM_USER, &user) == PAM_SUCCESS && user != nullptr) {
      checked.account = static_cast<const char*>(user);
    }
  }
  checked.outcome = OutcomeOf(status, is_password_right);
  if (checked.outcome == Checked::Outcome::kNotAsked) {
    syslog(LOG_AUTHPRIV | LOG_ERR, "PAM of %s cannot tell: %s", service.c_str(),
           pam_strerror(handle, status));
  } else if (is_password_right && status != PAM_SUCCESS) {
    syslog(LOG_AUTHPRIV | LOG_NOTICE, "%s may not sign in: %s", checked.account.c_str(),
           pam_strerror(handle, status));
  }
  pam_end(handle, status);
  return checked;
}

std::optional<std::uint32_t> UidOf(const std::string& account) {
  passwd person{};
  std::vector<char> buffer;
  return FindPerson(account, person, buffer) ? std::make_optional(person.pw_uid) : std::nullopt;
}

bool IsInGroup(const std::string& account, const std::string& group) {
  ::group wanted{};
  std::vector<char> group_buffer;
  if (group.empty() || !Find(wanted, group_buffer,
                             [&](auto... rest) { return getgrnam_r(group.c_str(), rest...); })) {
    return false;
  }
  passwd person{};
  std::vector<char> person_buffer;
  if (!FindPerson(account, person, person_buffer)) {
    return false;
  }
  std::vector<gid_t> gids(64);
  int count = static_cast<int>(gids.size());
  while (getgrouplist(person.pw_name, person.pw_gid, gids.data(), &count) < 0) {
    gids.resize(static_cast<size_t>(count) + 1);
    count = static_cast<int>(gids.size());
  }
  const auto end = gids.begin() + count;
  return std::find(gids.begin(), end, wanted.gr_gid) != end;
}

}  // namespace mdomain_web
