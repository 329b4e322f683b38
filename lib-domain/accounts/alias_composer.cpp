// Why one pass gives what replacing token after token gives: values hold neither "<" nor ">" (those
// may not stand in a local part), so a replaced text never makes a new token; and when no token
// holds a "<", every "<...>" of the pattern is exactly one token. Only a "$" in a value (which can
// copy other parts of the text), or a token that is a regular expression, needs the steps one by
// one.
//
// The standard library's matcher recurses as deep as a match is long and tries alternatives by
// going back. So it only gets tokens in which every element matches exactly one character.
#include "lib-domain/accounts/alias_composer.h"

#include <algorithm>
#include <regex>
#include <stdexcept>

#include "lib-domain/base/log_line.h"
#include "platform/include/eai.h"

namespace MDOMAIN::UTILS::INTERNAL {

namespace {

constexpr const char* kRegexCharacters = "^$\\.*+?()[]{}|";
constexpr const char* kVaryingLength = "*+?{(|";

bool IsDigit(char c) {
  return c >= '0' && c <= '9';
}

bool HasRegexCharacters(const std::string& token) {
  return token.find_first_of(kRegexCharacters) != std::string::npos;
}

// The parts of the text around one match, as "$" sequences name them: `before` reaches back to the
// end of the previous match only.
struct Match {
  std::string_view before;
  std::string_view match;
  std::string_view after;
};

// Reads the "$" sequence at `format[at]` and moves `at` behind it. The only group is the match
// itself; any other number stands for nothing.
std::string_view ReadSequence(std::string_view format, size_t& at, const Match& match) {
  const std::string_view dollar = format.substr(at++, 1);
  if (at == format.size()) {
    return dollar;
  }
  const char kind = format[at];
  if (IsDigit(kind)) {
    bool is_zero = kind == '0';
    if (++at < format.size() && IsDigit(format[at])) {
      is_zero = is_zero && format[at] == '0';
      ++at;
    }
    return is_zero ? match.match : std::string_view();
  }
  switch (kind) {
    case '$':
      ++at;
      return dollar;
    case '&':
      ++at;
      return match.match;
    case '`':
      ++at;
      return match.before;
    case '\'':
      ++at;
      return match.after;
    default:
      return dollar;
  }
}

// Collects a text up to the allowed size.
class Output {
 public:
  bool Append(std::string_view part) {
    fits_ = fits_ && part.size() <= AliasComposer::kMaxTextSize - text_.size();
    if (fits_) {
      text_.append(part);
    }
    return fits_;
  }
  bool AppendFormatted(std::string_view format, const Match& match) {
    size_t at = 0;
    while (at < format.size() && fits_) {
      if (format[at] == '$') {
        Append(ReadSequence(format, at, match));
        continue;
      }
      const size_t end = std::min(format.find('$', at), format.size());
      Append(format.substr(at, end - at));
      at = end;
    }
    return fits_;
  }
  std::string Take() { return std::move(text_); }

 private:
  std::string text_;
  bool fits_ = true;
};

// Finds "<token>" as plain text.
class PlainFinder {
 public:
  explicit PlainFinder(const std::string& token) : wanted_("<" + token + ">") {}
  // The next match at or after `from`: its position and length.
  bool Find(std::string_view text, size_t from, size_t& at, size_t& length) const {
    at = text.find(wanted_, from);
    length = wanted_.size();
    return at != std::string_view::npos;
  }

 private:
  std::string wanted_;
};

// Finds "<token>" as a regular expression.
class RegexFinder {
 public:
  explicit RegexFinder(const std::string& token) : expression_("<" + token + ">") {}
  bool Find(std::string_view text, size_t from, size_t& at, size_t& length) const {
    std::cmatch match;
    const auto flags =
        from == 0 ? std::regex_constants::match_default : std::regex_constants::match_prev_avail;
    if (!std::regex_search(text.data() + from, text.data() + text.size(), match, expression_,
                           flags)) {
      return false;
    }
    at = from + static_cast<size_t>(match.position(0));
    length = static_cast<size_t>(match.length(0));
    return true;
  }

