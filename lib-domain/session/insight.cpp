// Why things are as they are, and what is wrong.
#include "lib-domain/api/updater.h"
#include "lib-domain/control/user.h"
#include "lib-domain/insight/doctor.h"
#include "lib-domain/insight/domain_counts.h"
#include "lib-domain/insight/explanation.h"
#include "lib-domain/insight/person.h"
#include "lib-domain/session/access.h"
#include "lib-domain/sync/kept_files.h"

namespace mdomain {

using session::Fail;
using session::Known;
using session::Read;
using session::Refuse;

namespace {

bool IsAdministrator(const Session& session) {
  return SessionAccess::StateOf(session).administrator.has_value();
}

[[noreturn]] void RefuseUser(std::uint32_t uid) {
  Refuse(Reason::kNotFound, "no user has the number " + std::to_string(uid));
}

// Groups that give no role in a domain of his are none of his business.
void KeepGroupsOfDomains(Person& person) {
  person.groups.clear();
  for (const PersonDomain& domain : person.domains) {
    for (const Account& group : domain.groups) {
      const bool is_known =
          std::any_of(person.groups.begin(), person.groups.end(),
                      [&group](const Account& one) { return one.id == group.id; });
      if (!is_known) {
        person.groups.push_back(group);
      }
    }
  }
}

std::vector<Finding> FindingsOf(const Session& session) {
  if (!IsAdministrator(session)) {
    return MDOMAIN::INSIGHT::LookAtAll({});
  }
  const std::vector<Known> domains = session::KnownDomains(session);
  return domains.empty() ? std::vector<Finding>() : MDOMAIN::INSIGHT::LookAtDomains(domains);
}

}  // namespace

Result<Explanation> Session::Explain(const std::string& address) const {
  return Read<Explanation>(*this, [&] {
    std::string local_part;
    std::string name;
    if (!MDOMAIN::INSIGHT::SplitAddress(address, local_part, name)) {
      Refuse(Reason::kInvalid, "\"" + address + "\" is no address");
    }
    const std::vector<Known> domains = session::KnownDomains(*this);
    if (IsAdministrator(*this) && MDOMAIN::INSIGHT::FindNamed(domains, name) == nullptr) {
      Refuse(Reason::kNotFound, "there is no domain \"" + name + "\"");
    }
    return MDOMAIN::INSIGHT::Explain(address, domains);
  });
}

Result<Person> Session::ExplainUser(std::uint32_t uid) const {
  return Read<Person>(*this, [&] {
    const std::vector<Known> domains = session::KnownDomains(*this);
    Person person = MDOMAIN::INSIGHT::DescribePerson(session::UsersOf({uid}).front(), domains);
    if (IsAdministrator(*this)) {
      if (person.domains.empty() && person.taken_out_of.empty()) {
        RefuseUser(uid);
      }
      KeepGroupsOfDomains(person);
    }
    MDOMAIN::INSIGHT::AddReasons(person);
    return person;
  });
}

Result<OwnView> Session::Of(std::uint32_t uid) const {
  return Read<OwnView>(*this, [&] {
    if (SessionAccess::StateOf(*this).administrator.value_or(uid) != uid) {
      RefuseUser(uid);
    }
    return MDOMAIN::INSIGHT::DescribeOwn(session::UsersOf({uid}).front(),
                                         MDOMAIN::INSIGHT::ListKnownDomains());
  });
}

Result<DomainOverview> Session::Overview(int domain) const {
  return Read<DomainOverview>(*this, [&]() -> Result<DomainOverview> {
    Result<Domain> read = GetDomain(domain);
    if (!read) {
      return read.GetError();
    }
    DomainOverview overview;
    overview.domain = *read;
    overview.counts = MDOMAIN::INSIGHT::CountIn(domain);
    auto groups = Groups(domain, {"", GroupColumn::kName, false, 10000});
    for (const Group& group : groups) {
      overview.groups.push_back(group);
    }
    if (!groups.IsWhole()) {
      return groups.GetError();
    }
    return overview;
  });
}

Result<std::vector<Finding>> Session::Doctor() const {
  return Read<std::vector<Finding>>(*this, [&] { return FindingsOf(*this); });
}

Result<RepairReport> Session::Repair() {
  std::string folder;
  const Result<Nothing> done = session::HostChange<Nothing>(
      *this, "repair the files of the host", "repair",
      [&] {
        if (!MDOMAIN::UTILS::KeepFilesAside(folder)) {
          Fail("nothing was repaired: the files could not be copied first");
        }
        if (!MDOMAIN::API::Updater().Trigger()) {
          Fail("not everything could be repaired; the files of before are in " + folder);
        }
        return Nothing();
      },
      session::ChangeKind::kRepair);
  if (!done) {
    return done.GetError();
  }
  Result<std::vector<Finding>> left = Doctor();
  if (!left) {
    return left.GetError();
  }
  RepairReport report{folder, *left};
  return done.IsPublished() ? Result<RepairReport>(std::move(report))
                            : Result<RepairReport>(std::move(report), done.GetError());
}

}  // namespace mdomain
