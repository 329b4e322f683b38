// Marks that combine with a letter are left out of the comparison: Unicode sorts them, so that they
// may stand elsewhere in the skeleton of the whole text than in that of its parts.
#include "tools/mdomain/alias_walk.h"

#include <unicode/utf8.h>

#include "lib-domain/db/look_up.h"
#include "platform/include/text.h"
#include "tools/mdomain/ascii_skeleton.h"
#include "tools/mdomain/icu_library.h"
#include "tools/mdomain/status.h"

namespace mdomain {
namespace {

constexpr UChar32 kFirstMark = 0x300;

std::string WithoutMarks(const std::string& text) {
  std::string kept;
  const auto size = static_cast<int32_t>(text.size());
  for (int32_t at = 0; at < size;) {
    const int32_t begin = at;
    UChar32 letter = 0;
    U8_NEXT(text.data(), at, size, letter);
    if (letter < kFirstMark || u_getCombiningClass(letter) == 0) {
      kept.append(text, static_cast<size_t>(begin), static_cast<size_t>(at - begin));
    }
  }
  return kept;
}

// The first letter of text[at...].
std::string LetterAt(const std::string& text, size_t at) {
  const auto size = static_cast<int32_t>(text.size());
  auto end = static_cast<int32_t>(at);
  UChar32 letter = 0;
  U8_NEXT(text.data(), end, size, letter);
  return text.substr(at, static_cast<size_t>(end) - at);
}

// Where those stand that do not begin with the prefix any more, whose last byte is none of ASCII.
std::string Behind(std::string prefix) {
  while (!prefix.empty() && prefix.back() == '\xff') {
    prefix.pop_back();
  }
  if (!prefix.empty()) {
    ++prefix.back();
  }
  return prefix;
}

std::string NextAlias(const std::string& from) {
  std::string alias;
  if (!MDOMAIN::DB::INTERNAL::GetNextAlias(from, alias)) {
    throw Failure(kFailed, "the users of the domain could not be read");
  }
  return korvmailserver::ToLowerAscii(alias);
}

bool StartsWith(const std::string& text, const std::string& prefix) {
  return text.compare(0, prefix.size(), prefix) == 0;
}

}  // namespace

AliasWalk::AliasWalk(Skeleton skeleton, const std::set<std::string>& skeletons)
    : skeleton_(std::move(skeleton)) {
  for (const std::string& text : skeletons) {
    wanted_.push_back(WithoutMarks(text));
  }
  for (size_t code = 1; code < ascii_looks_.size(); ++code) {
    const char letter = static_cast<char>(code);
    if (letter < 'A' || letter > 'Z') {
      ascii_looks_[code] = _Looks(std::string(1, letter));
    }
  }
}

std::vector<std::string> AliasWalk::Find() {
  Places places;
  for (size_t i = 0; i < wanted_.size(); ++i) {
    places.emplace(i, 0);
  }
  _Walk("", places);
  return std::move(found_);
}

// A small ASCII letter stands for the big one, too.
std::vector<std::string> AliasWalk::_Looks(const std::string& letter) const {
  if (!IsAscii(letter)) {
    return {WithoutMarks(skeleton_(letter))};
  }
  std::vector<std::string> looks = {AsciiSkeleton(letter)};
  if (letter[0] >= 'a' && letter[0] <= 'z') {
    looks.push_back(AsciiSkeleton(std::string(1, static_cast<char>(letter[0] - 32))));
  }
  return looks;
}

AliasWalk::Places AliasWalk::_Follow(const Places& places,
                                     const std::vector<std::string>& looks) const {
  Places next;
  for (const auto& [number, at] : places) {
    for (const std::string& look : looks) {
      if (wanted_[number].compare(at, look.size(), look) == 0) {
        next.emplace(number, at + look.size());
      }
    }
  }
  return next;
}

void AliasWalk::_Walk(const std::string& prefix, const Places& places) {
  const std::string first = NextAlias(prefix);
  if (!StartsWith(first, prefix)) {
    return;
  }
  for (const auto& [number, at] : places) {
    if (first == prefix && at == wanted_[number].size()) {
      found_.push_back(prefix);
      break;
    }
  }
  for (size_t code = 1; code < ascii_looks_.size(); ++code) {
    const Places next = _Follow(places, ascii_looks_[code]);
    if (!next.empty()) {
      _Walk(prefix + static_cast<char>(code), next);
    }
  }
  _WalkNonAscii(prefix, places);
}

void AliasWalk::_WalkNonAscii(const std::string& prefix, const Places& places) {
  std::string alias = NextAlias(prefix + "\x80");
  while (alias.size() > prefix.size() && StartsWith(alias, prefix)) {
    const std::string longer = prefix + LetterAt(alias, prefix.size());
    const Places next = _Follow(places, _Looks(longer.substr(prefix.size())));
    if (!next.empty()) {
      _Walk(longer, next);
    }
    alias = NextAlias(Behind(longer));
  }
}

}  // namespace mdomain
