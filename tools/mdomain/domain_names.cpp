// mdomain domain names: the additional names of a domain.
#include <algorithm>

#include "lib-domain/api/domain.h"
#include "tools/mdomain/command.h"
#include "tools/mdomain/domain_output.h"
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
  PrintNames(call, Domains().Find(call.Text("DOMAIN")).idx());
}

void Add(Call& call) {
  const int idx = Domains().Find(call.Text("DOMAIN")).idx();
  const std::vector<std::string> names = StorableNames(call.List("NAME"));
  MDOMAIN::API::Domain api;
  if (!api.CreateAdditionalDomains(idx, names)) {
    throw ApiFailure(api.GetErrorCode(), "adding the names");
  }
  PrintNames(call, idx);
}

void Set(Call& call) {
  const KnownDomain domain = Domains().Find(call.Text("DOMAIN"));
  const std::vector<std::string> names = StorableNames(call.List("NAME"));
  MDOMAIN::API::Domain api;
  if (!api.SetAdditionalDomains(domain.idx(), domain.names, names)) {
    throw ApiFailure(api.GetErrorCode(), "setting the names");
  }
  PrintNames(call, domain.idx());
}

// Deleting compares names as they are stored, so each typed name is looked up in its own spelling.
void Remove(Call& call) {
  const KnownDomain domain = Domains().Find(call.Text("DOMAIN"));
  std::vector<std::string> stored;
  for (const std::string& name : call.List("NAME")) {
    const auto found =
        std::find_if(domain.names.begin(), domain.names.end(),
                     [&](const std::string& known) { return SameDomainName(known, name); });
    if (found == domain.names.end()) {
      throw Failure(kNotFound,
                    "\"" + name + "\" is no additional name of domain " + domain.Title());
    }
    stored.push_back(*found);
  }
  if (!MDOMAIN::API::Domain().DeleteAdditionalDomains(domain.idx(), stored)) {
    throw Failure(kFailed, "removing the names failed");
  }
  PrintNames(call, domain.idx());
}

const Argument kDomainArgument = One("DOMAIN", "Index or any name of the domain");

const Register kNames({
    "domain",
    "",
    {
        {"names", "A domain's additional names", "", Effect::kReads, {}, nullptr},
        {"names list",
         "List a domain's additional names",
         "",
         Effect::kReads,
         {kDomainArgument},
         List},
        {"names add",
         "Add additional names",
         "All of them or none: a name that any domain has already is refused.",
         Effect::kChanges,
         {kDomainArgument, Many("NAME", "A further name that delivers to the domain")},
         Add},
        {"names remove",
         "Remove additional names",
         "",
         Effect::kChanges,
         {kDomainArgument, Many("NAME", "A name to remove, in either spelling")},
         Remove},
        {"names set",
         "Replace all additional names",
         "Without a name the domain keeps none. When one of them is taken, the old ones stay.",
         Effect::kChanges,
         {kDomainArgument, Any("NAME", "A further name that delivers to the domain")},
         Set},
    },
});

}  // namespace
}  // namespace mdomain
