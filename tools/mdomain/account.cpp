// mdomain account: the accounts as mirrored into the database, and the source that they come from.
#include "platform/include/account.h"

#include "lib-domain/api/group.h"
#include "lib-domain/api/user.h"
#include "tools/mdomain/command.h"
#include "tools/mdomain/lookup.h"

namespace mdomain {
namespace {

template <typename Filter>
Filter TypedFilter(const Call& call) {
  Filter filter;
  filter.SetQuery(call.Text("--query"));
  filter.SetOffset(call.Int("--offset", 0));
  filter.SetLimit(call.Int("--limit", -1));
  return filter;
}

void Users(Call& call) {
  std::vector<MDOMAIN::RECORD::User> users;
  if (!MDOMAIN::API::User().List(TypedFilter<MDOMAIN::DB::UserDBFilter>(call), users)) {
    throw Failure(kFailed, "the users could not be read");
  }
  Json::Value records(Json::arrayValue);
  for (const auto& user : users) {
    Json::Value record;
    record["uid"] = user.GetUID();
    record["name"] = user.GetUserName();
    records.append(record);
  }
  call.out().List(records, {{"uid", "UID"}, {"name", "NAME"}});
}

void Groups(Call& call) {
  std::vector<MDOMAIN::RECORD::Group> groups;
  if (!MDOMAIN::API::Group().List(TypedFilter<MDOMAIN::DB::GroupDBFilter>(call), groups)) {
    throw Failure(kFailed, "the groups could not be read");
  }
  Json::Value records(Json::arrayValue);
  for (const auto& group : groups) {
    Json::Value record;
    record["gid"] = group.GetGID();
    record["name"] = group.GetGroupName();
    record["description"] = group.GetGroupDesc();
    records.append(record);
  }
  call.out().List(records, {{"gid", "GID"}, {"name", "NAME"}, {"description", "DESCRIPTION"}});
}

void MembersOf(Call& call) {
  const MDOMAIN::RECORD::Group group = FindGroup(call.Text("GROUP"));
  std::vector<unsigned int> uids;
  if (!MDOMAIN::API::Group().ListGroupToUsers(group.GetGID(), uids)) {
    throw Failure(kFailed, "the members of \"" + group.GetGroupName() + "\" could not be read");
  }
  call.out().List(NamedUsers(uids), {{"uid", "UID"}, {"name", "NAME"}});
}

void Check(Call& call) {
  std::vector<korvmailserver::AccountCheckStep> steps;
  const bool ok = korvmailserver::CheckAccountSource(steps);
  Json::Value records(Json::arrayValue);
  for (const auto& step : steps) {
    Json::Value record;
    record["step"] = step.name;
    record["ok"] = step.ok;
    record["detail"] = step.detail;
    records.append(record);
  }
  call.out().List(records, {{"step", "STEP"}, {"ok", "OK"}, {"detail", "DETAIL"}});
  if (!ok) {
    call.out().Flush();
    throw Failure(kFailed, "the account source does not answer in full");
  }
}

const std::vector<Argument> kListing = {
    Option("--query", "TEXT", "Only those whose name contains TEXT"),
    Number("--limit", "At most N of them"),
    Number("--offset", "Skip the first N"),
};

const Register kAccount({
    "account",
    "Accounts of the account system, as mirrored",
    {
        {"users", "List the mirrored users", "", Effect::kReads, kListing, Users},
        {"groups", "List the mirrored groups", "", Effect::kReads, kListing, Groups},
        {"members",
         "List the members of a mirrored group",
         "",
         Effect::kReads,
         {One("GROUP", "Name or gid of the group")},
         MembersOf},
        {"check",
         "Inspect the account source in force, step by step",
         "Stops at the first step that fails and says what to change. Ends with 1 when the source "
         "does not answer in full.",
         Effect::kReads,
         {},
         Check},
    },
});

}  // namespace
}  // namespace mdomain
