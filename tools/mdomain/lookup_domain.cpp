// Domains by name: all names are compared in their ASCII form, so both spellings find a domain.
#include <algorithm>

#include "lib-domain/api/domain.h"
#include "lib-domain/base/text.h"
#include "tools/mdomain/domain_name.h"
#include "tools/mdomain/lookup.h"
#include "tools/mdomain/status.h"
#include "tools/mdomain/suggestion.h"

namespace mdomain {
namespace {

using MDOMAIN::RECORD::Domain;

[[noreturn]] void Unknown(const std::string& text, const std::vector<KnownDomain>& known) {
  std::vector<std::string> names;
  for (const KnownDomain& domain : known) {
    names.push_back(domain.name);
    names.insert(names.end(), domain.additional_names.begin(), domain.additional_names.end());
  }
  throw Failure(kNotFound, "there is no domain \"" + text + "\"" + DidYouMean(text, names),
                "mdomain domain list shows them");
}

std::vector<Domain> Records(MDOMAIN::DB::DomainDBFilter filter) {
  filter.SetLimit(-1);
  std::vector<Domain> found;
  if (!MDOMAIN::API::Domain().List(filter, found)) {
    throw Failure(kFailed, "the domains could not be read");
  }
  return found;
}

}  // namespace

const KnownDomain& Domains::Find(const std::string& text) const {
  int idx = 0;
  const bool is_index = MDOMAIN::BASE::ConvertToInt(text, idx);
  const std::string wanted = AsciiForm(text);
  auto matches = [&](const std::string& name) { return AsciiForm(name) == wanted; };
  for (const KnownDomain& domain : domains_) {
    if (is_index ? domain.idx == idx
                 : matches(domain.name) || std::any_of(domain.additional_names.begin(),
                                                       domain.additional_names.end(), matches)) {
      return domain;
    }
  }
  Unknown(text, domains_);
}

std::vector<Domain> AllDomainRecords() {
  return Records(MDOMAIN::DB::DomainDBFilter());
}

std::vector<Domain> DomainRecords(const std::vector<int>& idxs) {
  MDOMAIN::DB::DomainDBFilter filter;
  filter.SetDomainIdxs(idxs);
  const std::vector<Domain> found = Records(filter);
  std::vector<Domain> records;
  for (const int idx : idxs) {
    const auto record = std::find_if(
        found.begin(), found.end(), [idx](const Domain& one) { return one.GetDomainIdx() == idx; });
    if (record == found.end()) {
      Unknown(std::to_string(idx), {});
    }
    records.push_back(*record);
  }
  return records;
}

}  // namespace mdomain