 private:
  std::regex expression_;
};

// Every match, from left to right, becomes `value`. False when the result is too long.
template <typename Finder>
bool ReplaceAll(const Finder& finder, const std::string& value, std::string& text) {
  Output out;
  const std::string_view all = text;
  size_t from = 0;
  size_t at = 0;
  size_t length = 0;
  while (finder.Find(all, from, at, length)) {
    const Match match{all.substr(from, at - from), all.substr(at, length), all.substr(at + length)};
    if (!out.Append(match.before) || !out.AppendFormatted(value, match)) {
      return false;
    }
    from = at + length;
  }
  if (!out.Append(all.substr(from))) {
    return false;
  }
  text = out.Take();
  return true;
}

// A pattern's text in a log line: enough to know it by.
std::string Shortened(const std::string& text) {
  constexpr size_t kShown = 200;
  return text.size() <= kShown ? text : text.substr(0, kShown) + "...";
}

// A back reference or a count that the standard library would read into an int which it overflows.
bool HasHugeNumber(const std::string& token) {
  constexpr size_t kDigits = 9;
  for (size_t at = token.find_first_of("\\{,"); at != std::string::npos;
       at = token.find_first_of("\\{,", at + 1)) {
    const size_t end = token.find_first_not_of("0123456789", at + 1);
    if (std::min(end, token.size()) - at - 1 > kDigits) {
      return true;
    }
  }
  return false;
}

bool IsValidRegex(const std::string& token) {
  // The standard library's scanner takes a zero byte for the end of its table of operators.
  if (token.size() > AliasComposer::kMaxRegexTokenSize || token.find('\0') != std::string::npos ||
      HasHugeNumber(token)) {
    return false;
  }
  try {
    const RegexFinder finder(token);
  } catch (const std::regex_error&) {
    return false;
  }
  return true;
}

}  // namespace

std::string StripBeginningInteger(const std::string& token) {
  const auto end = std::find_if_not(token.begin(), token.end(), IsDigit);
  return {end, token.end()};
}

std::string ParseValByPattern(const std::string& token, const std::string& value) {
  const auto end = std::find_if_not(token.begin(), token.end(), IsDigit);
  if (end == token.begin()) {
    return value;
  }
  const int length = std::stoi(std::string(token.begin(), end));
  return length >= 1 ? value.substr(0, static_cast<size_t>(length)) : value;
}

AliasComposer::AliasComposer(std::string pattern,
                             const std::map<std::string, std::string>& attr_by_token)
    : pattern_(std::move(pattern)), tokens_(attr_by_token.begin(), attr_by_token.end()) {
  plain_ = std::none_of(tokens_.begin(), tokens_.end(), [](const auto& token) {
    return HasRegexCharacters(token.first) || token.first.find('<') != std::string::npos;
  });
  unusable_token_ = FindUnusableToken();
  if (plain_) {
    CutIntoPieces();
  }
}

size_t AliasComposer::FindUnusableToken() const {
  size_t count = 0;
  for (size_t i = 0; i < tokens_.size(); ++i) {
    const std::string& token = tokens_[i].first;
    if (HasRegexCharacters(token) && (++count > kMaxRegexTokens || !IsValidRegex(token))) {
      return i;
    }
  }
  return kNoToken;
}

void AliasComposer::CutIntoPieces() {
  const std::string_view text = pattern_;
  const auto less = [](const auto& entry, std::string_view token) { return entry.first < token; };
  size_t from = 0;
  size_t open = text.find('<');
  while (open != std::string_view::npos) {
    const size_t close = text.find('>', open);
    if (close == std::string_view::npos) {
      break;
    }
    const std::string_view token = text.substr(open + 1, close - open - 1);
    const auto found = std::lower_bound(tokens_.begin(), tokens_.end(), token, less);
    if (found != tokens_.end() && found->first == token) {
      pieces_.push_back(
          {text.substr(from, open - from), static_cast<size_t>(found - tokens_.begin())});
      from = close + 1;
    }
    open = text.find('<', close + 1);
  }
  pieces_.push_back({text.substr(from), kNoToken});
}

bool AliasComposer::CollectValues(const std::map<std::string, std::string>& attributes,
                                  Values& values) const {
  for (const auto& [token, attribute] : tokens_) {
    const auto value = attributes.find(attribute);
    if (value == attributes.end()) {
      return false;
    }
    values.push_back(
        KORV::POSTARA_SERVER::StripInvalidEaiChars(ParseValByPattern(token, value->second)));
  }
  return true;
}

bool AliasComposer::Compose(const std::string& user_short_name,
                            const std::map<std::string, std::string>& attributes,
                            std::string& alias) const {
  Values values;
  try {
    if (!CollectValues(attributes, values)) {
      alias = KORV::POSTARA_SERVER::StripInvalidEaiChars(user_short_name);
      return true;
    }
  } catch (const std::out_of_range&) {
    LOG_ERROR("A length in the default alias pattern [%s] is out of range",
              Shortened(pattern_).c_str());
    return false;
  }
  if (unusable_token_ != kNoToken) {
    LOG_ERROR("Token [%s] of the default alias pattern is not a valid regular expression",
              Shortened(tokens_[unusable_token_].first).c_str());
    return false;
  }
  const bool has_sequences = std::any_of(values.begin(), values.end(), [](const auto& value) {
    return value.find('$') != std::string::npos;
  });
  const bool one_pass = plain_ && !has_sequences;
  if (!(one_pass ? ComposeInOnePass(values, alias) : ComposeTokenByToken(values, alias))) {
    LOG_ERROR("Failed to compose an alias for [%s] from the default alias pattern [%s]",
              user_short_name.c_str(), Shortened(pattern_).c_str());
    return false;
  }
  return true;
}

bool AliasComposer::ComposeInOnePass(const Values& values, std::string& alias) const {
  Output out;
  for (const Piece& piece : pieces_) {
    if (!out.Append(piece.literal) ||
        (piece.token != kNoToken && !out.Append(values[piece.token]))) {
      return false;
    }
  }
  alias = out.Take();
  return true;
}

bool AliasComposer::ComposeTokenByToken(const Values& values, std::string& alias) const {
  std::string text = pattern_;
  size_t work = 0;
  for (size_t i = 0; i < tokens_.size(); ++i) {
    const std::string& token = tokens_[i].first;
    const bool is_regex = HasRegexCharacters(token);
    // One element of a regular expression looks at every character once.
    work += text.size() * (is_regex ? token.size() : 1);
    if (work > kMaxWork || (is_regex && token.find_first_of(kVaryingLength) != std::string::npos)) {
      return false;
    }
    const bool replaced = is_regex ? ReplaceAll(RegexFinder(token), values[i], text)
                                   : ReplaceAll(PlainFinder(token), values[i], text);
    if (!replaced) {
      return false;
    }
  }
  alias = std::move(text);
  return true;
}

}  // namespace MDOMAIN::UTILS::INTERNAL
