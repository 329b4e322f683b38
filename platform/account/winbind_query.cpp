// winbindd's answers cannot be taken as they come. Without a domain controller it says "no such
// name", or "success, none", about accounts that exist; and its id mapping takes a group for a user
// and a user for a group. So a "no" counts only while a controller answers, and the kind of every
// name is looked up.
#include "platform/account/winbind_query.h"

#include <algorithm>
#include <map>
#include <memory>
#include <utility>

#include "platform/account/winbind_library.h"
#include "platform/include/text.h"

namespace korvmailserver::account::winbind {

namespace {

struct WbcFree {
  void operator()(void* memory) const { wbcFreeMemory(memory); }
};
template <class T>
using WbcPointer = std::unique_ptr<T, WbcFree>;

// What a look-up by name or by id finds; null when it finds nothing.
template <class Entry, class Key>
WbcPointer<Entry> LookUp(const LateFunction<wbcErr(Key, Entry**)>& look_up, Key key) {
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
    std::string error;
    if (!winbind_library.Load(error)) {
      out_.Put(kFailed, {error});
      return false;
    }
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

  // True when winbindd's answers are the domain's. Asks the controller anew; says why not.
  bool ControllerAnswers(std::string& why) const {
    const wbcErr ping = wbcPingDc(domain_.c_str(), nullptr);
    if (ping != WBC_ERR_SUCCESS) {
      why = Say(("no domain controller of " + domain_ + " answers").c_str(), ping);
    }
    return ping == WBC_ERR_SUCCESS;
  }

  // A connection that was made with an earlier password answers pings and little else.
  bool ControllerTrustsUs(std::string& why) const {
    const wbcErr trust = wbcCheckTrustCredentials(domain_.c_str(), nullptr);
    if (trust == WBC_ERR_AUTH_ERROR) {
      why = Say(("the domain " + domain_ + " refuses this machine's password").c_str(), trust);
    }
    return trust != WBC_ERR_AUTH_ERROR;
  }

  bool IsMember(std::string& why) const {
    return ControllerAnswers(why) && ControllerTrustsUs(why);
  }

  // winbindd's "no" counts only with a controller behind it.
  void Deny() const {
    std::string why;
    ControllerAnswers(why) ? out_.Put(kUnknown) : out_.Put(kFailed, {why});
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
  void Reply(const passwd* user) const { user == nullptr ? Deny() : PutUser(*user, ""); }

  void Reply(const group* group) const {
    group == nullptr ? Deny()
                     : out_.Put(kGroup, {Full(group->gr_name), std::to_string(group->gr_gid)});
  }

  void PutGap(char kind, const std::string& listed) const { out_.Put(kind, {Full(listed)}); }

  bool Sid(const std::string& short_name, wbcDomainSid& sid) const {
    wbcSidType kind = WBC_SID_NAME_UNKNOWN;
    return KindOf(short_name, sid, kind);
  }

  void TellUsers(bool with_groups) const {
    const std::vector<std::string> names = List(wbcListUsers, "the users cannot be listed");
    out_.Put(kCount, {std::to_string(names.size())});
    for (size_t i = 0; i < names.size(); i += kBatch) {
      std::vector<WbcPointer<passwd>> users;
      for (size_t j = i; j < std::min(i + kBatch, names.size()); j++) {
        users.push_back(LookUp(wbcGetpwnam, Qualified(Short(names[j])).c_str()));
        if (users.back() == nullptr) {
          users.pop_back();
          PutGap(kNoUser, names[j]);
        }
      }
      PutUsers(users, with_groups ? GroupsOf(users) : std::vector<std::string>(users.size()));
    }
  }

  void TellGroups() const {
    const std::vector<std::string> names = List(wbcListGroups, "the groups cannot be listed");
    std::vector<wbcDomainSid> sids(names.size());
    std::vector<char> known(names.size());
    for (size_t i = 0; i < names.size(); i++) {
      known[i] = GroupSid(Short(names[i]), sids[i]) ? 1 : 0;
    }
    const std::vector<wbcUnixId> ids = IdsOf(sids);
    for (size_t i = 0; i < names.size(); i++) {
      if (known[i] != 0 && i < ids.size() && IsGid(ids[i])) {
        out_.Put(kGroup, {Full(names[i]), std::to_string(ids[i].id.gid)});
      } else {
        PutGap(kNoGroup, names[i]);
      }
    }
  }

 private:
  using Lister = wbcErr (*)(const char*, uint32_t*, const char***);
  using Sids = std::vector<wbcDomainSid>;

  // Names looked up together: one request to winbindd instead of one each, and a first answer soon.
  static constexpr size_t kBatch = 256;

  // The listed names of this domain.
  std::vector<std::string> List(Lister lister, const char* what) const {
    uint32_t count = 0;
    const char** names = nullptr;
    const wbcErr code = lister(domain_.c_str(), &count, &names);
    const WbcPointer<const char*> owner(code == WBC_ERR_SUCCESS ? names : nullptr);
    if (code != WBC_ERR_SUCCESS) {
      out_.Put(kFailed, {Say(what, code)});
      return {};
    }
    std::vector<std::string> listed(names, names + count);
    listed.erase(std::remove_if(listed.begin(), listed.end(),
                                [this](const std::string& name) { return Short(name).empty(); }),
                 listed.end());
    return listed;
  }

  void PutUsers(const std::vector<WbcPointer<passwd>>& users,
                const std::vector<std::string>& groups) const {
    for (size_t i = 0; i < users.size(); i++) {
      PutUser(*users[i], groups[i]);
    }
  }

  static bool IsGid(const wbcUnixId& id) {
    return id.type == WBC_ID_TYPE_GID || id.type == WBC_ID_TYPE_BOTH;
  }

  // Unix ids in the order of the SIDs; empty when they cannot be told.
  static std::vector<wbcUnixId> IdsOf(const Sids& sids) {
    std::vector<wbcUnixId> ids(sids.size());
    const bool told = wbcSidsToUnixIds(sids.data(), static_cast<uint32_t>(sids.size()),
                                       ids.data()) == WBC_ERR_SUCCESS;
    return told ? ids : std::vector<wbcUnixId>();
  }

  Sids SidsOf(const std::vector<WbcPointer<passwd>>& users) const {
    std::vector<wbcUnixId> ids(users.size());
    Sids sids(users.size());
    for (size_t i = 0; i < users.size(); i++) {
      ids[i].type = WBC_ID_TYPE_UID;
      ids[i].id.uid = users[i]->pw_uid;
    }
    const bool told = wbcUnixIdsToSids(ids.data(), static_cast<uint32_t>(ids.size()),
                                       sids.data()) == WBC_ERR_SUCCESS;
    for (size_t i = 0; i < users.size(); i++) {
      if (!told || sids[i].num_auths == 0) {
        sids[i] = {};
        Sid(Short(users[i]->pw_name), sids[i]);
      }
    }
    return sids;
  }

  // The domain groups of the user with this SID, also those that hold the user through others.
  // False: they are not known.
  static bool GroupSidsOf(const wbcDomainSid& user, Sids& groups) {
    uint32_t count = 0;
    wbcDomainSid* sids = nullptr;
    const wbcErr code = wbcLookupUserSids(&user, true, &count, &sids);
    const WbcPointer<wbcDomainSid> owner(code == WBC_ERR_SUCCESS ? sids : nullptr);
    if (code == WBC_ERR_SUCCESS) {
      groups.assign(sids, sids + count);
    }
    return code == WBC_ERR_SUCCESS;
  }

  static std::string Text(const wbcDomainSid& sid) {
    char text[WBC_SID_STRING_BUFLEN];
    wbcSidToStringBuf(&sid, text, sizeof(text));
    return text;
  }

  // Group ids joined by ",", a text for each user. Answers kNoMemberships for those whose groups
  // are not known.
  std::vector<std::string> GroupsOf(const std::vector<WbcPointer<passwd>>& users) const {
    const Sids user_sids = SidsOf(users);
    std::vector<Sids> groups_of(users.size());
    std::map<std::string, size_t> number;  // of a SID among `sids`
    Sids sids;
    for (size_t i = 0; i < users.size(); i++) {
      if (!GroupSidsOf(user_sids[i], groups_of[i])) {
        PutGap(kNoMemberships, users[i]->pw_name);
      }
      for (const wbcDomainSid& sid : groups_of[i]) {
        if (number.emplace(Text(sid), sids.size()).second) {
          sids.push_back(sid);
        }
      }
    }
    const std::vector<wbcUnixId> ids = IdsOf(sids);
    std::vector<std::string> texts(users.size());
    for (size_t i = 0; i < users.size(); i++) {
      if (ids.size() < sids.size()) {
        PutGap(kNoMemberships, users[i]->pw_name);
      }
      for (const wbcDomainSid& sid : ids.empty() ? Sids() : groups_of[i]) {
        const wbcUnixId& id = ids[number[Text(sid)]];
        if (IsGid(id)) {
          texts[i] += (texts[i].empty() ? "" : ",") + std::to_string(id.id.gid);
        }
      }
    }
    return texts;
  }

  bool SameDomain(const std::string& domain) const {
    return EqualsIgnoreAsciiCase(domain, domain_);
  }

  std::string domain_;
  const AnswerWriter& out_;
  char separator_ = '\\';
};

}  // namespace

void QueryAccounts(const std::string& domain, const Wanted& wanted, const AnswerWriter& out) {
  Conversation talk(domain, out);
  if (!talk.Begin()) {
    return;
  }
  std::string why;
  const bool is_member = talk.IsMember(why);
  if (wanted.users) {
    talk.TellUsers(wanted.memberships && is_member);
  }
  if (wanted.groups) {
    talk.TellGroups();
  }
  if (!is_member || !talk.ControllerAnswers(why)) {
    out.Put(kFailed, {why});
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
  std::string why;
  const bool is_member = Conversation(domain, out).IsMember(why);
  is_member ? out.Put(kReady, {"a domain controller of " + domain + " answers"})
            : out.Put(kFailed, {why});
}

}  // namespace korvmailserver::account::winbind
