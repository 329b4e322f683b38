#include "lib-domain/session/json_call.h"

#include <map>

#include "lib-domain/session/json_record.h"
#include "lib-domain/session/turn.h"

namespace mdomain::session {

namespace {

using Run = Json::Value (*)(Session& session, Arguments& with);

// Arguments are read before the call: what is left over then is known to nobody.
template <typename T>
Json::Value Answer(const Result<T>& result) {
  Json::Value answer;
  if (result) {
    answer["value"] = JsonOf(*result);
    answer["published"] = result.IsPublished();
  }
  if (!result.IsPublished()) {
    answer["error"] = JsonOf(result.GetError());
  }
  return answer;
}

template <typename AnyQuery, typename Column>
AnyQuery QueryOf(Arguments& with, const std::vector<std::pair<const char*, Column>>& columns) {
  AnyQuery query;
  query.text = with.Text("text", "");
  query.by = with.Word<Column>("by", columns);
  query.is_descending = with.Bool("is_descending", false);
  query.page_size = static_cast<std::size_t>(with.Int("page_size", 100));
  return query;
}

Entry EntryOf(Arguments& with) {
  return {with.Text("name"), with.Texts("users"), with.Texts("groups"), with.Texts("addresses"),
          ""};
}

Role RoleOfGroups(Arguments& with) {
  return with.OptionalRole("role").value_or(Role::kNone);
}

PatternQuery PatternQueryOf(Arguments& with) {
  return {with.Bool("only_problems", false), static_cast<std::size_t>(with.Int("page_size", 100))};
}

Json::Value Together(Session& session, Arguments& with);

const std::map<std::string, Run>& Calls() {
  // Never destroyed: sessions may be used while static objects are.
  static const auto* calls = new std::map<std::string, Run>{
      {"domains",
       [](Session& s, Arguments& a) {
         a.End();
         return Answer(s.Domains());
       }},
      {"get_domain",
       [](Session& s, Arguments& a) {
         const int domain = a.Int("domain");
         a.End();
         return Answer(s.GetDomain(domain));
       }},
      {"find_domain",
       [](Session& s, Arguments& a) {
         const std::string text = a.Text("text");
         a.End();
         return Answer(s.FindDomain(text));
       }},
      {"create_domain",
       [](Session& s, Arguments& a) {
         const NewDomain domain = {a.Text("name"), a.Text("description", ""),
                                   a.Text("pattern", "<a>"), a.Bool("adds_accounts", true)};
         a.End();
         return Answer(s.CreateDomain(domain));
       }},
      {"set_domain",
       [](Session& s, Arguments& a) {
         const int domain = a.Int("domain");
         const DomainChange change = {a.OptionalText("name"), a.OptionalText("description"),
                                      a.OptionalText("pattern"), a.OptionalBool("adds_accounts")};
         const Version version = a.Text("version", "");
         a.End();
         return Answer(s.SetDomain(domain, change, version));
       }},
      {"delete_domains",
       [](Session& s, Arguments& a) {
         const std::vector<std::uint32_t> ids = a.Ids("domains");
         a.End();
         return Answer(s.DeleteDomains({ids.begin(), ids.end()}));
       }},
      {"make_primary",
       [](Session& s, Arguments& a) {
         const int domain = a.Int("domain");
         a.End();
         return Answer(s.MakePrimary(domain));
       }},
      {"add_names",
       [](Session& s, Arguments& a) {
         const int domain = a.Int("domain");
         const auto names = a.Texts("names");
         a.End();
         return Answer(s.AddNames(domain, names));
       }},
      {"set_names",
       [](Session& s, Arguments& a) {
         const int domain = a.Int("domain");
         const auto names = a.Texts("names");
         const Version version = a.Text("version", "");
         a.End();
         return Answer(s.SetNames(domain, names, version));
       }},
      {"remove_names",
       [](Session& s, Arguments& a) {
         const int domain = a.Int("domain");
         const auto names = a.Texts("names");
         a.End();
         return Answer(s.RemoveNames(domain, names));
       }},
      {"find_account",
       [](Session& s, Arguments& a) {
         const std::string text = a.Text("text");
         a.End();
         return Answer(s.FindAccount(text));
       }},
      {"find_account_group",
       [](Session& s, Arguments& a) {
         const std::string text = a.Text("text");
         a.End();
         return Answer(s.FindAccountGroup(text));
       }},
      {"list_users",
       [](Session& s, Arguments& a) {
         const int domain = a.Int("domain");
         auto query = QueryOf<UserQuery, UserColumn>(a, {{"name", UserColumn::kName},
                                                 {"alias", UserColumn::kAlias},
                                                 {"role", UserColumn::kRole}});
         query.collides = a.Bool("collides", false);
         query.drifts = a.Bool("drifts", false);
         query.has_own_role = a.OptionalBool("has_own_role");
         query.gid = a.OptionalId("gid");
         const std::string cursor = a.Text("cursor", "");
         a.End();
         return Answer(s.ListUsers(domain, query, cursor));
       }},
      {"find_user",
       [](Session& s, Arguments& a) {
         const int domain = a.Int("domain");
         const std::uint32_t uid = a.Id("uid");
         a.End();
         return Answer(s.FindUser(domain, uid));
       }},
      {"preview",
       [](Session& s, Arguments& a) {
         const int domain = a.Int("domain");
         const Members members = {a.Ids("uids"), a.Ids("gids")};
         a.End();
         return Answer(s.Preview(domain, members));
       }},
      {"add_members",
       [](Session& s, Arguments& a) {
         const int domain = a.Int("domain");
         const Members members = {a.Ids("uids"), a.Ids("gids")};
         const auto aliases = a.Texts("aliases");
         a.End();
         return Answer(s.AddMembers(domain, members, aliases));
       }},
      {"set_user",
       [](Session& s, Arguments& a) {
         const int domain = a.Int("domain");
         const std::uint32_t uid = a.Id("uid");
         const UserChange change = {a.OptionalRole("role"), a.OptionalTexts("aliases"),
                                    a.Texts("add_aliases"), a.Texts("remove_aliases")};
         const Version version = a.Text("version", "");
         a.End();
         return Answer(s.SetUser(domain, uid, change, version));
       }},
      {"remove_users",
       [](Session& s, Arguments& a) {
         const int domain = a.Int("domain");
         const auto uids = a.Ids("uids");
         a.End();
         return Answer(s.RemoveUsers(domain, uids));
       }},
      {"addresses",
       [](Session& s, Arguments& a) {
         const std::uint32_t uid = a.Id("uid");
         const bool with_names = a.Bool("with_names", false);
         a.End();
         return Answer(s.Addresses(uid, with_names));
       }},
      {"owner",
       [](Session& s, Arguments& a) {
         const std::string address = a.Text("address");
         a.End();
         return Answer(s.Owner(address));
       }},
      {"list_groups",
       [](Session& s, Arguments& a) {
         const int domain = a.Int("domain");
         const auto query = QueryOf<GroupQuery, GroupColumn>(
             a, {{"name", GroupColumn::kName}, {"description", GroupColumn::kDescription}});
         const std::string cursor = a.Text("cursor", "");
         a.End();
         return Answer(s.ListGroups(domain, query, cursor));
       }},
      {"group_members",
       [](Session& s, Arguments& a) {
         const int domain = a.Int("domain");
         const std::uint32_t gid = a.Id("gid");
         a.End();
         return Answer(s.GroupMembers(domain, gid));
       }},
      {"set_group_role",
       [](Session& s, Arguments& a) {
         const int domain = a.Int("domain");
         const auto gids = a.Ids("gids");
         const Role role = RoleOfGroups(a);
         a.End();
         return Answer(s.SetGroupRole(domain, gids, role));
       }},
      {"remove_groups",
       [](Session& s, Arguments& a) {
         const int domain = a.Int("domain");
         const auto gids = a.Ids("gids");
         a.End();
         return Answer(s.RemoveGroups(domain, gids));
       }},
      {"restore_members",
       [](Session& s, Arguments& a) {
         const int domain = a.Int("domain");
         const std::uint32_t gid = a.Id("gid");
         const auto uids = a.Ids("uids");
         a.End();
         return Answer(s.RestoreMembers(domain, gid, uids));
       }},
      {"entries",
       [](Session& s, Arguments& a) {
         const int domain = a.Int("domain");
         a.End();
         return Answer(s.Entries(domain));
       }},
      {"find_entry",
       [](Session& s, Arguments& a) {
         const int domain = a.Int("domain");
         const std::string name = a.Text("name");
         a.End();
         return Answer(s.FindEntry(domain, name));
       }},
      {"create_entry",
       [](Session& s, Arguments& a) {
         const int domain = a.Int("domain");
         const Entry entry = EntryOf(a);
         a.End();
         return Answer(s.CreateEntry(domain, entry));
       }},
      {"set_entry",
       [](Session& s, Arguments& a) {
         const int domain = a.Int("domain");
         const Entry entry = EntryOf(a);
         const Version version = a.Text("version", "");
         a.End();
         return Answer(s.SetEntry(domain, entry, version));
       }},
      {"delete_entry",
       [](Session& s, Arguments& a) {
         const int domain = a.Int("domain");
         const std::string name = a.Text("name");
         a.End();
         return Answer(s.DeleteEntry(domain, name));
       }},
      {"copies",
       [](Session& s, Arguments& a) {
         const int domain = a.Int("domain");
         a.End();
         return Answer(s.Copies(domain));
       }},
      {"add_copies",
       [](Session& s, Arguments& a) {
         const int domain = a.Int("domain");
         const auto copies = a.Copies("copies");
         a.End();
         return Answer(s.AddCopies(domain, copies));
       }},
      {"remove_copies",
       [](Session& s, Arguments& a) {
         const int domain = a.Int("domain");
         const auto copies = a.Copies("copies");
         a.End();
         return Answer(s.RemoveCopies(domain, copies));
       }},
      {"get_disclaimers",
       [](Session& s, Arguments& a) {
         const int domain = a.Int("domain");
         a.End();
         return Answer(s.GetDisclaimers(domain));
       }},
      {"set_disclaimers",
       [](Session& s, Arguments& a) {
         const int domain = a.Int("domain");
         const std::string json = a.Text("json");
         const Version version = a.Text("version", "");
         a.End();
         return Answer(s.SetDisclaimers(domain, json, version));
       }},
      {"try_disclaimer",
       [](Session& s, Arguments& a) {
         const int domain = a.Int("domain");
         const std::string json = a.Text("json");
         a.End();
         return Answer(s.TryDisclaimer(domain, json));
       }},
      {"explain",
       [](Session& s, Arguments& a) {
         const std::string address = a.Text("address");
         a.End();
         return Answer(s.Explain(address));
       }},
      {"explain_user",
       [](Session& s, Arguments& a) {
         const std::uint32_t uid = a.Id("uid");
         a.End();
         return Answer(s.ExplainUser(uid));
       }},
      {"of",
       [](Session& s, Arguments& a) {
         const std::uint32_t uid = a.Id("uid");
         a.End();
         return Answer(s.Of(uid));
       }},
      {"overview",
       [](Session& s, Arguments& a) {
         const int domain = a.Int("domain");
         a.End();
         return Answer(s.Overview(domain));
       }},
      {"doctor",
       [](Session& s, Arguments& a) {
         a.End();
         return Answer(s.Doctor());
       }},
      {"repair",
       [](Session& s, Arguments& a) {
         a.End();
         return Answer(s.Repair());
       }},
      {"refresh",
       [](Session& s, Arguments& a) {
         const int limit = a.Int("deletion_limit", 500);
         const int percent = a.Int("percent", 10);
         a.End();
         return Answer(
             s.Refresh(static_cast<std::size_t>(limit), static_cast<std::size_t>(percent)));
       }},
      {"refresh_progress",
       [](Session& s, Arguments& a) {
         a.End();
         return Answer(s.RefreshProgress());
       }},
      {"published",
       [](Session& s, Arguments& a) {
         const PublicationQuery query = {static_cast<std::size_t>(a.Int("page_size", 100))};
         const std::string cursor = a.Text("cursor", "");
         a.End();
         return Answer(s.Published(query, cursor));
       }},
      {"publish",
       [](Session& s, Arguments& a) {
         a.End();
         return Answer(s.Publish());
       }},
      {"history",
       [](Session& s, Arguments& a) {
         const int limit = a.Int("limit", 100);
         a.End();
         return Answer(s.History(limit));
       }},
      {"undo",
       [](Session& s, Arguments& a) {
         const int id = a.Int("id");
         a.End();
         return Answer(s.Undo(id));
       }},
      {"list_history",
       [](Session& s, Arguments& a) {
         HistoryQuery query;
         query.domain = a.Int("domain", 0);
         query.page_size = static_cast<std::size_t>(a.Int("page_size", 100));
         const std::string cursor = a.Text("cursor", "");
         a.End();
         return Answer(s.ListHistory(query, cursor));
       }},
      {"history_plan",
       [](Session& s, Arguments& a) {
         const int id = a.Int("id");
         a.End();
         return Answer(s.HistoryPlan(id));
       }},
      {"try_pattern",
       [](Session& s, Arguments& a) {
         const int domain = a.Int("domain");
         const std::string pattern = a.Text("pattern");
         const PatternQuery query = PatternQueryOf(a);
         const std::string cursor = a.Text("cursor", "");
         a.End();
         return Answer(s.TryPattern(domain, pattern, query, cursor));
       }},
      {"pattern_drift",
       [](Session& s, Arguments& a) {
         const int domain = a.Int("domain");
         const PatternQuery query = PatternQueryOf(a);
         const std::string cursor = a.Text("cursor", "");
         a.End();
         return Answer(s.PatternDrift(domain, query, cursor));
       }},
      {"settings",
       [](Session& s, Arguments& a) {
         const bool all = a.Bool("all", false);
         a.End();
         return Answer(s.Settings(all));
       }},
      {"get_setting",
       [](Session& s, Arguments& a) {
         const std::string key = a.Text("key");
         a.End();
         return Answer(s.GetSetting(key));
       }},
      {"set_setting",
       [](Session& s, Arguments& a) {
         const std::string key = a.Text("key");
         const std::string value = a.Text("value");
         const bool force = a.Bool("force", false);
         a.End();
         return Answer(s.SetSetting(key, value, force));
       }},
      {"together", Together},
  };
  return *calls;
}

// "calls" are objects with "call" and "arguments"; the value is the array of their values.
Json::Value Together(Session& session, Arguments& with) {
  const std::string command = with.Text("command");
  const Json::Value& calls = with.Any("calls");
  with.End();
  if (!calls.isArray()) {
    Refuse(Reason::kInvalid, "argument \"calls\" is no array");
  }
  Json::Value values(Json::arrayValue);
  Json::Value error;
  const auto result = session.Together(command, [&](Session& within) {
    for (const Json::Value& call : calls) {
      Arguments one(call, "calls[].");
      const std::string name = one.Text("call");
      const Json::Value answer = CallByName(within, name, one.Any("arguments"));
      one.End();
      if (answer.isMember("error")) {
        error = answer["error"];
        return false;
      }
      values.append(answer["value"]);
    }
    return true;
  });
  Json::Value answer = Answer(result);
  if (result) {
    answer["value"] = values;
  } else if (!error.isNull()) {
    if (answer["error"]["text"].asString().find(kNotTakenBack) != std::string::npos) {
      error["text"] = error["text"].asString() + kNotTakenBack;
    }
    answer["error"] = error;
  }
  return answer;
}

constexpr const char* kDryRun = "dry_run";

// The value is the plan of the call; a refusal is that of the call.
Json::Value DryRun(Session& session, const std::string& name, Json::Value arguments) {
  Json::Value is_asked_for;
  arguments.removeMember(kDryRun, &is_asked_for);
  if (!is_asked_for.isBool()) {
    Refuse(Reason::kInvalid, "argument \"dry_run\" is neither true nor false");
  }
  if (!is_asked_for.asBool()) {
    return CallByName(session, name, arguments);
  }
  Json::Value refused;
  const Result<ChangePlan> plan = session.DryRun([&](Session& trial) -> Result<Nothing> {
    const Json::Value answer = CallByName(trial, name, arguments);
    if (answer.isMember("value")) {
      return Nothing();
    }
    refused = answer;
    return Error();
  });
  return refused.isNull() ? Answer(plan) : refused;
}

}  // namespace

Json::Value CallByName(Session& session, const std::string& name, const Json::Value& arguments) {
  try {
    const auto call = Calls().find(name);
    if (call == Calls().end()) {
      Refuse(Reason::kInvalid, "there is no call \"" + name + "\"");
    }
    if (arguments.isObject() && arguments.isMember(kDryRun)) {
      return DryRun(session, name, arguments);
    }
    Arguments with(arguments);
    return call->second(session, with);
  } catch (const Stop& stop) {
    return Answer(Result<Nothing>(stop.error));
  }
}

std::vector<std::string> CallNames() {
  std::vector<std::string> names;
  for (const auto& call : Calls()) {
    names.push_back(call.first);
  }
  return names;
}

}  // namespace mdomain::session
