// Parts of sentences for a person.
#ifndef LIB_DOMAIN_BASE_SENTENCE_H
#define LIB_DOMAIN_BASE_SENTENCE_H

#include <cstddef>
#include <string>
#include <vector>

namespace MDOMAIN::BASE {

constexpr std::size_t kFirst = 10;

// "a, b, c", of more than kFirst the first ones "and N more".
std::string FirstOf(const std::vector<std::string>& texts, const std::string& separator = ", ");
// The same of `count` texts, of which the first ones are there.
std::string FirstOf(const std::vector<std::string>& first, std::size_t count,
                    const std::string& separator = ", ");

// "1 user", "2 users".
std::string Counted(std::size_t count, const std::string& noun);

}  // namespace MDOMAIN::BASE

#endif  // LIB_DOMAIN_BASE_SENTENCE_H
