// Stored aliases that may look like given ones, found without reading all.
#ifndef TOOLS_MDOMAIN_ALIAS_WALK_H
#define TOOLS_MDOMAIN_ALIAS_WALK_H

#include <array>
#include <functional>
#include <set>
#include <string>
#include <utility>
#include <vector>

namespace mdomain {

// Walks through the stored aliases, which the database keeps in order, letter by letter: only those
// that begin as one of the wanted texts looks are followed.
class AliasWalk {
 public:
  // What a text looks like; that of two texts in a row is both, up to the order of marks.
  using Skeleton = std::function<std::string(const std::string&)>;

  // For stored aliases whose skeleton, or that of their small letters, is one of these.
  AliasWalk(Skeleton skeleton, const std::set<std::string>& skeletons);

  // In small ASCII letters; some may look like none of them.
  std::vector<std::string> Find();

 private:
  // How far into which skeletons the letters so far lead.
  using Places = std::set<std::pair<size_t, size_t>>;

  std::vector<std::string> _Looks(const std::string& letter) const;
  Places _Follow(const Places& places, const std::vector<std::string>& looks) const;
  void _Walk(const std::string& prefix, const Places& places);
  void _WalkNonAscii(const std::string& prefix, const Places& places);

  Skeleton skeleton_;
  std::vector<std::string> wanted_;
  std::array<std::vector<std::string>, 128> ascii_looks_;
  std::vector<std::string> found_;
};

}  // namespace mdomain

#endif  // TOOLS_MDOMAIN_ALIAS_WALK_H
