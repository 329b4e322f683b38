// One function for each table turns its rows into sentences. Rows are paired by what they stand for
// first, not by their numbers, which are used again: what got another number did not go.
#include "lib-domain/history/plan.h"

#include <algorithm>
#include <iterator>
#include <map>
#include <set>
#include <string_view>
#include <vector>

#include "lib-domain/base/text.h"
#include "lib-domain/db/schema.h"
#include "lib-domain/history/names.h"
#include "lib-domain/history/pairs.h"

namespace MDOMAIN::HISTORY {

namespace {

using korvmailserver::RowChange;
using korvmailserver::SqlRow;
using korvmailserver::TableChange;

constexpr std::string_view kDisclaimers = "mimedefang_disclaimers-";
constexpr std::string_view kTexts = "disclaimer_content/domain-";

// Of a list of disclaimers or their texts, which may be an empty JSON array.
bool HoldsText(const std::string& text) {
  return text.find_first_not_of("[] \n") != std::string::npos;
}

const char* ChangeOf(const RowChange& row) {
  return row.before.empty() ? "added" : row.after.empty() ? "removed" : "changed";
}

// The list of a domain's disclaimers is a key, their texts are a file; both are told as one, by the
// domain's index. What holds nothing on either side is none.
using Disclaimers = std::map<std::string, const char*>;

Disclaimers DisclaimersIn(const Changes& changes) {
  std::map<std::string, std::pair<std::string, std::string>> lists;
  for (const auto& [key, sides] : SidesOf(changes, "key_table", {"name"}, "value")) {
    if (key[0].rfind(kDisclaimers, 0) == 0) {
      lists[key[0].substr(kDisclaimers.size())] = {sides.Before(), sides.After()};
    }
  }
  for (const FileChange& file : changes.files) {
    if (file.path.rfind(kTexts, 0) == 0) {
      auto& list = lists[file.path.substr(kTexts.size())];
      list.first += file.before;
      list.second += file.after;
    }
  }
  Disclaimers told;
  for (const auto& [idx, list] : lists) {
    const bool had = HoldsText(list.first);
    const bool has = HoldsText(list.second);
    if (list.first != list.second && (had || has)) {
      told[idx] = !had ? "added" : !has ? "removed" : "changed";
    }
  }
  return told;
}

class PlanMaker {
 public:
  PlanMaker(Names& names, Plan& plan) : names_(names), plan_(plan) {}

  void Make(const Changes& changes);

 private:
  using Row = const RowChange&;
  using Table = const TableChange&;

  // What one row is about: its columns, those of the row before where it is gone.
  struct Subject {
    Table table;
    Row row;
    std::string operator[](const char* column) const {
      return TextOf(table, row.after.empty() ? row.before : row.after, column);
    }
    std::string Before(const char* column) const { return TextOf(table, row.before, column); }
    std::string After(const char* column) const { return TextOf(table, row.after, column); }
    bool IsAdded() const { return row.before.empty(); }
    bool IsRemoved() const { return row.after.empty(); }
  };

  Json::Value& _Add(const char* what, const char* change, const std::string& text);
  Json::Value& _Add(const char* what, const Subject& row, const std::string& added,
                    const std::string& removed, const std::string& changed);
  void _ForEach(const Changes& changes, const char* table,
                void (PlanMaker::*tell)(const Subject& row));

  void _TellDomain(const Subject& row);
  void _TellName(const Subject& row);
  void _TellPrimary(const Changes& changes);
  void _TellAccount(const Subject& row);
  void _TellGroup(const Subject& row);
  void _TellMember(const Subject& row);
  void _TellRoles(const Changes& changes);
  void _TellRole(const std::string& user, const std::string& domain, const std::string& before,
                 const std::string& after);
  void _TellGroupRole(const Subject& row);
  void _TellAliases(const Changes& changes);
  void _TellTakenOut(const Subject& row);
  void _TellEntry(const Subject& row);
  void _TellEntryMember(const Subject& row);
  void _TellCopy(const Subject& row);
  void _TellMailSettings(const Changes& changes);
  void _TellKeys(const Changes& changes);
  void _TellKey(const std::string& name, const Sides& sides);
  bool _GoesWithOthers(const std::string& key, const Disclaimers& disclaimers) const;
  void _TellDkim(const Changes& changes);

