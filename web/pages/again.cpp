// A form whose change was not made comes again with what was typed: beside each field stands what
// is wrong with it, or what somebody else made of it since the form was shown.
#include <algorithm>
#include <set>

#include "web/pages/pages.h"
#include "web/view/texts.h"

namespace mdomain_web::pages {

namespace {

constexpr const char* kWas = "was_";
constexpr Json::ArrayIndex kMostProblems = 100;  // beside a field

enum class Kind { kText, kLines, kLongText, kBox, kRole };

struct Field {
  const char* name;
  std::string label;
  Kind kind;
  const char* refused_as;  // how the library calls what it refuses of it
};

std::vector<Field> KnownFields() {
  return {
      {"name", Tr("Name"), Kind::kText, "name"},
      {"description", Tr("Description"), Kind::kText, "description"},
      {"pattern", Tr("Pattern of new aliases"), Kind::kText, "pattern"},
      {"adds_accounts", Tr("New accounts come into this domain"), Kind::kBox, ""},
      {"names", Tr("One name in each line"), Kind::kLines, "name"},
      {"people", Tr("Accounts, one in each line"), Kind::kLines, "member"},
      {"users", Tr("Accounts, one in each line"), Kind::kLines, "member"},
      {"groups", Tr("Groups, one in each line"), Kind::kLines, "member"},
      {"addresses", Tr("Other addresses, one in each line"), Kind::kLines, "member"},
      {"aliases", Tr("Aliases, one in each line"), Kind::kLines, "alias"},
      {"role", Tr("Role in this domain"), Kind::kRole, "role"},
      {"enabled", Tr("In force"), Kind::kBox, ""},
      {"match_rule_list", Tr("Mail that gets it"), Kind::kLines, ""},
      {"needs_all", Tr("All lines must fit"), Kind::kBox, ""},
      {"exception_rule_list", Tr("Mail that does not"), Kind::kLines, ""},
      {"disabled_for_local_recipient", Tr("Not to the domains of this host"), Kind::kBox, ""},
      {"content_txt", Tr("Text"), Kind::kLongText, ""},
      {"content_html", Tr("The same as HTML"), Kind::kLongText, ""},
      {"to", Tr("Goes to"), Kind::kText, ""},
      {"count_people", Tr("People"), Kind::kText, ""},
      {"count_groups", Tr("Groups"), Kind::kText, ""},
      {"count_entries", Tr("Shared addresses"), Kind::kText, ""},
      {"count_copies", Tr("Copies"), Kind::kText, ""},
      {"count_disclaimers", Tr("Disclaimers"), Kind::kText, ""},
  };
}

std::vector<Field> FieldsOf(const std::string& names) {
  std::vector<Field> fields;
  for (const Field& field : KnownFields()) {
    if ((" " + names + " ").find(std::string(" ") + field.name + " ") != std::string::npos) {
      fields.push_back(field);
    }
  }
  return fields;
}

using Lines = std::vector<std::string>;
using Set = std::set<std::string>;

Set SetOf(const Lines& lines) {
  return {lines.begin(), lines.end()};
}

// What `mine` makes of `was`, made of `now`.
Lines Merged(const Lines& was, const Lines& now, const Lines& mine) {
  const Set before = SetOf(was);
  const Set others = SetOf(now);
  const Set own = SetOf(mine);
  Lines merged;
  for (const std::string& line : now) {
    if (before.count(line) == 0 || own.count(line) != 0) {
      merged.push_back(line);
    }
  }
  for (const std::string& line : mine) {
    if (before.count(line) == 0 && others.count(line) == 0) {
      merged.push_back(line);
    }
  }
  return merged;
}

std::string Joined(const Lines& lines) {
  std::string text;
  for (const std::string& line : lines) {
    text += (text.empty() ? "" : "\n") + line;
  }
  return text;
}

Lines LinesOf(const std::string& text) {
  Lines lines;
  for (std::size_t begin = 0; begin < text.size();) {
    const std::size_t end = std::min(text.find('\n', begin), text.size());
    lines.push_back(text.substr(begin, end - begin));
    begin = end + 1;
  }
  return lines;
}

// A field when the form was made, now, and as it was typed. Lists have no empty lines.
struct Versions {
  std::string was;
  std::string now;
  std::string mine;
};

Versions VersionsOf(const Asked& asked, const Field& field, const Json::Value& now) {
  const std::string name = field.name;
  const auto text_of = [&](const std::string& of) {
    return field.kind == Kind::kLines ? Joined(asked.Lines(of)) : asked.Text(of);
  };
  Versions versions;
  versions.now = now.get(name, "").asString();
  versions.was = asked.Has(kWas + name) ? text_of(kWas + name) : versions.now;
  versions.mine = text_of(name);
  if (name == "aliases" && !asked.Has(name)) {  // one gives way to another
    const Set gone = SetOf(asked.Lines("remove_aliases"));
    Lines kept;
    for (const std::string& alias : LinesOf(versions.was)) {
      if (gone.count(alias) == 0) {
        kept.push_back(alias);
      }
    }
    for (const std::string& alias : asked.Lines("add_aliases")) {
      kept.push_back(alias);
    }
    versions.mine = Joined(kept);
  }
  if (field.kind == Kind::kRole && versions.mine.empty()) {  // as it is
    versions.mine = versions.was;
  }
  return versions;
}

std::string MergedText(const Field& field, const Versions& versions) {
  return field.kind == Kind::kLines
             ? Joined(Merged(LinesOf(versions.was), LinesOf(versions.now), LinesOf(versions.mine)))
         : versions.mine == versions.was ? versions.now
                                         : versions.mine;
}

std::string ValueInWords(const Field& field, const std::string& value) {
  return field.kind == Kind::kBox    ? value.empty() ? Tr("no") : Tr("yes")
            : value.empty() ? Tr("nothing")
         : field.kind != Kind::kRole ? value
         : value == "none"           ? Tr("that of the groups")
                                     : InWords(value);
}

Json::Value Difference(const Field& field, const Versions& versions) {
  Json::Value row;
  row["label"] = field.label;
  row["was"] = ValueInWords(field, versions.was);
  row["now"] = ValueInWords(field, versions.now);
  row["mine"] = ValueInWords(field, versions.mine);
  row["is_theirs"] = versions.now != versions.was;
  row["is_mine"] = versions.mine != versions.was;
  return row;
}

Json::Value ProblemsOf(const Field& field, const std::string& typed, const Json::Value& refused) {
  Json::Value problems(Json::arrayValue);
  const Set lines = SetOf(LinesOf(typed));
  for (const Json::Value& one : refused) {
    const std::string value = one["value"].asString();
    const bool is_of_field =
        *field.refused_as != '\0' && one["what"].asString() == field.refused_as && value.empty();
    const bool is_typed = one["what"].asString() != "disclaimer" && lines.count(value) != 0;
    if ((is_of_field || is_typed) && problems.size() < kMostProblems) {
      problems.append(one);
    }
  }
  return problems;
}

Json::Value FieldOf(const Field& field, const std::string& value, const Json::Value& refused) {
  Json::Value shown;
  shown["name"] = field.name;
  shown["label"] = field.label;
  shown["value"] = value;
  shown["problems"] = ProblemsOf(field, value, refused);
  shown["is_wrong"] = !shown["problems"].empty();
  shown["is_text"] = field.kind == Kind::kText;
  shown["is_long"] = field.kind == Kind::kLines || field.kind == Kind::kLongText;
  shown["is_box"] = field.kind == Kind::kBox;
  shown["is_role"] = field.kind == Kind::kRole;
  if (field.kind == Kind::kRole) {
    shown["is_" + value] = true;
  }
  return shown;
}

Json::Value Hidden(const std::string& name, const std::string& value) {
  Json::Value field;
  field["name"] = name;
  field["value"] = value;
  return field;
}

bool IsOfVersion(const std::string& name) {
  return name == "version" || name.compare(0, 4, kWas) == 0;
}

// What the form has beside its fields and what it was made from.
Json::Value OthersOf(const Asked& asked, const std::vector<Field>& fields) {
  Json::Value others(Json::arrayValue);
  for (const auto& param : asked.request.params) {
    const std::string& name = param.first;
    const bool is_asked = std::any_of(fields.begin(), fields.end(),
                                      [&](const Field& field) { return name == field.name; });
    if (!is_asked && !IsOfVersion(name) && name != "form_key" && name != "confirmed" &&
        name != "add_aliases" && name != "remove_aliases") {
      others.append(Hidden(name, WithLineEnds(param.second)));
    }
  }
  return others;
}

// Who changed something of the domain last: in most cases the one whom the reader wants to ask.
Json::Value NewestOf(const Asked& asked) {
  Json::Value arguments = DomainArgument(asked);
  arguments["page_size"] = 1;
  Json::Value newest = asked.calls("list_history", arguments)["items"][0];
  if (newest.isObject()) {
    newest["when"] = Moment(newest["time"].asInt64());
  }
  return newest;
}

}  // namespace

Json::Value MadeFrom(const Json::Value& now) {
  Json::Value hidden(Json::arrayValue);
  for (const std::string& name : now.getMemberNames()) {
    if (name != "page" && name != "anew") {
      hidden.append(Hidden(name == "version" ? name : kWas + name, now[name].asString()));
    }
  }
  return hidden;
}

Json::Value MadeFrom(const Asked& asked) {
  Json::Value hidden(Json::arrayValue);
  for (const auto& [name, value] : asked.request.params) {
    if (IsOfVersion(name)) {
      hidden.append(Hidden(name, WithLineEnds(value)));
    }
  }
  return hidden;
}

Shown AskAgain(const Asked& asked, const Route& route, const Json::Value& error) {
  Shown shown{"again"};
  const Json::Value now = route.now != nullptr ? route.now(asked) : Json::Value(Json::objectValue);
  const bool is_gone = now.isMember("anew");
  const bool is_late = is_gone || (error["reason"].asString() == "changed" && !now.empty());
  const std::vector<Field> fields = FieldsOf(route.fields);
  // A button alone, such as that which deletes, asks for nothing.
  const bool asks = asked.Has("add_aliases") ||
                    std::any_of(fields.begin(), fields.end(),
                                [&](const Field& field) { return asked.Has(field.name); });
  shown.data["error"] = error;
  for (const Field& field : fields) {
    Versions versions = VersionsOf(asked, field, now);
    if (!asks) {
      versions.mine = versions.was;
    }
    if (is_late && (versions.was != versions.now || versions.mine != versions.was)) {
      shown.data["differences"].append(Difference(field, versions));
    }
    const std::string value = is_late && !is_gone ? MergedText(field, versions) : versions.mine;
    if (asks) {
      shown.data["fields"].append(FieldOf(field, value, error["refused"]));
    }
  }
  if (is_late) {
    shown.data["newest"] = NewestOf(asked);
  }
  shown.data["title"] = is_late ? Tr("Somebody else was faster") : Tr("This cannot be done");
  shown.data["is_late"] = is_late;
  shown.data["is_gone"] = is_gone;
  shown.data["is_said_here"] = error["is_said_here"];
  shown.data["has_differences"] = !shown.data["differences"].empty();
  shown.data["asks"] = asks;
  shown.data["goes_on"] = asks || (is_late && !is_gone);
  shown.data["made_from"] = is_late ? MadeFrom(now) : MadeFrom(asked);
  shown.data["others"] = OthersOf(asked, fields);
  shown.data["path"] = asked.request.target.substr(0, asked.request.target.find('?'));
  if (is_gone && asks) {  // it can be made anew
    shown.data["path"] = now["anew"];
    if (asked.at.count("name") != 0) {
      shown.data["others"].append(Hidden("name", asked.at.at("name")));
    }
  }
  shown.data["page"] = now["page"];
  return shown;
}

}  // namespace mdomain_web::pages
