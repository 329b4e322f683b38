// mdomain domain names: the additional names of a domain.
#include <algorithm>

#include "lib-domain/api/domain.h"
#include "tools/mdomain/arguments.h"
#include "tools/mdomain/command.h"
#include "tools/mdomain/domain_name.h"
#include "tools/mdomain/lookup.h"

namespace mdomain {
namespace {

void PrintNames(Call& call, int domain_idx) {
  std::vector<std::string> names;
  if (!MDOMAIN::API::Domain().ListAdditionalDomains(domain_idx, names)) {
    throw Failure(kFailed, "the additional names could not be read");
  }
  call.out().Texts(names);
}

void List(Call& call) {
  call.out().Texts(TypedDomain(call).additional_names);
}

void Add(Call& call) {
  const int idx = TypedDomain(call).idx;
  const std::vector<std::string> names = StorableNames(call.List("NAME"));
  MDOMAIN::API::Domain api;
  if (!api.CreateAdditionalDomains(idx, names)) {
    throw ApiFailure(api.GetErrorCode(), "adding the names");
  }
  PrintNames(call, idx);
}

void Set(Call& call) {
  const KnownDomain domain = TypedDomain(call);
  const std::vector<std::string> names = StorableNames(call.List("NAME"));
  MDOMAIN::API::Domain api;
  if (!api.SetAdditionalDomains(domain.idx, domain.additional_names, names)) {
    throw ApiFailure(api.GetErrorCode(), "setting the names");
  }
  PrintNames(call, domain.idx);
}

// Names are deleted in the spelling in which they are stored, so each typed name is looked up
// first.
void Remove(Call& call) {
  const KnownDomain domain = TypedDomain(call);
  std::vector<std::string> stored;
  for (const std::string& name : call.List("NAME")) {
    const auto found =
        std::find_if(domain.additional_names.begin(), domain.additional_names.end(),
                     [&](const std::string& known) { return SameDomainName(known, name); });
    if (found == domain.additional_names.end()) {
      throw Failure(kNotFound,
                    "\"" + name + "\" is no additional name of domain " + domain.Title());
    }
    stored.push_back(*found);
  }
  MDOMAIN::API::Domain api;
  if (!api.DeleteAdditionalDomains(domain.idx, stored)) {
    throw ApiFailure(api.GetErrorCode(), "removing the names");
  }
  PrintNames(call, domain.idx);
}

const Register kNames({
    "domain",
    "",
    {
        {"names", "A domain's additional names", "", Effect::kReads, {}, nullptr},
        {"names list",
         "List a domain's additional names",
         "",
         Effect::kReads,
         {DomainArgument()},
         List},
        {"names add",
         "Add additional names",
         "All of them or none: a name that a domain already has is refused.",
         Effect::kChanges,
         {DomainArgument(), Many("NAME", "A further name under which the domain receives mail")},
         Add},
        {"names remove",
         "Remove additional names",
         "",
         Effect::kChanges,
         {DomainArgument(), Many("NAME", "A name to remove, in either spelling")},
         Remove},
        {"names set",
         "Replace all additional names",
         "Without a name the domain keeps none. When one of them is taken, the old ones stay.",
         Effect::kChanges,
         {DomainArgument(), Any("NAME", "A further name under which the domain receives mail")},
         Set},
    },
});

}  // namespace
}  // namespace mdomain
