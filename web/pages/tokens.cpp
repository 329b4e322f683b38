#include <ctime>

#include "web/pages/pages.h"
#include "web/view/texts.h"

namespace mdomain_web::pages {

namespace {

constexpr long long kDay = 24LL * 60 * 60;
constexpr long long kLongestDays = 366;
constexpr std::size_t kMostTokens = 50;
constexpr std::size_t kLongestLabel = 100;

Shown ListTokens(const Asked& asked) {
  Shown shown{"tokens"};
  for (const Token& token : asked.tokens.ListOf(asked.person.uid)) {
    Json::Value row;
    row["id"] = Json::Int64(token.id);
    row["label"] = token.label;
    row["may_change"] = token.may_change;
    row["ends"] = Moment(token.ends);
    row["used"] = token.used == 0 ? "" : Moment(token.used);
    shown.data["tokens"].append(row);
  }
  return shown;
}

}  // namespace

Shown TokensPage(const Asked& asked) {
  return ListTokens(asked);
}

Shown MakeToken(const Asked& asked) {
  const std::string days = asked.Text("days");
  const bool is_number = !days.empty() && days.size() <= 3 &&
                         days.find_first_not_of("0123456789") == std::string::npos;
  const long long count = is_number ? std::stoll(days) : 0;
  std::string problem;
  std::string secret;
  if (count < 1 || count > kLongestDays) {
    problem = Tr("A token ends after 1 to 366 days.");
  } else if (asked.Text("label").empty() || asked.Text("label").size() > kLongestLabel) {
    problem = Tr("A token has a name of at most 100 bytes.");
  } else if (asked.tokens.ListOf(asked.person.uid).size() >= kMostTokens) {
    problem = Tr("There are 50 tokens: take one back first.");
  } else {
    Token token;
    token.uid = asked.person.uid;
    token.account = asked.person.account;
    token.label = asked.Text("label");
    token.may_change = asked.Has("may_change");
    token.ends = time(nullptr) + count * kDay;
    secret = asked.tokens.Make(token);
  }
  Shown shown = ListTokens(asked);
  shown.data["problem"] = problem;
  shown.data["secret"] = secret;
  shown.status = problem.empty() ? 200 : 400;
  return shown;
}

Shown RevokeToken(const Asked& asked) {
  if (!asked.tokens.Revoke(asked.person.uid, asked.Number("id"))) {
    throw NotFound();
  }
  return GoTo("/tokens");
}

}  // namespace mdomain_web::pages
