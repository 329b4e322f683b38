// Every call by name, with its arguments; those of several calls are json_call.cpp's.
#include "lib-domain/session/json_calls.h"

namespace mdomain::session {

namespace {

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

// Calls without arguments, or with a single one.
template <auto kCall>
Json::Value Plain(Session& session, Arguments& with) {
  with.End();
  return Answer((session.*kCall)());
}
template <auto kCall, typename T>
Json::Value OfOne(Session& session, const Arguments& with, const T& argument) {
  with.End();
  return Answer((session.*kCall)(argument));
}
template <auto kCall>
Json::Value OfDomain(Session& session, Arguments& with) {
  return OfOne<kCall>(session, with, with.Int("domain"));
}
template <auto kCall>
Json::Value OfText(Session& session, Arguments& with) {
  return OfOne<kCall>(session, with, with.Text("text"));
}
template <auto kCall>
Json::Value OfUser(Session& session, Arguments& with) {
  return OfOne<kCall>(session, with, with.Id("uid"));
}
template <auto kCall>
Json::Value OfAccounts(Session& session, Arguments& with) {
  const AccountQuery query = {with.Text("text", ""), with.OptionalId("gid"),
                              static_cast<std::size_t>(with.Int("page_size", 100)),
                              with.OptionalId("id")};
  const std::string cursor = with.Text("cursor", "");
  with.End();
  return Answer((session.*kCall)(query, cursor));
}
template <auto kCall>
Json::Value OfAddress(Session& session, Arguments& with) {
  return OfOne<kCall>(session, with, with.Text("address"));
}

}  // namespace

const std::map<std::string, Run>& Calls() {
  // Never destroyed: sessions may be used while static objects are.
  static const auto* calls = new std::map<std::string, Run>{
      {"domains", Plain<&Session::Domains>},
      {"get_domain", OfDomain<&Session::GetDomain>},
      {"find_domain", OfText<&Session::FindDomain>},
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
         const Version version = a.Text("version", "");
         a.End();
         return Answer(s.DeleteDomains({ids.begin(), ids.end()}, version));
       }},
      {"make_primary", OfDomain<&Session::MakePrimary>},
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
      {"find_account", OfText<&Session::FindAccount>},
      {"find_account_group", OfText<&Session::FindAccountGroup>},
      {"list_accounts", OfAccounts<&Session::ListAccounts>},
      {"list_account_groups", OfAccounts<&Session::ListAccountGroups>},
      {"explain_group",
       [](Session& s, Arguments& a) {
         const std::uint32_t gid = a.Id("gid");
         a.End();
         return Answer(s.ExplainGroup(gid));
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
         const Version version = a.Text("version", "");
         a.End();
         return Answer(s.RemoveUsers(domain, uids, version));
       }},
      {"addresses",
       [](Session& s, Arguments& a) {
         const std::uint32_t uid = a.Id("uid");
         const bool with_names = a.Bool("with_names", false);
         a.End();
         return Answer(s.Addresses(uid, with_names));
       }},
      {"owner", OfAddress<&Session::Owner>},
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
      {"entries", OfDomain<&Session::Entries>},
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
         const Version version = a.Text("version", "");
         a.End();
         return Answer(s.DeleteEntry(domain, name, version));
       }},
      {"copies", OfDomain<&Session::Copies>},
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
      {"get_disclaimers", OfDomain<&Session::GetDisclaimers>},
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
      {"explain_disclaimers",
       [](Session& s, Arguments& a) {
         const int domain = a.Int("domain");
         const std::string from = a.Text("from");
         const std::string to = a.Text("to");
         a.End();
         return Answer(s.ExplainDisclaimers(domain, from, to));
       }},
      {"explain", OfAddress<&Session::Explain>},
      {"explain_user", OfUser<&Session::ExplainUser>},
      {"of", OfUser<&Session::Of>},
      {"overview", OfDomain<&Session::Overview>},
      {"doctor", Plain<&Session::Doctor>},
      {"repair", Plain<&Session::Repair>},
      {"refresh",
       [](Session& s, Arguments& a) {
         const int limit = a.Int("deletion_limit", 500);
         const int percent = a.Int("percent", 10);
         a.End();
         return Answer(
             s.Refresh(static_cast<std::size_t>(limit), static_cast<std::size_t>(percent)));
       }},
      {"export", Plain<&Session::Export>},
      {"apply",
       [](Session& s, Arguments& a) {
         const std::string json = a.Text("json");
         const bool skip_unknown = a.Bool("skip_unknown", false);
         const Version version = a.Text("version", "");
         a.End();
         return Answer(s.Apply(json, skip_unknown, version));
       }},
      {"refresh_progress", Plain<&Session::RefreshProgress>},
      {"published",
       [](Session& s, Arguments& a) {
         const PublicationQuery query = {static_cast<std::size_t>(a.Int("page_size", 100))};
         const std::string cursor = a.Text("cursor", "");
         a.End();
         return Answer(s.Published(query, cursor));
       }},
      {"publish", Plain<&Session::Publish>},
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
  };
  return *calls;
}

}  // namespace mdomain::session
