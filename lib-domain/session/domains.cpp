// Domains and their names.
#include "lib-domain/api/domain.h"

#include <algorithm>
#include <map>

#include "lib-domain/base/text.h"
#include "lib-domain/session/access.h"
#include "lib-domain/utils/domain_utils.h"
#include "lib-domain/utils/domain_utils_internal.h"

namespace mdomain {

using MDOMAIN::UTILS::INTERNAL::StorableDomainName;
using session::Change;
using session::Fail;
using session::Known;
using session::Refusals;
using session::Refuse;
using Record = MDOMAIN::RECORD::Domain;

namespace {

Version VersionOf(const Domain& domain) {
  std::vector<std::string> parts = {domain.name, domain.description, domain.pattern,
                                    domain.adds_accounts ? "1" : "0"};
  parts.insert(parts.end(), domain.names.begin(), domain.names.end());
  return session::VersionOf(parts);
}

std::vector<Record> Records(const std::vector<int>& idxs) {
  MDOMAIN::DB::DomainDBFilter filter;
  filter.SetDomainIdxs(idxs);
  filter.SetLimit(-1);
  std::vector<Record> records;
  // Without indexes the filter would mean all.
  if (!idxs.empty() && !MDOMAIN::API::Domain().List(filter, records)) {
    Fail("the domains could not be read");
  }
  return records;
}

// With their counts, in the order given.
std::vector<Domain> Whole(const std::vector<Known>& known) {
  std::vector<int> idxs;
  idxs.reserve(known.size());
  for (const Known& domain : known) {
    idxs.push_back(domain.idx);
  }
  std::map<int, Record> records;
  for (Record& record : Records(idxs)) {
    records.emplace(record.GetDomainIdx(), record);
  }
  std::vector<Domain> domains;
  for (const Known& names : known) {
    const auto found = records.find(names.idx);
    if (found == records.end()) {
      continue;  // deleted by somebody in between
    }
    const Record& record = found->second;
    Domain domain;
    domain.idx = names.idx;
    domain.name = record.GetDomainName();
    domain.names = names.additional_names;
    domain.description = record.GetDomainDesc();
    domain.pattern = record.GetDefaultAliasPattern();
    domain.adds_accounts = record.IsAutomaticallyAddingUsers();
    domain.is_primary = names.is_primary;
    domain.has_collisions = record.IsDuplicatedAliasExist();
    domain.users = static_cast<std::size_t>(record.GetUserNum());
    domain.version = VersionOf(domain);
    domains.push_back(std::move(domain));
  }
  return domains;
}

Domain WholeOf(const Session& session, int idx) {
  const std::vector<Domain> found = Whole({session::KnownDomain(session, idx)});
  if (found.empty()) {
    Refuse(Reason::kNotFound, "there is no domain " + std::to_string(idx));
  }
  return found.front();
}

void RequireValid(const Record& record) {
  Refusals refusals;
  if (!MDOMAIN::UTILS::IsDomainNameValid(record.GetDomainName())) {
    refusals.Add("name", record.GetDomainName(), "is not a valid domain name");
  }
  session::RequirePattern(record.GetDefaultAliasPattern(), refusals);
  if (!session::IsPlainText(record.GetDomainDesc())) {
    refusals.Add("description", record.GetDomainDesc(), session::kNotPlain);
  }
  refusals.End(Reason::kInvalid, "the domain cannot be so");
}

// All names that the domain is to have besides, as they are stored.
std::vector<std::string> RequireNames(const std::vector<std::string>& given) {
  std::vector<std::string> names;
  Refusals refusals;
  for (const std::string& name : given) {
    names.push_back(StorableDomainName(name));
    if (!MDOMAIN::UTILS::IsDomainNameValid(names.back())) {
      refusals.Add("name", name, "is not a valid domain name");
    }
  }
  refusals.End(Reason::kInvalid, "no name was changed");
  return names;
}

// For a call that was false: a taken name, or something that does not work.
void RequireDone(bool is_done, const MDOMAIN::API::Domain& api, const std::string& what) {
  const unsigned int number = api.GetErrorCode();
  if (is_done) {
    return;
  }
  Error error;
  error.reason = number == 5618   ? Reason::kTaken
                 : number == 5633 ? Reason::kInvalid
                                  : Reason::kFailed;
  error.number = number == 0 ? error.number : number;
  error.text = number == 5618 ? what + ": the name belongs to a domain already" : what + " failed";
  throw session::Stop(std::move(error));
}

}  // namespace

std::string session::PatternOf(const Known& domain) {
  return Records({domain.idx}).front().GetDefaultAliasPattern();
}

Result<std::vector<Domain>> Session::Domains() const {
  return session::ReadModel<std::vector<Domain>>(
      *this, [&] { return Whole(session::KnownDomains(*this)); });
}

Result<Domain> Session::GetDomain(int domain) const {
  return session::ReadModel<Domain>(*this, [&] { return WholeOf(*this, domain); });
}

Result<std::optional<Domain>> Session::FindDomain(const std::string& text) const {
  using Found = std::optional<Domain>;
  return session::ReadModel<Found>(*this, [&]() -> Found {
    int idx = 0;
    const bool is_index = MDOMAIN::BASE::ConvertToInt(text, idx);
    for (const Known& known : session::KnownDomains(*this)) {
      if (is_index ? known.idx == idx : known.HasName(text)) {
        return WholeOf(*this, known.idx);
      }
    }
    return std::nullopt;
  });
}

Result<Domain> Session::CreateDomain(const NewDomain& domain) {
  return session::HostChange<Domain>(*this, "create domains", "create domain " + domain.name, [&] {
    Record record(StorableDomainName(domain.name));
    record.SetIsPrimary(false);
    record.SetDomainDesc(domain.description);
    record.SetDefaultAliasPattern(domain.pattern);
    record.SetIsAutomaticallyAddingUsers(domain.adds_accounts);
    RequireValid(record);
    MDOMAIN::API::Domain api;
    int idx = 0;
    RequireDone(api.Create(record, idx), api, "creating \"" + domain.name + "\"");
    return WholeOf(*this, idx);
  });
}

Result<Domain> Session::SetDomain(int domain, const DomainChange& change, const Version& version) {
  return Change<Domain>(*this, "set domain " + std::to_string(domain), [&] {
    const Domain before = WholeOf(*this, domain);
    session::RequireVersion(version, before.version, "domain " + before.name);
    if (change.name) {
      session::RequireHost(*this, "rename a domain");
    }
    std::vector<Record> records = Records({domain});
    if (records.empty()) {
      Refuse(Reason::kNotFound, "there is no domain " + std::to_string(domain));
    }
    Record& record = records.front();
    record.SetDomainName(change.name ? StorableDomainName(*change.name) : before.name);
    record.SetDomainDesc(change.description.value_or(before.description));
    record.SetDefaultAliasPattern(change.pattern.value_or(before.pattern));
    record.SetIsAutomaticallyAddingUsers(change.adds_accounts.value_or(before.adds_accounts));
    RequireValid(record);
    MDOMAIN::API::Domain api;
    RequireDone(api.Set(record), api, "changing domain " + before.name);
    return WholeOf(*this, domain);
  });
}

Result<Nothing> Session::DeleteDomains(const std::vector<int>& domains, const Version& version) {
  std::string command = "delete domains";
  for (const int idx : domains) {
    command += " " + std::to_string(idx);
  }
  return session::HostChange<Nothing>(*this, "delete domains", command, [&] {
    const std::vector<Known> all = session::KnownDomains(*this);
    if (!version.empty()) {
      session::RequireOne(domains.size(), "domain");
      const Domain before = WholeOf(*this, domains.front());
      session::RequireVersion(version, before.version, "domain " + before.name);
    }
    for (const int idx : domains) {
      const Known& known = session::DomainOf(all, idx);
      if (known.is_primary) {
        Refuse(Reason::kRefused, "domain " + known.Title() + " is the primary domain",
               "make another one primary first");
      }
    }
    if (!domains.empty() && !MDOMAIN::API::Domain().Delete(domains)) {
      Fail("deleting the domains failed");
    }
    return Nothing();
  });
}

Result<Domain> Session::MakePrimary(int domain) {
  return session::HostChange<Domain>(
      *this, "make a domain primary", "make domain " + std::to_string(domain) + " primary", [&] {
        const Known known = session::KnownDomain(*this, domain);
        if (!MDOMAIN::API::Domain().SetPrimary(domain)) {
          Fail("making domain " + known.Title() + " the primary one failed");
        }
        return WholeOf(*this, domain);
      });
}

Result<Domain> Session::AddNames(int domain, const std::vector<std::string>& names) {
  return session::HostChange<Domain>(
      *this, "give domains names", "add names to domain " + std::to_string(domain), [&] {
        const Known known = session::KnownDomain(*this, domain);
        MDOMAIN::API::Domain api;
        RequireDone(api.CreateAdditionalDomains(domain, RequireNames(names)), api,
                    "adding names to domain " + known.Title());
        return WholeOf(*this, domain);
      });
}

Result<Domain> Session::SetNames(int domain, const std::vector<std::string>& names,
                                 const Version& version) {
  return session::HostChange<Domain>(
      *this, "give domains names", "set the names of domain " + std::to_string(domain), [&] {
        const Domain before = WholeOf(*this, domain);
        session::RequireVersion(version, before.version, "domain " + before.name);
        MDOMAIN::API::Domain api;
        RequireDone(api.SetAdditionalDomains(domain, before.names, RequireNames(names)), api,
                    "setting the names of domain " + before.name);
        return WholeOf(*this, domain);
      });
}

Result<Domain> Session::RemoveNames(int domain, const std::vector<std::string>& names) {
  return session::HostChange<Domain>(
      *this, "take names from domains", "remove names of domain " + std::to_string(domain), [&] {
        const Known known = session::KnownDomain(*this, domain);
        std::vector<std::string> stored;
        Refusals refusals;
        for (const std::string& name : names) {
          const std::string wanted = session::AsciiForm(name);
          const auto found = std::find_if(
              known.additional_names.begin(), known.additional_names.end(),
              [&](const std::string& own) { return session::AsciiForm(own) == wanted; });
          if (found == known.additional_names.end()) {
            refusals.Add("name", name, "is no additional name of domain " + known.Title());
          } else {
            stored.push_back(*found);
          }
        }
        refusals.End(Reason::kNotFound, "no name was removed");
        if (!MDOMAIN::API::Domain().DeleteAdditionalDomains(domain, stored)) {
          Fail("removing names of domain " + known.Title() + " failed");
        }
        return WholeOf(*this, domain);
      });
}

}  // namespace mdomain
