// From a default alias pattern and a user's attributes to the alias: text only, no account system.
#ifndef LIB_DOMAIN_ACCOUNTS_ALIAS_COMPOSER_H
#define LIB_DOMAIN_ACCOUNTS_ALIAS_COMPOSER_H

#include <cstddef>
#include <map>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "platform/include/export.h"

namespace MDOMAIN::UTILS::INTERNAL {

// The token without its leading digits; without any it is unchanged.
MDOMAIN_EXPORT std::string StripBeginningInteger(const std::string& token);

// The value, cut to its first n bytes when the token begins with the number n and n is at least 1
// and less than the value's length. Bytes, not characters: half a character is left to
// StripInvalidEaiChars. Throws std::out_of_range ("stoi") for digits beyond a 32-bit int.
MDOMAIN_EXPORT std::string ParseValByPattern(const std::string& token, const std::string& value);

// Composes aliases from one pattern, for any number of users.
//
// Tokens are replaced one after the other, ascending by byte value, each as a regular expression
// "<token>" in the whole text; "$" sequences in a value are those of std::regex_replace. Where no
// token and no value can show a difference, this is done in one pass over the pattern, in time
// linear in the pattern and the alias; the bounds below hold in all other cases.
class AliasComposer {
 public:
  // No alias and no text on the way to it is longer than this, in bytes.
  static constexpr size_t kMaxTextSize = 1U << 20U;
  // How many bytes all replacements of one alias may look at, where one pass is not enough.
  static constexpr size_t kMaxWork = 4U << 20U;
  // The longest token, in bytes, with characters that mean something in a regular expression, and
  // how many such tokens a pattern may have. Each is compiled, which recurses.
  static constexpr size_t kMaxRegexTokenSize = 256;
  static constexpr size_t kMaxRegexTokens = 64;

  // `attr_by_token` has the pattern's tokens, each with its attribute's name.
  AliasComposer(std::string pattern, const std::map<std::string, std::string>& attr_by_token);
  AliasComposer(const AliasComposer&) = delete;
  AliasComposer& operator=(const AliasComposer&) = delete;

  // The alias of a user with these attributes (name to value). Where one is missing that is
  // `user_short_name` without the characters that may not stand in a local part, whatever the
  // tokens are. False, an error line and `alias` untouched when a token is not a valid regular
  // expression, holds a zero byte besides characters of one, or is beyond the bounds; when a
  // token's length is beyond a 32-bit int, when the text grows beyond the bounds, or when a token
  // that repeats, groups or chooses ("*+?{(|") has a value: no account source has an attribute of
  // such a name. A pattern without tokens is everybody's alias.
  bool Compose(const std::string& user_short_name,
               const std::map<std::string, std::string>& attributes, std::string& alias) const;

 private:
  struct Piece {
    std::string_view literal;  // text before the token
    size_t token;              // index into tokens_, kNoToken after the last one
  };
  static constexpr size_t kNoToken = static_cast<size_t>(-1);

  using Values = std::vector<std::string>;

  // The index of the first token that cannot be used as a regular expression, or kNoToken.
  size_t FindUnusableToken() const;
  void CutIntoPieces();
  // Values in token order; false when an attribute is missing. Throws what ParseValByPattern does.
  bool CollectValues(const std::map<std::string, std::string>& attributes, Values& values) const;
  bool ComposeInOnePass(const Values& values, std::string& alias) const;
  bool ComposeTokenByToken(const Values& values, std::string& alias) const;

  std::string pattern_;
  std::vector<std::pair<std::string, std::string>> tokens_;  // token, attribute; ascending
  std::vector<Piece> pieces_;
  size_t unusable_token_ = kNoToken;
  bool plain_ = true;  // every token stands for itself and holds no "<"
};

}  // namespace MDOMAIN::UTILS::INTERNAL

#endif  // LIB_DOMAIN_ACCOUNTS_ALIAS_COMPOSER_H
