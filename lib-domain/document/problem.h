// Why a document is none, or the model cannot be what it says.
#ifndef LIB_DOMAIN_DOCUMENT_PROBLEM_H
#define LIB_DOMAIN_DOCUMENT_PROBLEM_H

#include <stdexcept>
#include <string>

#include "platform/include/export.h"

namespace MDOMAIN::DOCUMENT {

class MDOMAIN_EXPORT Problem : public std::runtime_error {
 public:
  enum Kind {
    kRefused,      // it is the document's
    kFailed,       // something could not be read or written
    kUnpublished,  // done here, and the shared key store has not got it yet
  };
  Problem(Kind is, const std::string& text) : std::runtime_error(text), kind(is) {}
  Problem(const Problem&) = default;
  ~Problem() override;

  const Kind kind;
};

}  // namespace MDOMAIN::DOCUMENT

#endif  // LIB_DOMAIN_DOCUMENT_PROBLEM_H
