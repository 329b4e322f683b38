#include "lib-domain/document/problem.h"

namespace MDOMAIN::DOCUMENT {

// Here, so that programs catch the class that the library throws.
Problem::~Problem() = default;

}  // namespace MDOMAIN::DOCUMENT
