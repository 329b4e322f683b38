// winbindd's answers need judgement: without a domain controller it says "no such name", and
// "success, none", for accounts that exist; and its id mapping lets a group pass for a user and a
// user for a group. So a "no" counts only while a controller answers, and every name's kind is
// asked for.
#include "platform/account/winbind_questions.h"

#include <grp.h>
#include <pwd.h>
#include <strings.h>

#include <cstdint>
#include <ctime>
#include <memory>
#include <utility>

extern "C" {
#include <wbclient.h>
}

namespace korvmailserver::account::winbind {

namespace {

struct WbcFree {
  void operator()(void* memory) const { wbcFreeMemory(memory); }
};
template <class T>
using WbcPointer = std::unique_ptr<T, WbcFree>;

std::string Say(const char* what, wbcErr code) {
  return std::string(what) + ": " + wbcErrorString(code);
}

// One conversation about one domain.
class Conversation {
 public:
  Conversation(std::string domain, const AnswerWriter& out)
      : domain_(std::move(domain)), out_(out) {}

  // False after an answer kFailed.
  bool Begin() {
    struct wbcInterfaceDetails* details = nullptr;
    const wbcErr code = wbcInterfaceDetails(&details);
    const WbcPointer<struct wbcInterfaceDetails> owner(details);
    if (code != WBC_ERR_SUCCESS) {
      out_.Put(kFailed, {Say("winbindd does not answer; is it running?", code)});
      return false;
    }
    separator_ = details->winbind_separator;
    return true;
  }

  // A "no" that can be believed. Else answers kFailed.
  bool ControllerAnswers() {
    if (ping_ == WBC_ERR_UNKNOWN_FAILURE) {
      ping_ = wbcPingDc(domain_.c_str(), nullptr);
    }
    if (ping_ != WBC_ERR_SUCCESS) {
      out_.Put(kFailed, {Say(("no domain controller of " + domain_ + " answers").c_str(), ping_)});
    }
    return ping_ == WBC_ERR_SUCCESS;
  }

  void Deny() {
    if (ControllerAnswers()) {
      out_.Put(kUnknown);
    }
  }

  std::string Asked(const std::string& name) const { return domain_ + separator_ + name; }

  // The part behind the domain; empty for a name of another domain.
  std::string Short(const std::string& name) const {
    const size_t end = name.find(separator_);
    if (end == std::string::npos) {
      return name;  // "winbind use default domain"
    }
    return SameDomain(name.substr(0, end)) ? name.substr(end + 1) : std::string();
  }

  std::string Full(const std::string& name) const { return domain_ + "\\" + Short(name); }

  bool KindOf(const std::string& short_name, wbcDomainSid& sid, wbcSidType& kind) const {
    return !short_name.empty() &&
           wbcLookupName(domain_.c_str(), short_name.c_str(), &sid, &kind) == WBC_ERR_SUCCESS;
  }

  bool IsUser(const std::string& short_name) const {
    wbcDomainSid sid = {};
    wbcSidType kind = WBC_SID_NAME_UNKNOWN;
    return KindOf(short_name, sid, kind) && kind == WBC_SID_NAME_USER;
  }

  bool GroupSid(const std::string& short_name, wbcDomainSid& sid) const {
    wbcSidType kind = WBC_SID_NAME_UNKNOWN;
    return KindOf(short_name, sid, kind) &&
           (kind == WBC_SID_NAME_DOM_GRP || kind == WBC_SID_NAME_ALIAS);
  }

  void PutUser(const passwd& user, const std::string& groups) const {
    out_.Put(kUser, {Full(user.pw_name), std::to_string(user.pw_uid), std::to_string(user.pw_gid),
                     user.pw_gecos == nullptr ? "" : user.pw_gecos, groups});
  }

  // The ids of all groups of a user, those that he is in through others included. False: unknown.
  bool GroupsOf(const std::string& asked, std::string& groups) const {
    uint32_t count = 0;
    gid_t* ids = nullptr;
    const wbcErr code = wbcGetGroups(asked.c_str(), &count, &ids);
    const WbcPointer<gid_t> owner(ids);
    for (uint32_t i = 0; code == WBC_ERR_SUCCESS && i < count; i++) {
      groups += (i == 0 ? "" : ",") + std::to_string(ids[i]);
    }
    return code == WBC_ERR_SUCCESS;
  }

  // False after an answer kFailed.
  bool TellListedUser(const std::string& listed, bool with_groups) {
    passwd* user = nullptr;
    const std::string asked = Asked(Short(listed));
    const wbcErr code = wbcGetpwnam(asked.c_str(), &user);
    const WbcPointer<passwd> owner(user);
    if (code != WBC_ERR_SUCCESS) {
      if (!ControllerAnswers()) {
        return false;
      }
      out_.Put(kUnresolved, {Full(listed)});
      return true;
    }
    std::string groups;
    if (with_groups && !GroupsOf(asked, groups)) {
      if (!ControllerAnswers()) {
        return false;
      }
      out_.Put(kNoMemberships, {Full(listed)});
    }
    PutUser(*user, groups);
    return true;
  }

