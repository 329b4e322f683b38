// Short and full names.
#include <cstdio>

#include "platform/account/sources.h"
#include "platform/system/fold_case.h"

std::string TrimDomainName(const std::string& name) {
  const size_t backslash = name.find('\\');
  if (backslash != std::string::npos) {
    return backslash + 1 < name.size() ? name.substr(backslash + 1) : name;
  }
  const size_t at = name.rfind('@');
  return at == std::string::npos || at == 0 ? name : name.substr(0, at);
}

std::string FoldAccountName(const std::string& name) {
  return korvmailserver::FoldCase(name);
}

int KORVLDAPCatName(char* buffer, size_t size, const char* domain, const char* name) {
  const bool has_domain = domain != nullptr && *domain != '\0';
  const int length = has_domain ? snprintf(buffer, size, "%s@%s", name, domain)
                                : snprintf(buffer, size, "%s", name);
  return length < 0 || static_cast<size_t>(length) >= size ? -1 : 0;
}

std::vector<std::string> GetFullNames(const std::vector<std::string>& short_names) {
  std::vector<std::string> full_names;
  full_names.reserve(short_names.size());
  const auto source = short_names.empty() ? nullptr : korvmailserver::account::SourceInForce();
  for (const std::string& name : short_names) {
    full_names.push_back(source->FullName(name));
  }
  return full_names;
}
