#include <ctime>
#include <set>
#include <sstream>

#include "web/pages/pages.h"
#include "web/view/texts.h"

namespace mdomain_web::pages {

std::string Moment(long long seconds) {
  const time_t time = seconds;
  tm parts{};
  char text[32] = "";
  if (localtime_r(&time, &parts) != nullptr) {
    strftime(text, sizeof(text), "%Y-%m-%d %H:%M:%S", &parts);
  }
  return text;
}

namespace {

// Calls are recorded with numbers, "set 1003 in domain 2": they are shown with the names of today.
class Namer final {
 public:
  explicit Namer(const Asked& asked) : asked_(asked) {
    for (const Json::Value& domain : asked.calls("domains")) {
      domains_[domain["idx"].asString()] = domain["name"].asString();
    }
  }

  std::string operator()(const std::string& command) {
    static const std::set<std::string> kVerbs = {"add",    "create",  "delete", "make",
                                                 "remove", "restore", "set"};
    if (kVerbs.count(command.substr(0, command.find(' '))) == 0) {
      return command;  // of the tool, with names already
    }
    std::istringstream words(command);
    std::string named;
    std::string before;
    const bool is_of_ids = command.find(" in domain ") != std::string::npos;
    const char* const list =
        command.find(" groups ") == std::string::npos ? "list_accounts" : "list_account_groups";
    int ids = 0;
    for (std::string word; words >> word; before = word) {
      const bool is_id = is_of_ids && before != "domain" && NumberIn(word);
      ids += is_id ? 1 : 0;
      if (ids > kMostNamed && is_id) {
        continue;
      }
      named += (named.empty() ? "" : " ") + (before == "domain" ? DomainOf(word)
                                             : is_id            ? AccountOf(list, word)
                                                                : word);
    }
    return ids > kMostNamed ? named + " (" + std::to_string(ids) + ")" : named;
  }

 private:
  static constexpr int kMostNamed = 3;

  std::string DomainOf(const std::string& idx) const {
    const auto found = domains_.find(idx);
    return found == domains_.end() ? idx : found->second;
  }

  std::string AccountOf(const char* list, const std::string& id) {
    const auto [found, is_new] = accounts_.try_emplace(list + id);
    if (is_new) {
      const std::string name = NameOf(asked_, *NumberIn(id), list);
      found->second = name.empty() ? id : name;
    }
    return found->second;
  }

  const Asked& asked_;
  std::map<std::string, std::string> domains_;
  std::map<std::string, std::string> accounts_;  // by kind and number
};

void Prepare(Namer& named, Json::Value& entry) {
  const std::string state = entry["state"].asString();
  entry["when"] = Moment(entry["time"].asInt64());
  entry["command"] = named(entry["command"].asString());
  entry["is_done"] = state == "done" && entry["why_kept"].asString().empty();
  entry["is_undone"] = state == "undone";
}

}  // namespace

Shown History(const Asked& asked) {
  Shown shown{"history"};
  Json::Value arguments;
  arguments["cursor"] = asked.Text("cursor");
  std::string of_domain;
  if (const auto domain = NarrowToDomain(asked, shown)) {
    arguments["domain"] = *domain;
    of_domain = Parameter("domain", std::to_string(*domain));
  }
  shown.data["list"] = asked.calls("list_history", arguments);
  Namer named(asked);
  for (Json::Value& entry : shown.data["list"]["items"]) {
    Prepare(named, entry);
  }
  shown.data["next"] = NextPage(shown.data["list"], of_domain);
  return shown;
}

// What one change changed.
Shown HistoryEntry(const Asked& asked) {
  Shown shown{"history_entry"};
  Json::Value arguments;
  arguments["id"] = asked.Number("id");
  const Json::Value plan = asked.calls("history_plan", arguments);
  if (plan.isNull()) {
    throw NotFound();
  }
  shown.data["id"] = asked.Number("id");
  shown.data["summary"] = plan["summary"];
  shown.data["changes"] = PartOf(asked, plan["changes"], shown);
  return shown;
}

Change Undo(const Asked& asked) {
  Change change{"undo", {}, "/history", Tr("The change is taken back.")};
  change.arguments["id"] = asked.Number("id");
  return change;
}

}  // namespace mdomain_web::pages
