// Domains by name: all names are compared in their ASCII form, so both spellings find a domain.
#include <algorithm>

#include "lib-domain/api/domain.h"
#include "lib-domain/base/text.h"
#include "platform/include/eai.h"
#include "tools/mdomain/lookup.h"
#include "tools/mdomain/status.h"

namespace mdomain {
namespace {

std::string AsciiForm(const std::string& name) {
  std::string ascii;
  if (KORV::POSTARA_SERVER::ConvertToPunycode(name, ascii) < 0) {
    ascii = name;
  }
  return MDOMAIN::BASE::ToLowerAscii(ascii);
}

}  // namespace

std::string KnownDomain::Title() const {
  return std::to_string(idx()) + " (" + name() + ")";
}

bool SameDomainName(const std::string& a, const std::string& b) {
  return AsciiForm(a) == AsciiForm(b);
}

Domains::Domains() {
  std::vector<MDOMAIN::RECORD::Domain> records;
  std::map<int, std::vector<std::string>> names;
  MDOMAIN::API::Domain api;
  if (!MDOMAIN::API::INTERNAL::GetAllDomains(records) || !api.ListAllAdditionalDomains(names)) {
    throw Failure(kFailed, "the domains could not be read");
  }
  for (const MDOMAIN::RECORD::Domain& record : records) {
    domains_.push_back({record, names[record.GetDomainIdx()]});
  }
}

const KnownDomain& Domains::Find(const std::string& text) const {
  int idx = 0;
  const bool is_index = MDOMAIN::BASE::ConvertToInt(text, idx);
  const std::string wanted = AsciiForm(text);
  auto matches = [&](const std::string& name) { return AsciiForm(name) == wanted; };
  for (const KnownDomain& domain : domains_) {
    if (is_index ? domain.idx() == idx
                 : matches(domain.name()) ||
                       std::any_of(domain.names.begin(), domain.names.end(), matches)) {
      return domain;
    }
  }
  throw Failure(kNotFound, "there is no domain \"" + text + "\"");
}

}  // namespace mdomain