  // An alias of a user before and after: 0 none, 1 flagged, 2 the user's own.
  struct Hold {
    int before = 0;
    int after = 0;
    std::string alias;
  };
  void _TellAlias(const std::string& domain_idx, const std::string& uid, const Hold& hold);
  void _TellRest(const Changes& changes);
  std::string _Summary() const;

  Names& names_;
  Plan& plan_;
  std::set<std::string> gainers_, losers_;
  std::set<std::string> domains_;  // indexes of those that are created or deleted
  size_t gained_ = 0;
  size_t lost_ = 0;
};

Json::Value& PlanMaker::_Add(const char* what, const char* change, const std::string& text) {
  Json::Value entry;
  entry["what"] = what;
  entry["change"] = change;
  entry["text"] = text;
  return plan_.entries.append(entry);
}

Json::Value& PlanMaker::_Add(const char* what, const Subject& row, const std::string& added,
                             const std::string& removed, const std::string& changed) {
  return _Add(what, ChangeOf(row.row), row.IsAdded() ? added : row.IsRemoved() ? removed : changed);
}

void PlanMaker::_ForEach(const Changes& changes, const char* table,
                         void (PlanMaker::*tell)(const Subject& row)) {
  for (const TableChange& change : changes.tables) {
    if (change.table == table) {
      for (const RowChange& row : change.rows) {
        (this->*tell)({change, row});
      }
    }
  }
}

void PlanMaker::_TellDomain(const Subject& row) {
  const std::string name = row["domain_name"];
  if (row.IsAdded() || row.IsRemoved()) {
    domains_.insert(row["domain_idx"]);
    Json::Value& entry =
        _Add("domain", row, "domain " + name + " is created", "domain " + name + " is deleted", "");
    entry["domain"] = name;
    return;
  }
  static const auto& kColumns = *new std::vector<std::pair<const char*, const char*>>{
      {"domain_name", "name"},
      {"domain_desc", "description"},
      {"domain_default_alias_pattern", "pattern"},
      {"is_automatically_adding_users", "adding new accounts"},
  };
  for (const auto& [column, title] : kColumns) {
    const std::string before = row.Before(column);
    const std::string after = row.After(column);
    if (before != after) {
      std::string text = "domain " + row.Before("domain_name") + ": " + title;
      text.append(" \"").append(before).append("\" becomes \"").append(after).append("\"");
      Json::Value& entry = _Add("domain", "changed", text);
      entry["domain"] = row.Before("domain_name");
      entry["property"] = title;
      entry["before"] = before;
      entry["after"] = after;
    }
  }
}

void PlanMaker::_TellName(const Subject& row) {
  const std::string name = row["additional_domain"];
  const std::string domain = names_.Domain(row["domain_idx"]);
  Json::Value& entry = _Add("name", row, "domain " + domain + " gets the name " + name,
                            "domain " + domain + " loses the name " + name, "");
  entry["domain"] = domain;
  entry["name"] = name;
}

void PlanMaker::_TellPrimary(const Changes& changes) {
  for (const auto& [key, sides] : SidesOf(changes, "primary_domain_table", {}, "domain_idx")) {
    if (sides.before != sides.after) {
      const std::string name = names_.Domain(sides.after ? sides.After() : sides.Before());
      Json::Value& entry = _Add(
          "primary", "changed",
          "domain " + name + (sides.after ? " becomes" : " is no longer") + " the primary domain");
      entry["domain"] = name;
    }
  }
}

void PlanMaker::_TellAccount(const Subject& row) {
  const std::string name = row["user_name"];
  Json::Value& entry =
      _Add("account", row, "account " + name + " is new", "account " + name + " is gone",
           "account " + row.Before("user_name") + " is called " + name + " now");
  entry["account"] = name;
}

void PlanMaker::_TellGroup(const Subject& row) {
  const std::string name = row["group_name"];
  const bool is_renamed = row.Before("group_name") != row.After("group_name");
  Json::Value& entry =
      _Add("group", row, "group " + name + " is new", "group " + name + " is gone",
           is_renamed ? "group " + row.Before("group_name") + " is called " + name + " now"
                      : "group " + name + " has another description");
  entry["group"] = name;
}

void PlanMaker::_TellMember(const Subject& row) {
  const std::string user = names_.User(row["uid"]);
  const std::string group = names_.Group(row["gid"]);
  Json::Value& entry = _Add("member", row, user + " is in group " + group,
                            user + " is no longer in group " + group, "");
  entry["account"] = user;
  entry["group"] = group;
}

void PlanMaker::_TellRoles(const Changes& changes) {
  for (const auto& [key, role] :
       SidesOf(changes, "domain_user_role_table", {"domain_idx", "uid"}, "role")) {
    if (role.before != role.after) {
      _TellRole(names_.User(key[1]), names_.Domain(key[0]), role.Before(), role.After());
    }
  }
}

void PlanMaker::_TellRole(const std::string& user, const std::string& domain,
                          const std::string& before, const std::string& after) {
  const std::string gets = user + " gets the role " + after + " in " + domain;
  Json::Value& entry =
      before.empty()  ? _Add("role", "added", gets)
      : after.empty() ? _Add("role", "removed",
                             user + " has no role of the account's own in " + domain + " any more")
                      : _Add("role", "changed", gets + ", before " + before);
  entry["account"] = user;
  entry["domain"] = domain;
  entry["before"] = before;
  entry["after"] = after;
}

void PlanMaker::_TellGroupRole(const Subject& row) {
  const std::string group = names_.Group(row["gid"]);
  const std::string domain = names_.Domain(row["domain_idx"]);
  const std::string after = row.After("role");
  Json::Value& entry =
      _Add("group_role", row, "group " + group + " joins " + domain + " as " + after,
           "group " + group + " leaves " + domain,
           "group " + group + " gets the role " + after + " in " + domain);
  entry["group"] = group;
  entry["domain"] = domain;
  entry["before"] = row.Before("role");
  entry["after"] = after;
}

void PlanMaker::_TellAliases(const Changes& changes) {
  std::map<std::vector<std::string>, Hold> holds;  // by domain, user and alias in lower case
  const auto side = [&](const TableChange& table, const SqlRow& row, bool is_after) {
    if (row.empty()) {
      return;
    }
    const std::string alias = TextOf(table, row, "account_alias");
    Hold& hold = holds[{TextOf(table, row, "domain_idx"), TextOf(table, row, "uid"),
                        BASE::ToLowerAscii(alias)}];
    const int strength = TextOf(table, row, "is_duplicated") == "0" ? 2 : 1;
    int& kept = is_after ? hold.after : hold.before;
    kept = std::max(kept, strength);
    hold.alias = alias;
  };
  for (const TableChange& table : changes.tables) {
    for (const RowChange& row : table.rows) {
      if (table.table == "domain_user_alias_table") {
        side(table, row.before, false);
        side(table, row.after, true);
      }
    }
  }
  for (const auto& [key, hold] : holds) {
    if (hold.before != hold.after) {
      _TellAlias(key[0], key[1], hold);
    }
  }
}

void PlanMaker::_TellAlias(const std::string& domain_idx, const std::string& uid,
                           const Hold& hold) {
  const std::string user = names_.User(uid);
  const std::string domain = names_.Domain(domain_idx);
  const std::string address = hold.alias + "@" + domain;
  std::string text;
  std::string owner;
  if (hold.after == 2) {
    text = user + " gets " + address;
    gainers_.insert(uid);
    ++gained_;
  } else {
    owner = names_.AliasOwner(domain_idx, hold.alias);
    const std::string of = owner.empty() || owner == user ? "" : ", which belongs to " + owner;
    if (hold.before == 2) {
      text = user + " loses " + address + of;
      losers_.insert(uid);
      ++lost_;
    } else {
      text = user + (hold.after == 1 ? " also asks for " : " no longer asks for ") + address + of;
    }
  }
  const char* change = hold.before == 0 ? "added" : hold.after == 0 ? "removed" : "changed";
  Json::Value& entry = _Add("alias", change, text);
  entry["account"] = user;
  entry["domain"] = domain;
  entry["alias"] = hold.alias;
  entry["address"] = address;
  entry["had"] = hold.before == 2;
  entry["has"] = hold.after == 2;
  entry["owner"] = hold.after == 2 ? user : owner;
}

void PlanMaker::_TellTakenOut(const Subject& row) {
  const std::string user = names_.User(row["uid"]);
  const std::string domain = names_.Domain(row["domain_idx"]);
  const std::string group = names_.Group(row["gid"]);
  Json::Value& entry = _Add(
      "taken_out", row, user + " stays out of " + domain + ", though a member of group " + group,
      user + " is in " + domain + " with group " + group + " again", "");
  entry["account"] = user;
  entry["group"] = group;
  entry["domain"] = domain;
}

void PlanMaker::_TellEntry(const Subject& row) {
  const std::string address = row["name"] + "@" + names_.Domain(row["domain_id"]);
  Json::Value& entry = _Add("entry", row, address + " with several members is made",
                            address + " with several members is removed", address + " changes");
  entry["address"] = address;
}

void PlanMaker::_TellEntryMember(const Subject& row) {
  const std::string address = row["alias"] + "@" + names_.Domain(row["domain_id"]);
  const std::string member = row["member"];
  Json::Value& entry = _Add("entry_member", row, "mail to " + address + " also goes to " + member,
                            "mail to " + address + " no longer goes to " + member, "");
  entry["address"] = address;
  entry["member"] = member;
}

void PlanMaker::_TellCopy(const Subject& row) {
  static const char* const kOf[] = {"mail to ", "mail from ", "all mail of "};
  const std::string type = row["type"];
  const std::string of = (type == "1"   ? kOf[1]
                          : type == "2" ? kOf[2]
                                        : kOf[0]) +
                         row["name"] + " in " + names_.Domain(row["domain_id"]);
  const std::string to = row["bcc_to"];
  Json::Value& entry =
      _Add("copy", row, of + " is copied to " + to, of + " is no longer copied to " + to,
           of + " is copied to " + to + ", before to " + row.Before("bcc_to"));
  entry["domain"] = names_.Domain(row["domain_id"]);
  entry["name"] = row["name"];
  entry["type"] = type;
  entry["before"] = row.Before("bcc_to");
  entry["after"] = row.After("bcc_to");
}

// What the mail server itself keeps for each domain.
void PlanMaker::_TellMailSettings(const Changes& changes) {
  std::map<std::string, const char*> domains;
  for (const TableChange& table : changes.tables) {
    for (const RowChange& row : table.rows) {
      const SqlRow& side = row.after.empty() ? row.before : row.after;
      if (table.table.rfind("multi_domain_", 0) == 0) {
        domains.emplace(TextOf(table, side, "domain_id"), ChangeOf(row));
      }
    }
  }
  for (const auto& [idx, change] : domains) {
    const std::string domain = names_.Domain(idx);
    Json::Value& entry =
        _Add("mail_settings", change, "mail settings of " + domain + " are " + change);
    entry["domain"] = domain;
  }
}

// Keys that go with what is told elsewhere are told only without it.
bool PlanMaker::_GoesWithOthers(const std::string& key, const Disclaimers& disclaimers) const {
  constexpr std::string_view kOfDomains[] = {"enable_dkim_sign-", "dkim_selector-"};
  const auto begins = [&](std::string_view begin) { return key.rfind(begin, 0) == 0; };
  if (begins(kDisclaimers) || begins("sync_disclaimer_content_file-")) {
    return true;
  }
  return key == "mimedefang_enable"
             ? !disclaimers.empty()
             : std::any_of(std::begin(kOfDomains), std::end(kOfDomains), [&](std::string_view of) {
                 return begins(of) && domains_.count(key.substr(of.size())) != 0;
               });
}

void PlanMaker::_TellKeys(const Changes& changes) {
  const Disclaimers disclaimers = DisclaimersIn(changes);
  for (const auto& [key, sides] : SidesOf(changes, "key_table", {"name"}, "value")) {
    if ((sides.before != sides.after) && !_GoesWithOthers(key[0], disclaimers)) {
      _TellKey(key[0], sides);
    }
  }
  for (const auto& [idx, change] : disclaimers) {
    const std::string domain = names_.Domain(idx);
    Json::Value& entry = _Add("disclaimers", change, "disclaimers of " + domain + " are " + change);
    entry["domain"] = domain;
  }
}

void PlanMaker::_TellKey(const std::string& name, const Sides& sides) {
  constexpr size_t kLongestShown = 200;
  const std::string after = sides.After();
  const std::string quoted = after.size() > kLongestShown
                                 ? "a text of " + std::to_string(after.size()) + " bytes"
                                 : "\"" + after + "\"";
  Json::Value& entry = _Add(
      "setting", sides.Change(),
      !sides.after ? "setting " + name + " is removed" : "setting " + name + " becomes " + quoted);
  entry["key"] = name;
  entry["before"] = sides.Before();
  entry["after"] = after;
}

void PlanMaker::_TellDkim(const Changes& changes) {
  for (const FileChange& file : changes.files) {
    if (file.path.rfind(kTexts, 0) != 0) {
      const char* change = !file.was_there ? "added" : !file.is_there ? "removed" : "changed";
      const std::string domain = names_.Domain(file.path.substr(file.path.rfind('-') + 1));
      Json::Value& entry = _Add("keys", change, "a DKIM key of " + domain + " is " + change);
      entry["domain"] = domain;
      entry["file"] = file.path;
    }
  }
}

std::string PlanMaker::_Summary() const {
  std::vector<std::string> parts;
  const auto count = [](size_t number, const char* one, const char* many) {
    return std::to_string(number) + " " + (number == 1 ? one : many);
  };
  if (gained_ != 0) {
    parts.push_back(count(gainers_.size(), "person gets ", "people get ") +
                    count(gained_, "address", "addresses"));
  }
  if (lost_ != 0) {
    parts.push_back(count(losers_.size(), "person loses ", "people lose ") +
                    count(lost_, "address", "addresses"));
  }
  const size_t others = static_cast<size_t>(
      std::count_if(plan_.entries.begin(), plan_.entries.end(),
                    [](const auto& e) { return e["what"] != "alias" || e["had"] == e["has"]; }));
  if (others != 0) {
    parts.push_back(count(others, parts.empty() ? "thing changes" : "other thing changes",
                          parts.empty() ? "things change" : "other things change"));
  }
  return BASE::Join(parts, ", ");
}

// What no sentence above is about: how an alias is spelt, which role came by itself, a table of the
// mail server's own.
void PlanMaker::_TellRest(const Changes& changes) {
  size_t rows = 0;
  for (const TableChange& table : changes.tables) {
    rows += table.rows.size();
  }
  if (plan_.entries.empty() && rows != 0) {
    _Add("other", "changed",
         rows == 1 ? "a stored row changes, and nobody's address"
                   : std::to_string(rows) + " stored rows change, and nobody's address");
  }
}

void PlanMaker::Make(const Changes& unpaired) {
  const Changes changes = Paired(unpaired);
  _ForEach(changes, "domain_table", &PlanMaker::_TellDomain);
  _ForEach(changes, "domain_to_additional_domain_table", &PlanMaker::_TellName);
  _TellPrimary(changes);
  _ForEach(changes, "user_table", &PlanMaker::_TellAccount);
  _ForEach(changes, "group_table", &PlanMaker::_TellGroup);
  _ForEach(changes, "group_to_user_table", &PlanMaker::_TellMember);
  _TellRoles(changes);
  _ForEach(changes, "domain_group_role_table", &PlanMaker::_TellGroupRole);
  _TellAliases(changes);
  _ForEach(changes, "domain_group_removed_user_table", &PlanMaker::_TellTakenOut);
  _ForEach(changes, "alias_table", &PlanMaker::_TellEntry);
  _ForEach(changes, "alias_member_table", &PlanMaker::_TellEntryMember);
  _ForEach(changes, "bcc_table", &PlanMaker::_TellCopy);
  _TellMailSettings(changes);
  _TellKeys(changes);
  _TellDkim(changes);
  _TellRest(changes);
  plan_.summary = _Summary();
}

}  // namespace

bool MakePlan(const Changes& changes, Plan& plan) {
  std::string path;
  (void)UTILS::GetUserGroupDomainConfigPath(path);  // none after a switch to an incomplete source
  Names names(path, changes);
  if (!names.Open()) {
    return false;
  }
  PlanMaker(names, plan).Make(changes);
  return true;
}

}  // namespace MDOMAIN::HISTORY
