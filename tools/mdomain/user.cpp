// mdomain user, what reads: the users of domains and their addresses. Changes are in
// user_change.cpp.
#include <optional>

#include "lib-domain/api/domain_user.h"
#include "lib-domain/insight/alias_owner.h"
#include "tools/mdomain/arguments.h"
#include "tools/mdomain/command.h"
#include "tools/mdomain/lookup.h"
#include "tools/mdomain/user_output.h"

namespace mdomain {
namespace {

using MDOMAIN::INSIGHT::AddressOwners;
using MDOMAIN::INSIGHT::AliasOwner;
using MDOMAIN::INSIGHT::AliasOwners;

using MDOMAIN::API::DomainUser;

void List(Call& call) {
  const int idx = TypedDomain(call).idx;
  const auto filter = ListingFilter<MDOMAIN::DB::DomainDBFilter>(call);
  Listing listing(call.out(), UserColumns());
  ForEachDomainUser(idx, filter, [&](const auto& user) { listing.Add(UserJson(user)); });
  listing.End();
}

void Duplicates(Call& call) {
  const KnownDomain domain = TypedDomain(call);
  std::vector<std::string> aliases;
  if (!DomainUser().ListDuplicatedEmail(domain.idx, aliases)) {
    throw Failure(kFailed, "the colliding aliases could not be read");
  }
  AliasOwners owners;
  owners.Read(domain.idx, aliases);
  Listing listing(call.out(),
                  {{"alias", "ALIAS"}, {"owner", "OWNER"}, {"holders", "ALSO WANTED BY"}});
  for (const std::string& alias : aliases) {
    const AliasOwner& owner = *owners.Find(domain.idx, alias);
    Json::Value record;
    record["alias"] = alias;
    record["owner"] = call.out().json() ? owner.name : owner.Text();
    record["is_entry"] = owner.is_entry;
    record["holders"] = JsonTexts(owner.holders);
    listing.Add(record);
  }
  listing.End();
}

void Find(Call& call) {
  const KnownDomain domain = TypedDomain(call);
  std::string name;
  if (!DomainUser().GetAliasUser(domain.idx, call.Text("ALIAS"), name)) {
    throw Failure(kFailed, "the owner of the alias could not be read");
  }
  if (name.empty()) {
    throw Failure(kNotFound, "nobody in domain " + domain.Title() + " has the alias \"" +
                                 call.Text("ALIAS") + "\"");
  }
  Json::Value record;
  record["alias"] = call.Text("ALIAS");
  record["name"] = name;
  call.out().Answer(record, name);
}

// As text each address that is somebody else's says so; for programs those are left out.
std::vector<std::string> WithOwners(const Call& call, const AddressOwners& owners,
                                    const std::string& user_name,
                                    const std::vector<std::string>& addresses) {
  std::vector<std::string> shown;
  for (const std::string& address : addresses) {
    const AliasOwner* other = owners.FindOther(user_name, address);
    if (other == nullptr) {
      shown.push_back(address);
    } else if (!call.options().json) {
      shown.push_back(address + " (goes to " + other->Text() + ")");
    }
  }
  return shown;
}

void AllAddresses(Call& call) {
  const AddressOwners owners(Domains().all(), std::nullopt);
  Listing listing(call.out(), {{"name", "NAME"}, {"addresses", "ADDRESSES"}}, true);
  const auto add = [&](const std::string& name, std::vector<std::string> addresses) {
    owners.PutPrimaryFirst(addresses);
    addresses = WithOwners(call, owners, name, addresses);
    if (call.out().json()) {
      listing.AddMember(name, JsonTexts(addresses));
      return;
    }
    Json::Value row;
    row["name"] = name;
    row["addresses"] = JsonTexts(addresses);
    listing.Add(row);
  };
  if (!DomainUser().ForEachUserEmails(call.Has("--additional"), add)) {
    throw Failure(kFailed, "the addresses could not be read");
  }
  listing.End();
}

void Addresses(Call& call) {
  if (call.Has("--all") == call.Has("USER")) {
    throw Failure(kUsage, "give either a user or --all");
  }
  if (call.Has("--all")) {
    AllAddresses(call);
    return;
  }
  const MDOMAIN::RECORD::User user = FindUser(call.Text("USER"));
  std::vector<std::string> addresses;
  DomainUser api;
  const bool read = call.Has("--additional")
                        ? api.GetMailAddrIncludingAdditionalDomain(user.GetUserName(), addresses)
                        : api.GetMailAddresses(user.GetUID(), addresses);
  if (!read) {
    throw Failure(kFailed, "the addresses of \"" + user.GetUserName() + "\" could not be read");
  }
  const AddressOwners owners(Domains().all(), user.GetUID());
  call.out().Texts(WithOwners(call, owners, user.GetUserName(), addresses));
}

const Register kUser({
    "user",
    "Users of domains and their addresses",
    {
        {"list", "List a domain's users with role and aliases", "", Effect::kReads,
         Joined({DomainArgument()}, ListingArguments("users", "name or an alias")), List},
        {"duplicates",
         "List the aliases of a domain that several users have",
         "All of them keep the alias; it is flagged for all but one, who owns it and gets the "
         "mail. "
         "An address with several members owns its name, too (is_entry).",
         Effect::kReads,
         {DomainArgument()},
         Duplicates},
        {"find",
         "Show who has an alias in a domain",
         "",
         Effect::kReads,
         {DomainArgument(), One("ALIAS", "The part before the @")},
         Find},
        {"addresses",
         "List a user's mail addresses in all domains",
         "Addresses of the primary domain come first. One that collides and whose mail goes to "
         "somebody else says so; with --json it is left out, and user show has it. With --all and "
         "--json the answer is one object: user names and their addresses.",
         Effect::kReads,
         {Optional("USER", "Name or uid of the user"),
          Flag("--additional", "Also the addresses at additional domain names"),
          Flag("--all", "The addresses of every user")},
         Addresses},
    },
});

}  // namespace
}  // namespace mdomain
