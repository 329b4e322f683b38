// A value of a JSON document with its path, for refusals that name it.
#ifndef LIB_DOMAIN_DOCUMENT_PLACE_H
#define LIB_DOMAIN_DOCUMENT_PLACE_H

#include <json/value.h>

#include <set>
#include <string>
#include <utility>
#include <vector>

#include "lib-domain/document/problem.h"

namespace MDOMAIN::DOCUMENT {

class Place {
 public:
  Place(const Json::Value& value, std::string path) : value_(value), path_(std::move(path)) {}

  [[noreturn]] void Refuse(const std::string& what) const {
    throw Problem(Problem::kRefused, path_ + ": " + what);
  }
  const Json::Value& value() const { return value_; }
  const std::string& path() const { return path_; }
  bool Has(const std::string& member) const { return value_.isMember(member); }

  // Refuses what is no object, and members beside these.
  void RequireMembers(const std::set<std::string>& known) const;
  // Refuses a missing one.
  Place Member(const std::string& member) const;
  // All of an array; none where it is a member that is not there.
  std::vector<Place> Elements() const;
  std::vector<Place> Elements(const std::string& member) const;
  // Without control or hidden characters.
  std::string Text() const;
  bool Flag() const;

 private:
  const Json::Value& value_;
  std::string path_;
};

// The document that is the text, in `value`; refuses what is no JSON in UTF-8.
void ParseDocument(const std::string& text, Json::Value& value);

}  // namespace MDOMAIN::DOCUMENT

#endif  // LIB_DOMAIN_DOCUMENT_PLACE_H
