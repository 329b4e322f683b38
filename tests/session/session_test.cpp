// Sessions: what their calls do, what they refuse, and what is left when they fail.
#include "lib-domain/base/json_text.h"
#include "lib-domain/session/json_call.h"
#include "lib-domain/session/json_text.h"
#include "tests/support/session_fixture.h"

namespace {

using mdomain::Copy;
using mdomain::Reason;
using mdomain::Role;
using mdomain::Session;
using mdomain::User;
using test::kBob;
using test::kCarol;
using test::kStaff;
using test::SessionTest;
using test::StringList;

TEST_F(SessionTest, ListsPageByThemselves) {
  for (const auto column :
       {mdomain::UserColumn::kName, mdomain::UserColumn::kAlias, mdomain::UserColumn::kRole}) {
    EXPECT_EQ(session_.ListUsers(1, {"", column, false, 100})->items.size(), 3u);
  }
  for (const size_t size : {1, 2, 100}) {
    StringList names;
    mdomain::UserQuery query;
    query.page_size = size;
    query.is_descending = true;
    auto users = session_.Users(1, query);
    for (const User& user : users) {
      names.push_back(user.name);
    }
    EXPECT_TRUE(users.IsWhole());
    EXPECT_EQ(names, (StringList{"carol", "bob", "alice"})) << size;
  }
  EXPECT_EQ(session_.ListUsers(2)->total, 2u);
  EXPECT_EQ(session_.ListUsers(1, {"LIC"})->total, 1u);
  EXPECT_EQ(session_.ListUsers(1, {"_"})->total, 0u);  // no wildcard
  auto nowhere = session_.Users(7);
  EXPECT_EQ(nowhere.begin(), nowhere.end());
  EXPECT_EQ(nowhere.GetError().reason, Reason::kNotFound);
  EXPECT_EQ(ReasonOf(session_.ListUsers(1, {}, "next")), Reason::kInvalid);

  SetAccounts({{"alice", 1001}, {"bob", 1002}, {"carol", 1003}},
              {{"staff:2001", "alice"}, {"admins:2002", "bob"}, {"press:2003", "carol"}});
  ASSERT_TRUE(session_.Refresh());
  ASSERT_TRUE(session_.AddMembers(1, {{}, {kStaff, 2002, 2003}}));
  for (const bool is_descending : {false, true}) {
    StringList names;
    for (const auto& group :
         session_.Groups(1, {"s", mdomain::GroupColumn::kName, is_descending, 2})) {
      names.push_back(group.name);
    }
    StringList wanted = {"admins", "press", "staff"};
    if (is_descending) {
      std::reverse(wanted.begin(), wanted.end());
    }
    EXPECT_EQ(names, wanted);
  }
}

// Lists of thousands take other roads than short ones: narrowed to a group in which everybody is,
// by long pages and by short ones, they are what the list of all is.
TEST_F(SessionTest, LongListsAreAsShortOnes) {
  Run("BEGIN;"
      "WITH RECURSIVE one(uid) AS (SELECT 3000 UNION ALL SELECT uid + 1 FROM one WHERE uid < 8999)"
      " INSERT INTO user_table SELECT uid, 'u' || (uid * 7919 % 6007) FROM one;"
      "INSERT INTO domain_user_alias_table"
      " SELECT 1, uid, user_name, uid % 13 = 0 FROM user_table WHERE uid >= 3000;"
      "INSERT INTO domain_user_role_table"
      " SELECT 1, uid, iif(uid % 2, 'normal', 'domain_admin'), 0 FROM user_table"
      " WHERE uid >= 3000 AND uid % 7 = 0;"
      "INSERT OR IGNORE INTO group_to_user_table SELECT 2001, uid FROM user_table;"
      "INSERT OR IGNORE INTO group_to_user_table SELECT 2002, uid FROM user_table WHERE uid % 11;"
      "INSERT OR REPLACE INTO domain_group_role_table VALUES (1, 2001, 'normal'), (1, 2002, "
      "'domain_admin');"
      "INSERT INTO domain_group_removed_user_table"
      " SELECT 1, 2002, uid FROM user_table WHERE uid % 3 = 0; COMMIT;");
  const auto listed = [&](const mdomain::UserQuery& query) {
    StringList users;
    for (const User& user : session_.Users(1, query)) {
      std::string text = std::to_string(user.uid) + user.version;
      text += std::to_string(static_cast<int>(user.group_role));
      for (const auto& alias : user.aliases) {
        text += " " + alias.local_part + (alias.is_taken ? " " + alias.owner : "");
      }
      users.push_back(text);
    }
    return users;
  };
  for (const auto column :
       {mdomain::UserColumn::kName, mdomain::UserColumn::kAlias, mdomain::UserColumn::kRole}) {
    for (const bool is_descending : {false, true}) {
      const StringList all = listed({"", column, is_descending, 10000});
      EXPECT_EQ(all.size(), 6003u);
      const bool is_by_role = column == mdomain::UserColumn::kRole;
      for (const size_t size :
           is_by_role ? std::vector<size_t>{10000, 400} : std::vector<size_t>{10000}) {
        mdomain::UserQuery query{"", column, is_descending, size};
        query.gid = kStaff;
        const StringList narrowed = listed(query);
        ASSERT_EQ(narrowed.size(), all.size()) << size;
        const auto differs = std::mismatch(all.begin(), all.end(), narrowed.begin());
        ASSERT_TRUE(differs.first == all.end()) << *differs.first << " | " << *differs.second;
      }
    }
  }
}

TEST_F(SessionTest, ChangesAndTellsWhatIsThereThen) {
  const auto carol = session_.SetUser(1, kCarol, {{}, {}, {"Boss", "alice"}, {}});
  ASSERT_TRUE(carol);
  EXPECT_TRUE(carol.IsPublished());
  std::map<std::string, std::string> owners;
  for (const auto& alias : carol->aliases) {
    owners[alias.local_part] = alias.is_taken ? alias.owner : "";
  }
  EXPECT_EQ(owners,
            (std::map<std::string, std::string>{{"Boss", ""}, {"alice", "alice"}, {"carol", ""}}));
  ASSERT_TRUE(session_.AddNames(1, {"bücher.example"}));
  EXPECT_EQ(*session_.Addresses(kCarol, true),
            (StringList{"carol@a.example", "Boss@a.example", "carol@bücher.example",
                        "Boss@bücher.example"}));
  EXPECT_EQ((*session_.Owner("BOSS@xn--bcher-kva.example")).value_or("-"), "carol");
  EXPECT_EQ((*session_.Owner("nobody@a.example")).value_or("-"), "-");
  ASSERT_TRUE(session_.CreateEntry(1, {"team", {"bob"}, {}, {"x@y.example"}, ""}));
  ASSERT_TRUE(session_.AddCopies(2, {{Copy::Of::kMailTo, "bob", "alice@b.example"}}));
  ASSERT_TRUE(session_.RemoveUsers(2, {kBob}));
  EXPECT_TRUE(session_.Copies(2)->empty());
  EXPECT_FALSE(session_.FindUser(2, kBob)->has_value());
  const auto history = session_.History(3);
  ASSERT_EQ(history->size(), 3u);
  EXPECT_EQ(history->front().command, "remove 1002 in domain 2");
  EXPECT_EQ(history->front().person, "tester");
  ASSERT_TRUE(session_.Undo((*history)[0].id));
  EXPECT_TRUE(session_.FindUser(2, kBob)->has_value());
  EXPECT_EQ(session_.Copies(2)->size(), 1u);
  EXPECT_EQ(ReasonOf(session_.Undo((*history)[0].id)), Reason::kRefused);
  ASSERT_TRUE(session_.Undo((*history)[1].id));
  EXPECT_TRUE(session_.Copies(2)->empty());
  StringList states;
  for (const auto& entry : *session_.History(4)) {
    states.push_back(entry.state);
  }
  EXPECT_EQ(states, (StringList{"undo", "undo", "undone", "undone"}));
}

TEST_F(SessionTest, RefusesWithReasonsAndChangesNothing) {
  const StringList before = Model();
  const auto carol = session_.SetUser(1, kCarol, {Role::kNone, {}, {"a b", "ok", "x@y"}, {"none"}});
  EXPECT_EQ(ReasonOf(carol), Reason::kInvalid);
  StringList refused;
  for (const auto& one : carol.GetError().refused) {
    refused.push_back(one.what + " " + one.value);
  }
  EXPECT_EQ(refused, (StringList{"role group", "alias a b", "alias x@y", "alias none"}));
  EXPECT_EQ(ReasonOf(session_.CreateDomain({"B.example"})), Reason::kTaken);
  EXPECT_EQ(session_.CreateDomain({"B.example"}).GetError().number, 5618u);
  EXPECT_EQ(ReasonOf(session_.CreateDomain({"no domain", "", "plain"})), Reason::kInvalid);
  EXPECT_EQ(ReasonOf(session_.AddNames(1, {"c.example", "b.example"})), Reason::kTaken);
  EXPECT_EQ(ReasonOf(session_.RemoveNames(1, {"c.example"})), Reason::kNotFound);
  EXPECT_EQ(ReasonOf(session_.DeleteDomains({2, 1})), Reason::kRefused);
  EXPECT_EQ(ReasonOf(session_.SetUser(2, kCarol, {})), Reason::kNotFound);
  EXPECT_EQ(ReasonOf(session_.AddMembers(2, {{kCarol, 4711}, {}})), Reason::kNotFound);
  EXPECT_EQ(ReasonOf(session_.CreateEntry(1, {"bob", {"carol"}, {}, {}, ""})), Reason::kTaken);
  EXPECT_EQ(ReasonOf(session_.AddCopies(1, {{Copy::Of::kMailTo, "x@b.example", "bob"}})),
            Reason::kInvalid);
  EXPECT_EQ(ReasonOf(session_.SetDisclaimers(1, "[{}]")), Reason::kInvalid);
  const auto read = session_.GetDomain(2);
  ASSERT_TRUE(
      session_.SetUser(2, kBob, {{}, {}, {"b"}, {}}, (*session_.FindUser(2, kBob))->version));
  EXPECT_EQ(ReasonOf(session_.SetUser(2, kBob, {{}, {}, {"c"}, {}}, "old")), Reason::kChanged);
  ASSERT_TRUE(session_.SetUser(2, kBob, {{}, {}, {}, {"b"}}));
  ASSERT_TRUE(session_.SetDomain(2, {{}, "described", {}, {}}, read->version));
  EXPECT_EQ(ReasonOf(session_.SetDomain(2, {{}, "again", {}, {}}, read->version)),
            Reason::kChanged);
  ASSERT_TRUE(session_.SetDomain(2, {{}, "", {}, {}}));
  EXPECT_EQ(ReasonOf(session_.DeleteDomains({2}, "old")), Reason::kChanged);
  EXPECT_EQ(ReasonOf(session_.RemoveUsers(2, {kBob}, "old")), Reason::kChanged);
  EXPECT_EQ(ReasonOf(session_.RemoveUsers(1, {kBob, kCarol}, "old")), Reason::kInvalid);
  EXPECT_EQ(Model(), before);
  TakeLog();
}

TEST_F(SessionTest, SaysDoneOfWhatIsDoneAlone) {
  ASSERT_TRUE(session_.AddMembers(1, {{}, {kStaff}}));
  ASSERT_TRUE(session_.AddCopies(1, {{Copy::Of::kMailTo, "bob", "carol"}}));
  const StringList before = Model();
  EXPECT_EQ(ReasonOf(session_.RestoreMembers(1, kStaff, {kCarol})), Reason::kNotFound);
  EXPECT_EQ(ReasonOf(session_.RemoveCopies(
                1, {{Copy::Of::kMailTo, "bob", "carol"}, {Copy::Of::kMailFrom, "bob", "carol"}})),
            Reason::kNotFound);
  EXPECT_EQ(session_.Copies(1)->size(), 1u);
  test::FailOn("isClusterHealth");
  const auto entry = session_.CreateEntry(1, {"team", {"bob"}, {}, {}, ""});
  EXPECT_EQ(ReasonOf(entry), Reason::kFailed);
  EXPECT_EQ(entry.GetError().number, 5635u);
  test::ClearFaults();
  EXPECT_TRUE(session_.Entries(1)->empty());
  EXPECT_EQ(ReasonOf(session_.Together("throws",
                                       [](Session& session) -> bool {
                                         EXPECT_TRUE(session.CreateDomain({"c.example"}));
                                         throw 1;
                                       })),
            Reason::kFailed);
  // Texts that end early for others, or are none.
  EXPECT_FALSE(session_.FindDomain(std::string("a.example\0x", 11))->has_value());
  for (const std::string& text : {std::string("bob\0x", 5), std::string("\xed\xb2\x80"),
                                  std::string("b\n"), std::string("\xff")}) {
    SCOPED_TRACE(MDOMAIN::BASE::JsonText(Json::Value(text)));
    EXPECT_FALSE(session_.FindDomain(text)->has_value());
    EXPECT_FALSE(session_.FindAccount(text)->has_value());
    EXPECT_FALSE(session_.Owner(text + "@a.example")->has_value());
    EXPECT_EQ(ReasonOf(session_.CreateDomain({text})), Reason::kInvalid);
    EXPECT_EQ(ReasonOf(session_.SetDomain(1, {{}, text, {}, {}})), Reason::kInvalid);
    EXPECT_EQ(ReasonOf(session_.SetDomain(1, {{}, {}, "<a>" + text, {}})), Reason::kInvalid);
    EXPECT_EQ(ReasonOf(session_.AddNames(1, {text})), Reason::kInvalid);
    EXPECT_EQ(ReasonOf(session_.SetUser(1, kBob, {{}, {}, {text}, {}})), Reason::kInvalid);
    EXPECT_EQ(ReasonOf(session_.AddMembers(1, {{kBob}, {}}, {text})), Reason::kInvalid);
    EXPECT_EQ(ReasonOf(session_.CreateEntry(1, {text, {"bob"}, {}, {}, ""})), Reason::kInvalid);
    EXPECT_EQ(ReasonOf(session_.CreateEntry(1, {"x", {}, {}, {text + "@y.example"}, ""})),
              Reason::kInvalid);
    EXPECT_EQ(ReasonOf(session_.AddCopies(1, {{Copy::Of::kMailTo, text, "bob"}})),
              Reason::kInvalid);
    EXPECT_EQ(ReasonOf(session_.AddCopies(1, {{Copy::Of::kMailTo, "bob", text}})),
              Reason::kInvalid);
    EXPECT_EQ(ReasonOf(session_.SetDisclaimers(1, "[" + text)), Reason::kInvalid);
    Json::Value arguments;
    arguments["text"] = text;
    const bool is_text = text == "b\n";
    EXPECT_EQ(mdomain::session::CallByName(session_, "find_domain", arguments).isMember("value"),
              is_text);
  }
  EXPECT_EQ(MDOMAIN::BASE::JsonText(Json::Value("\xffü")), "\"\uFFFDü\"\n");
  EXPECT_EQ(Model(), before);
  TakeLog();
}

TEST_F(SessionTest, PatternsAreTriedBeforeTheyAreSaved) {
  ASSERT_TRUE(session_.SetUser(1, kBob, {{}, StringList{"a"}, {}, {}}));
  const auto tried = session_.TryPattern(1, "<1a>", {false, 2});
  ASSERT_TRUE(tried);
  EXPECT_EQ(tried->page.items.size(), 2u);
  EXPECT_EQ(tried->page.items[0].rival_names, StringList{"bob"});
  EXPECT_EQ(tried->colliding, 1u);
  EXPECT_EQ(session_.TryPattern(1, "<1a>", {false, 2}, tried->page.next)->page.items[0].name,
            "carol");
  EXPECT_EQ(session_.TryPattern(1, "<1a>", {true, 100})->page.total, 1u);
  const auto missing = session_.TryPattern(1, "<s>");
  EXPECT_EQ(missing->by_account_name, 3u);
  EXPECT_EQ(missing->page.items[0].why, "no value for <s>");
  const auto drift = session_.PatternDrift(1);
  EXPECT_EQ(drift->page.total, 1u);
  EXPECT_EQ(drift->page.items[0].name, "bob");
  EXPECT_EQ(drift->users, 3u);
  for (const char* pattern : {"plain", "<a> b", "<99999999999a>", "<a>."}) {
    EXPECT_EQ(ReasonOf(session_.TryPattern(1, pattern)), Reason::kInvalid) << pattern;
    EXPECT_EQ(ReasonOf(session_.SetDomain(1, {{}, {}, pattern, {}})), Reason::kInvalid) << pattern;
  }
}

TEST_F(SessionTest, SettingsAreCheckedAsTheToolDoes) {
  const std::pair<std::pair<const char*, const char*>, Reason> refused[] = {
      {{"", "x"}, Reason::kInvalid},
      {{"postmaster", "a\nb"}, Reason::kInvalid},
      {{"account_type", "nis"}, Reason::kInvalid},
      {{"acc_domain_name", "../x"}, Reason::kInvalid},
      {{"postmastr", "bob"}, Reason::kRefused},
      {{"smtp_main_domain", "other.example"}, Reason::kRefused},
      {{"account_type", "ldap"}, Reason::kRefused},
  };
  for (const auto& [entry, reason] : refused) {
    EXPECT_EQ(ReasonOf(session_.SetSetting(entry.first, entry.second)), reason) << entry.first;
  }
  EXPECT_EQ(ReasonOf(session_.GetSetting("postmastr")), Reason::kNotFound);
  EXPECT_EQ(session_.GetSetting("smtp_main_domain")->value, "a.example");
  ASSERT_TRUE(session_.SetSetting("of.others", "1", true));
  EXPECT_TRUE(session_.SetSetting("of.others", "2"));
  EXPECT_GT(session_.Settings(true)->size(), session_.Settings()->size());
  // The same process goes on with another account source, and back.
  const auto other = session_.SetSetting("account_type", "ldap", true);
  ASSERT_TRUE(other) << other.GetError().text;
  EXPECT_EQ(other->missing_key, "acc_domain_name");
  EXPECT_NE(other->consequence, "");
  ASSERT_TRUE(session_.SetSetting("account_type", "local", true));
  EXPECT_FALSE(session_.Together("given up", [](Session& one) {
    return one.SetSetting("account_type", "ldap", true) && false;
  }));
  EXPECT_EQ(session_.Domains()->size(), 2u);
  EXPECT_TRUE(session_.SetUser(1, kCarol, {{}, {}, {"again"}, {}}));
  TakeLog();
}

TEST_F(SessionTest, SeveralAreOneOrNothing) {
  const StringList before = Model();
  const size_t entries = session_.History()->size();
  const auto work = [](Session& session) {
    return session.RemoveUsers(2, {kBob}) && session.CreateDomain({"c.example"}) &&
           session.CreateEntry(1, {"team", {"bob"}, {}, {}, ""}) &&
           session.AddCopies(1, {{Copy::Of::kMailTo, "bob", "carol"}}) &&
           session.SetDisclaimers(1, "[]");
  };
  EXPECT_EQ(ReasonOf(session_.Together("all", [&](Session& s) { return work(s) && false; })),
            Reason::kRefused);
  EXPECT_FALSE(session_.Together("throws", [&](Session& s) -> bool {
    work(s);
    throw std::runtime_error("no");
  }));
  EXPECT_EQ(Model(), before);
  EXPECT_TRUE(session_.Entries(1)->empty());
  EXPECT_TRUE(session_.Copies(1)->empty());
  EXPECT_EQ(session_.History()->size(), entries);
  EXPECT_TRUE(session_.Together("all", work));
  EXPECT_EQ(session_.History()->size(), entries + 1);
  ASSERT_TRUE(session_.Undo(session_.History(1)->front().id));
  EXPECT_EQ(Model(), before);
}

// What cannot be published keeps nobody out of the mirror.
TEST_F(SessionTest, RefreshThatFailsIsNotTakenBack) {
  SetAccounts({{"alice", 1001}, {"bob", 1002}, {"carol", 1003}, {"dave", 1004}});
  test::FailOn("isClusterHealth");
  EXPECT_EQ(ReasonOf(session_.Refresh()), Reason::kFailed);
  test::ClearFaults();
  EXPECT_TRUE(session_.FindAccount("dave")->has_value());
  TakeLog();
}

}  // namespace
