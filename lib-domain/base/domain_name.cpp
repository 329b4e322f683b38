#include "lib-domain/base/domain_name.h"

#include "lib-domain/base/text.h"
#include "platform/include/eai.h"

namespace MDOMAIN::BASE {

std::string AsciiForm(const std::string& name) {
  std::string ascii;
  if (KORV::POSTARA_SERVER::ConvertToPunycode(name, ascii) < 0) {
    ascii = name;
  }
  return ToLowerAscii(ascii);
}

bool SameDomainName(const std::string& a, const std::string& b) {
  return AsciiForm(a) == AsciiForm(b);
}

}  // namespace MDOMAIN::BASE
