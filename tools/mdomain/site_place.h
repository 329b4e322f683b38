// A value of a JSON document with its path, for refusals that name it.
#ifndef TOOLS_MDOMAIN_SITE_PLACE_H
#define TOOLS_MDOMAIN_SITE_PLACE_H

#include <json/value.h>

#include <set>
#include <string>
#include <utility>
#include <vector>

#include "tools/mdomain/status.h"

namespace mdomain {

class Place {
 public:
  Place(const Json::Value& value, std::string path) : value_(value), path_(std::move(path)) {}

  [[noreturn]] void Refuse(const std::string& what) const {
    throw Failure(kRefused, path_ + ": " + what);
  }
  // Refuses with its message what `check` ends with a Failure.
  template <typename Check>
  void Require(const Check& check) const {
    try {
      check();
    } catch (const Failure& failure) {
      Refuse(failure.what());
    }
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

}  // namespace mdomain

#endif  // TOOLS_MDOMAIN_SITE_PLACE_H
