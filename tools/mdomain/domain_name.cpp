#include "tools/mdomain/domain_name.h"

#include "lib-domain/utils/domain_utils.h"
#include "lib-domain/utils/domain_utils_internal.h"
#include "platform/include/maillog.h"
#include "tools/mdomain/status.h"

namespace mdomain {

std::string StorableName(const std::string& typed) {
  return MDOMAIN::UTILS::INTERNAL::StorableDomainName(typed);
}

bool IsDomainName(const std::string& name) {
  const auto sink = korvmailserver::SetMailLogSink([](int, const std::string&) { return true; });
  const bool is_valid = MDOMAIN::UTILS::IsDomainNameValid(name);
  korvmailserver::SetMailLogSink(sink);
  return is_valid;
}

std::vector<std::string> StorableNames(const std::vector<std::string>& typed) {
  std::vector<std::string> names;
  for (const std::string& text : typed) {
    names.push_back(StorableName(text));
    if (!MDOMAIN::UTILS::IsDomainNameValid(names.back())) {
      throw Failure(kRefused, "\"" + text + "\" is not a valid domain name");
    }
  }
  return names;
}

}  // namespace mdomain
