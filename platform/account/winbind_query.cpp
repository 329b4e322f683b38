// winbindd's answers cannot be taken as they come. Without a domain controller it says "no such
// name", or "success, none", about accounts that exist; and its id mapping takes a group for a user
// and a user for a group. So a "no" counts only while a controller answers, and the kind of every
// name is looked up.
#include "platform/account/winbind_query.h"

#include <grp.h>
#include <pwd.h>

#include <cstdint>
#include <ctime>
#include <memory>
#include <utility>

#include "platform/include/text.h"

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

// What a look-up by name or by id finds; null when it finds nothing.
template <class Entry, class Key>
WbcPointer<Entry> LookUp(wbcErr (*look_up)(Key, Entry**), Key key) {
  Entry* entry = nullptr;
  const wbcErr code = look_up(key, &entry);
  WbcPointer<Entry> owner(entry);
  return code == WBC_ERR_SUCCESS ? std::move(owner) : nullptr;
}

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

  // True when winbindd's "no" can be believed. Else answers kFailed.
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

  std::string Qualified(const std::string& name) const { return domain_ + separator_ + name; }

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

  bool IsGroup(const std::string& short_name) const {
    wbcDomainSid sid = {};
    return GroupSid(short_name, sid);
  }

  void PutUser(const passwd& user, const std::string& groups) const {
    out_.Put(kUser, {Full(user.pw_name), std::to_string(user.pw_uid), std::to_string(user.pw_gid),
                     user.pw_gecos == nullptr ? "" : user.pw_gecos, groups});
  }

  // The account, or that there is none.
  void Reply(const passwd* user) { user == nullptr ? Deny() : PutUser(*user, ""); }

  void Reply(const group* group) {
    group == nullptr ? Deny()
                     : out_.Put(kGroup, {Full(group->gr_name), std::to_string(group->gr_gid)});
  }

  // The ids of all groups of a user, also of those that hold the user through others. False: they
  // are not known.
  bool GroupsOf(const std::string& name, std::string& groups) const {
    uint32_t count = 0;
    gid_t* ids = nullptr;
    const wbcErr code = wbcGetGroups(name.c_str(), &count, &ids);
    const WbcPointer<gid_t> owner(ids);
    for (uint32_t i = 0; code == WBC_ERR_SUCCESS && i < count; i++) {
      groups += (i == 0 ? "" : ",") + std::to_string(ids[i]);
    }
    return code == WBC_ERR_SUCCESS;
  }

  // Answers that something is missing of a listed account. False after an answer kFailed.
  bool PutGap(char kind, const std::string& listed) {
    if (!ControllerAnswers()) {
      return false;
    }
    out_.Put(kind, {Full(listed)});
    return true;
  }

  // False after an answer kFailed.
  bool TellListedUser(const std::string& listed, bool with_groups) {
    const std::string name = Qualified(Short(listed));
    const WbcPointer<passwd> user = LookUp(wbcGetpwnam, name.c_str());
    if (user == nullptr) {
      return PutGap(kUnresolved, listed);
    }
    std::string groups;
    if (with_groups && !GroupsOf(name, groups) && !PutGap(kNoMemberships, listed)) {
      return false;
    }
    PutUser(*user, groups);
    return true;
  }

  // False after an answer kFailed.
  bool TellListedGroup(const std::string& listed) {
    wbcDomainSid sid = {};
    gid_t gid = 0;
    if (!GroupSid(Short(listed), sid) || wbcSidToGid(&sid, &gid) != WBC_ERR_SUCCESS) {
      return PutGap(kUnresolved, listed);
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
    return EqualsIgnoreAsciiCase(domain, domain_);
  }

  std::string domain_;
  const AnswerWriter& out_;
  char separator_ = '\\';
  wbcErr ping_ = WBC_ERR_UNKNOWN_FAILURE;  // not pinged yet
};

}  // namespace

void QueryUsers(const std::string& domain, bool with_groups, const AnswerWriter& out) {
  Conversation talk(domain, out);
  if (talk.Begin()) {
    talk.TellAll(wbcListUsers, "the users cannot be listed",
                 [&](const char* name) { return talk.TellListedUser(name, with_groups); });
  }
}

void QueryGroups(const std::string& domain, const AnswerWriter& out) {
  Conversation talk(domain, out);
  if (talk.Begin()) {
    talk.TellAll(wbcListGroups, "the groups cannot be listed",
                 [&](const char* name) { return talk.TellListedGroup(name); });
  }
}

void QueryUser(const std::string& domain, const std::string& name, const AnswerWriter& out) {
  Conversation talk(domain, out);
  if (talk.Begin()) {
    const std::string full_name = talk.Qualified(name);
    const auto user = talk.IsUser(name) ? LookUp(wbcGetpwnam, full_name.c_str()) : nullptr;
    talk.Reply(user.get());
  }
}

void QueryUid(const std::string& domain, unsigned int uid, const AnswerWriter& out) {
  Conversation talk(domain, out);
  if (talk.Begin()) {
    const auto user = LookUp(wbcGetpwuid, uid);
    const bool found = user != nullptr && talk.IsUser(talk.Short(user->pw_name));
    talk.Reply(found ? user.get() : nullptr);
  }
}

void QueryGroup(const std::string& domain, const std::string& name, const AnswerWriter& out) {
  Conversation talk(domain, out);
  if (talk.Begin()) {
    const std::string full_name = talk.Qualified(name);
    const auto group = talk.IsGroup(name) ? LookUp(wbcGetgrnam, full_name.c_str()) : nullptr;
    talk.Reply(group.get());
  }
}

void QueryGid(const std::string& domain, unsigned int gid, const AnswerWriter& out) {
  Conversation talk(domain, out);
  if (talk.Begin()) {
    const auto group = LookUp(wbcGetgrgid, gid);
    const bool found = group != nullptr && talk.IsGroup(talk.Short(group->gr_name));
    talk.Reply(found ? group.get() : nullptr);
  }
}

void QueryDaemon(const AnswerWriter& out) {
  Conversation talk("", out);
  if (talk.Begin()) {
    out.Put(kReady, {"winbindd answers"});
  }
}

void QueryController(const std::string& domain, const AnswerWriter& out) {
  if (Conversation(domain, out).ControllerAnswers()) {
    out.Put(kReady, {"a domain controller of " + domain + " answers"});
  }
}

}  // namespace korvmailserver::account::winbind
