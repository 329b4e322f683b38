// mdomain group show: everything about one group.
#include <unordered_map>

#include "lib-domain/api/group.h"
#include "lib-domain/api/user.h"
#include "lib-domain/db/domain_group.h"
#include "tools/mdomain/account_output.h"
#include "tools/mdomain/command.h"
#include "tools/mdomain/domain_output.h"
#include "tools/mdomain/lookup.h"
#include "tools/mdomain/text.h"

namespace mdomain {
namespace {

using MDOMAIN::RECORD::Group;

Json::Value MembersJson(const Group& group) {
  std::vector<unsigned int> uids;
  std::unordered_map<unsigned int, std::string> names;
  if (!MDOMAIN::API::Group().ListGroupToUsers(group.GetGID(), uids) ||
      (!uids.empty() && !MDOMAIN::API::User().GetNames(uids, names))) {
    throw Failure(kFailed, "the members could not be read");
  }
  Json::Value records(Json::arrayValue);
  for (const unsigned int uid : uids) {
    records.append(AccountJson(uid, names[uid]));
  }
  return records;
}

// The domains that the group is in, with the role that it gives its members there.
Json::Value DomainsJson(const Group& group) {
  Json::Value records(Json::arrayValue);
  const Domains domains;
  for (const KnownDomain& domain : domains.all()) {
    std::string role;
    if (!MDOMAIN::DB::DomainGroup().GetResultGroupRole(domain.idx, {group.GetGID()}, role)) {
      throw Failure(kFailed, "the groups of the domain could not be read");
    }
    if (!role.empty()) {
      Json::Value record = DomainNameJson(domain);
      record["role"] = role;
      records.append(record);
    }
  }
  return records;
}

std::string WriteMembers(const Json::Value& members) {
  return members.empty() ? "none" : Counted(members.size(), "user") + ": " + WriteNames(members);
}

std::string WriteDomains(const Json::Value& domains) {
  std::string text;
  for (const Json::Value& domain : domains) {
    text += (text.empty() ? "" : ", ") + domain["name"].asString() + " (" +
            domain["id"].asString() + "): " + domain["role"].asString();
  }
  return text.empty() ? "none" : text;
}

void Show(Call& call) {
  const Group group = FindGroup(call.Text("GROUP"));
  Json::Value record = DescribedGroupJson(group);
  record["members"] = MembersJson(group);
  record["domains"] = DomainsJson(group);
  call.out().Record(record, {{"name", "GROUP"},
                             {"gid", "GID"},
                             {"description", "DESCRIPTION"},
                             {"members", "MEMBERS", WriteMembers},
                             {"domains", "DOMAINS", WriteDomains}});
}

const Register kShow({
    "group",
    "",
    {{"show",
      "Show everything about one group",
      "Its members as of the last refresh, and the domains that it is in with the role that it "
      "gives there. As text at most ten members are named: account members has them all.",
      Effect::kReads,
      {One("GROUP", "Name or gid of the group")},
      Show}},
});

}  // namespace
}  // namespace mdomain
