// mdomain account: the accounts as mirrored into the database, and the source that they come from.
#include "platform/include/account.h"

#include "lib-domain/api/group.h"
#include "tools/mdomain/account_output.h"
#include "tools/mdomain/arguments.h"
#include "tools/mdomain/command.h"
#include "tools/mdomain/lookup.h"

namespace mdomain {
namespace {

void Users(Call& call) {
  const auto filter = ListingFilter<MDOMAIN::DB::UserDBFilter>(call);
  Listing listing(call.out(), AccountColumns());
  ForEachUser(filter, [&](const auto& user) { listing.Add(AccountJson(user)); });
  listing.End();
}

void Groups(Call& call) {
  const auto filter = ListingFilter<MDOMAIN::DB::GroupDBFilter>(call);
  Listing listing(call.out(), {{"gid", "GID"}, {"name", "NAME"}, {"description", "DESCRIPTION"}});
  for (const auto& group : ListGroups(filter)) {
    listing.Add(DescribedGroupJson(group));
  }
  listing.End();
}

void MembersOf(Call& call) {
  const MDOMAIN::RECORD::Group group = FindGroup(call.Text("GROUP"));
  std::vector<unsigned int> uids;
  if (!MDOMAIN::API::Group().ListGroupToUsers(group.GetGID(), uids)) {
    throw Failure(kFailed, "the members of \"" + group.GetGroupName() + "\" could not be read");
  }
  ListMirroredUsers(call.out(), uids);
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

const Register kAccount({
    "account",
    "Accounts of the account system, as mirrored",
    {
        {"users", "List the mirrored users", "", Effect::kReads, ListingArguments("users", "name"),
         Users},
        {"groups", "List the mirrored groups", "", Effect::kReads,
         ListingArguments("groups", "name"), Groups},
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
