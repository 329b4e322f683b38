#include <algorithm>
#include <limits>
#include <utility>

#include "web/pages/pages.h"
#include "web/view/json_text.h"
#include "web/view/page.h"
#include "web/view/texts.h"

namespace mdomain_web::pages {

namespace {

// A rule is a line: "sender user anna", "recipient group sales", "sender address
// offers*@example.com".
struct Word {
  const char* stored;
  const char* shown;
  const char* find;  // the call that finds the account; "" for addresses
  const char* list;  // that lists them
};
constexpr Word kKinds[] = {{"uid", "user", "find_account", "list_accounts"},
                           {"gid", "group", "find_account_group", "list_account_groups"},
                           {"email", "address", "", ""}};

std::string LineOf(const Asked& asked, const Json::Value& rule) {
  std::string line = rule["target"].asString() == "sender" ? "sender" : "recipient";
  for (const Word& kind : kKinds) {
    if (rule["pattern_type"].asString() != kind.stored) {
      continue;
    }
    const std::string pattern = rule["pattern"].asString();
    const auto id = *kind.list == '\0' ? std::nullopt : NumberIn(pattern);
    const std::string name = id ? NameOf(asked, *id, kind.list) : "";
    line += std::string(" ") + kind.shown + " " + (name.empty() ? pattern : name);
  }
  return line;
}

[[noreturn]] void RefuseLine(const std::string& line) {
  Fail("invalid",
       Tr("A rule is sender or recipient, then user, group or address, then whose. "
          "This line is none:"),
       line);
}

Json::Value RuleOf(const Asked& asked, const std::string& line) {
  const std::size_t first = line.find(' ');
  const std::size_t second = first == std::string::npos ? first : line.find(' ', first + 1);
  if (second == std::string::npos) {
    RefuseLine(line);
  }
  Json::Value rule;
  rule["target"] = line.substr(0, first);
  const std::string shown = line.substr(first + 1, second - first - 1);
  const std::string whose = line.substr(line.find_first_not_of(' ', second));
  const auto kind = std::find_if(std::begin(kKinds), std::end(kKinds),
                                 [&](const Word& one) { return shown == one.shown; });
  if ((rule["target"] != "sender" && rule["target"] != "recipient") || kind == std::end(kKinds)) {
    RefuseLine(line);
  }
  rule["pattern_type"] = kind->stored;
  if (*kind->find == '\0') {
    rule["pattern"] = whose;
    return rule;
  }
  Json::Value who;
  who["text"] = whose;
  const Json::Value account = asked.calls(kind->find, who);
  // Who is gone stays as he is stored until the line is taken out.
  const std::optional<std::uint32_t> number = NumberIn(whose);
  if (account.isNull() && !number) {
    Fail("not-found", Tr("There is no such account or group:"), line);
  }
  rule["pattern"] = account.isNull() ? Json::Value(*number) : account["id"];
  return rule;
}

Json::Value ListOf(const Asked& asked, std::string* version = nullptr) {
  const Json::Value found = asked.calls("get_disclaimers", DomainArgument(asked));
  if (version != nullptr) {
    *version = found["version"].asString();
  }
  return FromText(found["json"].asString());
}

Json::Value::ArrayIndex PlaceOf(const Json::Value& list, int id) {
  Json::Value::ArrayIndex at = 0;
  while (at < list.size() && list[at]["id"].asInt() != id) {
    ++at;
  }
  return at;
}

Change Replace(const Asked& asked, const Json::Value& list, const std::string& done) {
  Change change{"set_disclaimers", DomainArgument(asked), DomainPath(asked, "/disclaimers"), done};
  change.arguments["json"] = ToText(list);
  change.arguments["version"] = asked.Text("version");
  return change;
}

Json::Value LinesOf(const Asked& asked, const Json::Value& rules) {
  Json::Value lines(Json::arrayValue);
  for (const Json::Value& rule : rules) {
    lines.append(LineOf(asked, rule));
  }
  return lines;
}

[[noreturn]] void FailDeleted(const Asked& asked) {
  Json::Value error = ErrorOf(
      "changed", Tr("There is no such disclaimer any more:") + " " + asked.Text("was_name"));
  error["is_said_here"] = true;
  throw CallFailed(error);
}

void Fill(Shown& shown, const Asked& asked, Json::Value disclaimer) {
  for (const char* rules : {"match_rule_list", "exception_rule_list"}) {
    disclaimer[rules] = LinesOf(asked, std::as_const(disclaimer)[rules]);
  }
  disclaimer["needs_all"] = disclaimer["op"].asString() == "and";
  disclaimer["title"] = disclaimer["name"];
  shown.data["disclaimer"] = disclaimer;
}

// What the form says, over what is stored of it.
void FillIn(const Asked& asked, Json::Value& disclaimer) {
  disclaimer["name"] = asked.Text("name");
  disclaimer["enabled"] = asked.Has("enabled");
  disclaimer["disabled_for_local_recipient"] = asked.Has("disabled_for_local_recipient");
  disclaimer["op"] = asked.Has("needs_all") ? "and" : "or";
  for (const char* rules : {"match_rule_list", "exception_rule_list"}) {
    disclaimer[rules] = Json::arrayValue;
    for (const std::string& line : asked.Lines(rules)) {
      disclaimer[rules].append(RuleOf(asked, line));
    }
  }
  for (const char* text : {"content_txt", "content_html"}) {
    disclaimer[text] = asked.Text(text);
  }
}

// Whom it would concern, and mail as the filter leaves it: a line feed before and behind the text,
// the HTML in front of the end of the body.
Json::Value PreviewOf(const Asked& asked, const Json::Value& disclaimer) {
  Json::Value arguments = DomainArgument(asked);
  arguments["json"] = ToText(disclaimer);
  Json::Value preview;
  preview["reach"] = asked.calls("try_disclaimer", arguments);
  for (const char* side : {"senders", "recipients"}) {
    Json::Value& people = preview["reach"][side];
    people["has_names"] = !people["names"].empty();
    if (people["count"].asUInt64() > people["names"].size()) {
      people["others"] = Json::UInt64(people["count"].asUInt64() - people["names"].size());
    }
  }
  preview["content_txt"] = disclaimer["content_txt"];
  const std::string html = disclaimer["content_html"].asString();
  preview["srcdoc"] = html.empty()
                          ? ""
                          : "<!DOCTYPE html><html><body><p>" + Escape(Tr("The message itself.")) +
                                "</p>\n" + html + "\n</body></html>";
  return preview;
}

}  // namespace

Shown Disclaimers(const Asked& asked) {
  Shown shown = OfDomain(asked, "disclaimers", "disclaimers");
  shown.data["disclaimers"] = ListOf(asked);
  return shown;
}

// One that is not there, or not any more, is as empty as the form of a new one.
Json::Value DisclaimerNow(const Asked& asked) {
  std::string version;
  const Json::Value list = ListOf(asked, &version);
  const bool is_new = asked.at.count("id") == 0;
  const auto at = is_new ? list.size() : PlaceOf(list, static_cast<int>(asked.Number("id")));
  Json::Value disclaimer;
  disclaimer["enabled"] = is_new;
  if (at < list.size()) {
    disclaimer = list[at];
  }
  Json::Value now;
  for (const char* text : {"name", "content_txt", "content_html"}) {
    now[text] = std::as_const(disclaimer)[text].asString();
  }
  for (const char* rules : {"match_rule_list", "exception_rule_list"}) {
    now[rules] = TextOf(LinesOf(asked, std::as_const(disclaimer)[rules]));
  }
  for (const char* box : {"enabled", "disabled_for_local_recipient"}) {
    now[box] = std::as_const(disclaimer)[box].asBool() ? "1" : "";
  }
  now["needs_all"] = std::as_const(disclaimer)["op"].asString() == "and" ? "1" : "";
  now["version"] = version;
  now["page"] = DomainPath(asked, "/disclaimers");
  if (!is_new && at == list.size()) {
    now["anew"] = DomainPath(asked, "/disclaimers/new");
  }
  return now;
}

Shown NewDisclaimer(const Asked& asked) {
  Shown shown = OfDomain(asked, "disclaimer", "disclaimers");
  Json::Value disclaimer;
  disclaimer["enabled"] = true;
  Fill(shown, asked, disclaimer);
  shown.data["made_from"] = MadeFrom(DisclaimerNow(asked));
  shown.data["is_new"] = true;
  return shown;
}

Shown DisclaimerPage(const Asked& asked) {
  Shown shown = OfDomain(asked, "disclaimer", "disclaimers");
  const Json::Value list = ListOf(asked);
  const auto at = PlaceOf(list, static_cast<int>(asked.Number("id")));
  if (at == list.size()) {
    throw NotFound();
  }
  Fill(shown, asked, list[at]);
  shown.data["made_from"] = MadeFrom(DisclaimerNow(asked));
  return shown;
}

// Without an id of the path it is a new one.
Change SetDisclaimer(const Asked& asked) {
  Json::Value list = ListOf(asked);
  int highest = 0;
  for (const Json::Value& one : list) {
    highest = std::max(highest, one["id"].asInt());
  }
  int id = highest == std::numeric_limits<int>::max() ? 1 : highest + 1;
  while (PlaceOf(list, id) != list.size()) {
    ++id;
  }
  auto at = list.size();
  if (asked.at.count("id") != 0) {
    id = static_cast<int>(asked.Number("id"));
    at = PlaceOf(list, id);
    if (at == list.size()) {
      FailDeleted(asked);
    }
  }
  Json::Value& disclaimer = list[at];
  disclaimer["id"] = id;
  FillIn(asked, disclaimer);
  return Replace(asked, list, Tr("The disclaimer is saved."));
}

// The form as it was typed, with what it would do: nothing is saved.
Shown PreviewDisclaimer(const Asked& asked) {
  Shown shown = OfDomain(asked, "disclaimer", "disclaimers");
  Json::Value typed;
  for (const char* text : {"name", "content_txt", "content_html"}) {
    typed[text] = asked.Text(text);
  }
  typed["title"] = typed["name"];
  for (const char* box : {"enabled", "needs_all", "disabled_for_local_recipient"}) {
    typed[box] = asked.Has(box);
  }
  for (const char* rules : {"match_rule_list", "exception_rule_list"}) {
    typed[rules] = JsonOf(asked.Lines(rules));
  }
  shown.data["is_new"] = !asked.Has("id");
  if (asked.Has("id")) {
    typed["id"] = asked.NumberOf("id");
  }
  shown.data["disclaimer"] = typed;
  shown.data["made_from"] = MadeFrom(asked);
  try {
    Json::Value disclaimer;
    disclaimer["id"] = 1;
    FillIn(asked, disclaimer);
    shown.data["preview"] = PreviewOf(asked, disclaimer);
  } catch (const CallFailed& failed) {
    shown.data["preview"]["error"] = failed.error;
  }
  return shown;
}

Change DeleteDisclaimer(const Asked& asked) {
  Json::Value list = ListOf(asked);
  const auto at = PlaceOf(list, static_cast<int>(asked.Number("id")));
  Json::Value removed;
  if (!list.removeIndex(at, &removed)) {
    FailDeleted(asked);
  }
  return Replace(asked, list, Tr("The disclaimer is deleted."));
}

}  // namespace mdomain_web::pages