  bool TellListedGroup(const std::string& listed) {
    wbcDomainSid sid = {};
    gid_t gid = 0;
    if (!GroupSid(Short(listed), sid) || wbcSidToGid(&sid, &gid) != WBC_ERR_SUCCESS) {
      if (!ControllerAnswers()) {
        return false;
      }
      out_.Put(kUnresolved, {Full(listed)});
      return true;
    }
    out_.Put(kGroup, {Full(listed), std::to_string(gid)});
    return true;
  }

  using Lister = wbcErr (*)(const char*, uint32_t*, const char***);

  // Gives every listed name to `tell` until it returns false. An empty list counts only while a
  // controller answers.
  template <class Tell>
  void TellAll(Lister lister, const char* what, const Tell& tell) {
    uint32_t count = 0;
    const char** names = nullptr;
    const wbcErr code = lister(domain_.c_str(), &count, &names);
    const WbcPointer<const char*> owner(code == WBC_ERR_SUCCESS ? names : nullptr);
    if (code != WBC_ERR_SUCCESS) {
      out_.Put(kFailed, {Say(what, code)});
      return;
    }
    if (count == 0) {
      ControllerAnswers();
    }
    for (uint32_t i = 0; i < count; i++) {
      if (!Short(names[i]).empty() && !tell(names[i])) {
        return;
      }
    }
  }

 private:
  bool SameDomain(const std::string& domain) const {
    return strcasecmp(domain.c_str(), domain_.c_str()) == 0;
  }

  std::string domain_;
  const AnswerWriter& out_;
  char separator_ = '\\';
  wbcErr ping_ = WBC_ERR_UNKNOWN_FAILURE;  // not asked yet
};

}  // namespace

void AskUsers(const std::string& domain, bool with_groups, const AnswerWriter& out) {
  Conversation talk(domain, out);
  if (talk.Begin()) {
    talk.TellAll(wbcListUsers, "the users cannot be listed",
                 [&](const char* name) { return talk.TellListedUser(name, with_groups); });
  }
}

void AskGroups(const std::string& domain, const AnswerWriter& out) {
  Conversation talk(domain, out);
  if (talk.Begin()) {
    talk.TellAll(wbcListGroups, "the groups cannot be listed",
                 [&](const char* name) { return talk.TellListedGroup(name); });
  }
}

void AskUser(const std::string& domain, const std::string& name, const AnswerWriter& out) {
  Conversation talk(domain, out);
  if (!talk.Begin()) {
    return;
  }
  passwd* user = nullptr;
  const bool found =
      talk.IsUser(name) && wbcGetpwnam(talk.Asked(name).c_str(), &user) == WBC_ERR_SUCCESS;
  const WbcPointer<passwd> owner(user);
  found ? talk.PutUser(*user, "") : talk.Deny();
}

void AskUid(const std::string& domain, unsigned int uid, const AnswerWriter& out) {
  Conversation talk(domain, out);
  if (!talk.Begin()) {
    return;
  }
  passwd* user = nullptr;
  const bool found = wbcGetpwuid(uid, &user) == WBC_ERR_SUCCESS;
  const WbcPointer<passwd> owner(user);
  found&& talk.IsUser(talk.Short(user->pw_name)) ? talk.PutUser(*user, "") : talk.Deny();
}

void AskGroup(const std::string& domain, const std::string& name, const AnswerWriter& out) {
  Conversation talk(domain, out);
  if (!talk.Begin()) {
    return;
  }
  wbcDomainSid sid = {};
  group* entry = nullptr;
  const bool found =
      talk.GroupSid(name, sid) && wbcGetgrnam(talk.Asked(name).c_str(), &entry) == WBC_ERR_SUCCESS;
  const WbcPointer<group> owner(entry);
  if (!found) {
    talk.Deny();
    return;
  }
  out.Put(kGroup, {talk.Full(entry->gr_name), std::to_string(entry->gr_gid)});
}

void AskGid(const std::string& domain, unsigned int gid, const AnswerWriter& out) {
  Conversation talk(domain, out);
  if (!talk.Begin()) {
    return;
  }
  wbcDomainSid sid = {};
  group* entry = nullptr;
  const bool found = wbcGetgrgid(gid, &entry) == WBC_ERR_SUCCESS;
  const WbcPointer<group> owner(entry);
  if (!found || !talk.GroupSid(talk.Short(entry->gr_name), sid)) {
    talk.Deny();
    return;
  }
  out.Put(kGroup, {talk.Full(entry->gr_name), std::to_string(gid)});
}

void AskDaemon(const AnswerWriter& out) {
  Conversation talk("", out);
  if (talk.Begin()) {
    out.Put(kReady, {"winbindd answers"});
  }
}

void AskController(const std::string& domain, const AnswerWriter& out) {
  if (Conversation(domain, out).ControllerAnswers()) {
    out.Put(kReady, {"a domain controller of " + domain + " answers"});
  }
}

}  // namespace korvmailserver::account::winbind
