// What writes: refreshes, changes of one user or domain, groups, the registry of owners.
//
// The floor of a change is found, not written down: the operation runs once, the rows that differ
// in any database afterwards are written again by prepared statements into copies of the files, one
// transaction for each file. What has to be read first is added to it from the indexed copy.
#include <filesystem>

#include "bench/operations.h"
#include "lib-domain/api/domain.h"
#include "lib-domain/api/domain_group.h"
#include "lib-domain/api/domain_user.h"
#include "lib-domain/api/updater.h"
#include "lib-domain/base/paths.h"
#include "lib-domain/db/handler.h"
#include "lib-domain/sync/owner_registry.h"

namespace bench {

namespace fs = std::filesystem;
namespace API = MDOMAIN::API;
namespace RECORD = MDOMAIN::RECORD;

namespace {

struct Step {
  std::string name;  // empty: only leads to the next one
  Work work;
  Work reads = [] {};
  double limit = 3;
  Touches touches = Touches::kOne;
  double read_weight = 1;
  double write_weight = 1;
  Work prepare = [] {};  // not measured
};

const char* const kSelectUser = "SELECT uid FROM user_table WHERE user_name = ? COLLATE NOCASE";
const char* const kSelectUserOfAlias =
    "SELECT uid, is_duplicated FROM domain_user_alias_table WHERE domain_idx = ? AND account_alias "
    "= ? COLLATE NOCASE";
const char* const kSelectAliases =
    "SELECT account_alias, is_duplicated FROM domain_user_alias_table WHERE domain_idx = ? AND uid "
    "= ?";
const char* const kSelectRole =
    "SELECT role FROM domain_user_role_table WHERE domain_idx = ? AND uid = ?";
const char* const kSelectGroupsOfUser =
    "SELECT gid FROM group_to_user_table JOIN domain_group_role_table USING (gid) WHERE uid = ?2 "
    "AND domain_idx = ?1";
const char* const kSelectName = "SELECT domain_idx FROM domain_table WHERE domain_name = ?";
const char* const kSelectFurtherName =
    "SELECT domain_idx FROM domain_to_additional_domain_table WHERE additional_domain = ?";
const char* const kSelectMembers =
    "SELECT uid, user_name FROM group_to_user_table JOIN user_table USING (uid) WHERE gid = ?";
const char* const kSelectHoldersOfAll =
    "SELECT json_each.value, alias.uid FROM json_each(?2) CROSS JOIN domain_user_alias_table AS "
    "alias ON alias.domain_idx = ?1 AND alias.account_alias = json_each.value COLLATE NOCASE";
const char* const kSelectUsersOfDomain =
    "SELECT DISTINCT uid FROM domain_user_alias_table WHERE domain_idx = ?";
const char* const kSelectGroupsOfDomain =
    "SELECT gid FROM domain_group_role_table WHERE domain_idx = ?";

// What publishing reads of the model.
void ReadNames(Bare& bare) {
  bare.Select("SELECT domain_idx, domain_name FROM domain_table");
  bare.Select("SELECT * FROM primary_domain_table");
  bare.Select("SELECT * FROM domain_to_additional_domain_table");
}

// Copies of a folder's databases, and connections to them.
class Copies {
 public:
  Copies(const std::string& from, const std::string& to) : folder_(to) {
    fs::create_directories(to);
    for (const auto& entry : fs::directory_iterator(from)) {
      if (entry.path().extension() == ".db") {
        fs::copy_file(entry.path(), fs::path(to) / entry.path().filename());
      }
    }
  }
  ~Copies() {
    bares_.clear();
    fs::remove_all(folder_);
  }
  Copies(const Copies&) = delete;
  Copies& operator=(const Copies&) = delete;
  Bare& Get(const std::string& file) {
    auto& bare = bares_[file];
    if (!bare) {
      bare = std::make_unique<Bare>(fs::path(folder_) / file);
    }
    return *bare;
  }

 private:
  std::string folder_;
  std::map<std::string, std::unique_ptr<Bare>> bares_;
};

using Differences = std::map<std::string, Difference>;

Differences Compare(const State& before, const State& after) {
  Differences differences;
  for (const auto& [file, tables] : after) {
    const auto then = before.find(file);
    if (then == before.end()) {
      continue;
    }
    Difference difference(then->second, tables);
    if (!difference.IsEmpty()) {
      differences.emplace(file, std::move(difference));
    }
  }
  return differences;
}

void Write(const Differences& differences, Copies& copies, bool backwards) {
  for (const auto& [file, difference] : differences) {
    difference.Write(copies.Get(file), backwards);
  }
}

// Steps that lead back to where they began, each beside its floor. `removes`: they remove users,
// groups or domains.
void RunCycle(const Stage& stage, std::vector<Step> steps, bool removes = true) {
  bool is_wanted = false;
  for (const Step& step : steps) {
    is_wanted = is_wanted || (!step.name.empty() && stage.IsWanted(step.name));
  }
  if (!is_wanted) {
    return;
  }
  const std::string etc = stage.company.Etc();
  std::vector<double> works(steps.size());
  std::vector<double> reads(steps.size());
  std::vector<double> writes(steps.size());
  // The first time tells the rows. Tables that are made then are not among them.
  steps.front().prepare();
  Copies copies(etc, stage.company.Root() + "/floor");
  if (removes) {
    copies.Get(fs::path(stage.company.Database()).filename()).IndexReferences();
  }
  std::vector<Differences> differences;
  State before = ReadState(etc);
  double all = 0;
  for (size_t i = 0; i < steps.size(); ++i) {
    if (i > 0) {
      steps[i].prepare();
    }
    works[i] = ProcessorMs(steps[i].work);
    all += works[i];
    State after = ReadState(etc);
    differences.push_back(Compare(before, after));
    before = std::move(after);
  }
  before.clear();
  // In turn, so that whatever else the machine does meets both.
  const auto measure_works = [&] {
    for (size_t i = 0; i < steps.size() && all < kOnceMs; ++i) {
      steps[i].prepare();
      KeepLeast(works[i], ProcessorMs(steps[i].work));
    }
  };
  Rounds([&] {
    measure_works();
    for (size_t i = 0; i < steps.size(); ++i) {
      KeepLeast(reads[i], ProcessorMs(steps[i].reads));
      KeepLeast(writes[i], ProcessorMs([&] { Write(differences[i], copies, false); }));
    }
    for (size_t i = steps.size(); i-- > 0;) {
      Write(differences[i], copies, true);
    }
  });
  for (size_t i = 0; i < steps.size(); ++i) {
    if (!steps[i].name.empty()) {
      stage.report.AddRatio(steps[i].name, stage.company.Users(), works[i],
                            reads[i] * steps[i].read_weight + writes[i] * steps[i].write_weight,
                            steps[i].limit);
      stage.report.Grows(steps[i].touches);
    }
  }
}

void Refresh() {
  Must(API::Updater().Refresh(), "a refresh");
}

// Whether a file was written to, as its time tells.
class Watched {
 public:
  explicit Watched(const std::string& folder) {
    for (const auto& entry : fs::directory_iterator(folder)) {
      times_[entry.path()] = entry.last_write_time();
    }
  }
  int Written() const {
    int written = 0;
    for (const auto& [path, time] : times_) {
      written += fs::exists(path) && fs::last_write_time(path) == time ? 0 : 1;
    }
    return written;
  }

 private:
  std::map<fs::path, fs::file_time_type> times_;
};

}  // namespace

std::unique_ptr<Bare> MakeIndexedCopy(const Company& company) {
  const std::string path = company.Root() + "/indexed.db";
  fs::copy_file(company.Database(), path, fs::copy_options::overwrite_existing);
  auto bare = std::make_unique<Bare>(path);
  bare->Run(
      "CREATE INDEX floor_user_name ON user_table(user_name);"
      "CREATE INDEX floor_user_name_nocase ON user_table(user_name COLLATE NOCASE);"
      "CREATE INDEX floor_member ON group_to_user_table(uid, gid);"
      "CREATE INDEX floor_group ON domain_group_role_table(gid, domain_idx);"
      "CREATE INDEX floor_alias ON domain_user_alias_table(domain_idx, account_alias COLLATE "
      "NOCASE);"
      "CREATE INDEX floor_alias_user ON domain_user_alias_table(uid, domain_idx, account_alias);"
      "CREATE INDEX floor_flagged ON domain_user_alias_table(domain_idx, uid, account_alias) WHERE "
      "is_duplicated;"
      "ANALYZE");
  return bare;
}

void FirstRefresh(const Stage& stage, bool as_command) {
  const Company& company = stage.company;
  const char* const name = "first refresh";
  if (!stage.IsWanted(name)) {
    Refresh();
    return;
  }
  if (as_command) {
    MDOMAIN::DB::DomainDBHandler::CloseDomainDBHandler();
    const State before = ReadState(company.Etc());
    Copies copies(company.Etc(), company.Root() + "/floor");
    const Usage usage = stage.Run({"refresh"});
    const Differences rows = Compare(before, ReadState(company.Etc()));
    const double floor = ProcessorMs([&] { Write(rows, copies, false); });
    stage.report.AddRatio(std::string(name) + ", as a command", company.Users(), usage.ms, floor,
                          3);
    stage.report.AddValue(std::string(name) + ", as a command: memory", company.Users(),
                          usage.megabytes, "MB", 1500);
    return;
  }
  const std::string kept = company.Root() + "/kept";
  fs::copy(company.Etc(), kept, fs::copy_options::recursive);
  Step step{name, Refresh};
  step.touches = Touches::kAll;
  step.prepare = [&] {
    MDOMAIN::DB::DomainDBHandler::CloseDomainDBHandler();
    fs::remove_all(company.Etc());
    fs::copy(kept, company.Etc(), fs::copy_options::recursive);
    // Somebody has read whose addresses changed, as in the first round.
    fs::remove_all(MDOMAIN::PATHS::ChangedUserDir());
    MDOMAIN::DB::DomainDBHandler::GetDomainDBHandler();
  };
  RunCycle(stage, {step}, false);
}

void AddCollisions(const Company& company) {
  {
    Bare bare(company.Database());
    bare.Run("BEGIN IMMEDIATE");
    const int quarter = company.Users() / 4;
    for (int i = 0; i < company.Users() / 200; ++i) {
      for (const int user : {quarter + i, 3 * quarter + i}) {
        bare.Write("INSERT INTO domain_user_alias_table VALUES(1, ?, ?, ?)",
                   {kFirstUid + static_cast<unsigned int>(user), "shared" + std::to_string(i),
                    user == quarter + i ? 0 : 1});
      }
    }
    bare.Run("COMMIT");
  }
  Refresh();
}

void LaterRefreshes(const Stage& stage) {
  const Company& company = stage.company;
  Bare bare(company.Database());
  const Work read_all = [&] { bare.ReadTables(); };

  const std::string nothing = "refresh that changes nothing";
  if (stage.IsWanted(nothing)) {
    double least = 0;
    double floor = 0;
    int written = 0;
    Rounds([&] {
      company.TouchAccounts();
      const Watched watched(company.Etc());
      KeepLeast(least, ProcessorMs(Refresh));
      written = std::max(written, watched.Written());
      KeepLeast(floor, ProcessorMs(read_all));
    });
    stage.report.AddRatio(nothing, company.Users(), least, floor, 1.5);
    stage.report.Grows(Touches::kAll);
    stage.report.AddValue(nothing + ": written", company.Users(), written, "files", 0);

    least = floor = 0;
    bool is_described = false;
    Bare other(company.Database());  // neither reader has the pages that it writes
    Rounds([&] {
      company.TouchAccounts();
      is_described = !is_described;
      other.Write("UPDATE domain_table SET domain_desc = ?1 WHERE domain_idx = 1",
                  {is_described ? "described" : ""});
      KeepLeast(least, ProcessorMs(Refresh));
      KeepLeast(floor, ProcessorMs(read_all));
    });
    stage.report.AddRatio(nothing + ", and the model was written to", company.Users(), least, floor,
                          1.5);
    stage.report.Grows(Touches::kAll);
  }

  const auto shifted = [&](int first) {
    Step step{"refresh with 1 % coming, 1 % going (*)", Refresh, read_all, 1, Touches::kAll};
    step.read_weight = 2;
    step.write_weight = 3;
    step.prepare = [&company, first] { company.WriteAccounts(first); };
    return step;
  };
  Step back = shifted(0);
  back.name.clear();
  Step there = shifted(company.Users() / 100);
  RunCycle(stage, {there, back});
}

void Changes(const Stage& stage, Bare& indexed) {
  const int idx = stage.company.Domains();  // nobody is in it
  const unsigned int uid = kFirstUid;
  const auto alias_is_free = [&indexed, idx](const char* alias) {
    indexed.Select(kSelectUserOfAlias, {idx, alias});
    indexed.Select(kSelectUser, {alias});
  };
  const auto read_user = [&indexed, idx, uid] {
    indexed.Select(kSelectUser, {"user0"});
    indexed.Select(kSelectAliases, {idx, uid});
    indexed.Select(kSelectRole, {idx, uid});
    indexed.Select(kSelectGroupsOfUser, {idx, uid});
    ReadNames(indexed);
  };
  const Step add{"add one user",
                 [=] {
                   std::vector<RECORD::DomainUserAlias> aliases = {{idx, uid, "alias", false}};
                   Must(API::DomainUser().AddMembers(idx, {"user0"}, {}, aliases), "AddMembers");
                 },
                 [=] {
                   read_user();
                   alias_is_free("alias");
                 }};
  const Step set{"set one user",
                 [=] {
                   std::vector<RECORD::DomainUser> conflicts;
                   std::vector<RECORD::DomainUser> users = {
                       {idx, uid, "user0", {{"alias", false}, {"other", false}}, "domain_admin"}};
                   Must(API::DomainUser().Set(users, conflicts), "Set");
                 },
                 [=] {
                   read_user();
                   alias_is_free("alias");
                   alias_is_free("other");
                 }};
  const Step remove{"remove one user",
                    [=] { Must(API::DomainUser().Delete(idx, {uid}), "Delete"); }, read_user};
  RunCycle(stage, {add, set, remove});

  int made = -1;
  const auto read_names = [&indexed](const char* name) {
    return [&indexed, name] {
      indexed.Select(kSelectName, {name});
      indexed.Select(kSelectFurtherName, {name});
      ReadNames(indexed);
    };
  };
  const auto record = [&made](const char* text) {
    return RECORD::Domain(made, "new.example", text, "<a>", false, false, false);
  };
  RunCycle(stage,
           {{"create a domain",
             [&] {
               RECORD::Domain domain = record("");
               Must(API::Domain().Create(domain, made), "Create");
             },
             read_names("new.example")},
            {"add an additional name",
             [&] { Must(API::Domain().CreateAdditionalDomains(made, {"a.example"}), "add"); },
             read_names("a.example")},
            {"set the additional names",
             [&] {
               Must(API::Domain().SetAdditionalDomains(made, {"a.example"}, {"b.example"}),
                    "SetAdditionalDomains");
             },
             read_names("b.example")},
            {"remove an additional name",
             [&] { Must(API::Domain().DeleteAdditionalDomains(made, {"b.example"}), "gone"); },
             read_names("b.example")},
            {"set a domain", [&] { Must(API::Domain().Set(record("changed")), "Set"); },
             read_names("new.example")},
            {"delete a domain", [&] { Must(API::Domain().Delete({made}), "Delete"); },
             [&indexed, idx, read = read_names("new.example")] {
               read();
               indexed.Select(kSelectUsersOfDomain, {idx});
               indexed.Select(kSelectGroupsOfDomain, {idx});
             }}});
}

void Groups(const Stage& stage, Bare& indexed) {
  const int idx = stage.company.Domains();
  const Work read_members = [&indexed] {
    indexed.Select(kSelectMembers, {kFirstGid});
    ReadNames(indexed);
  };
  std::string names;
  for (int i = 0; i < kBigGroup; ++i) {
    names += (i == 0 ? "[\"" : ",\"") + UserName(i) + "\"";
  }
  names += "]";
  const Work read_holders = [&indexed, read_members, idx, names] {
    read_members();
    indexed.Select(kSelectHoldersOfAll, {idx, names});
  };
  const Work add = [idx] {
    API::DomainUser api;
    std::vector<RECORD::DomainUser> preview;
    std::vector<RECORD::DomainUserAlias> aliases;
    Must(api.Preview(idx, {{"group", "group0"}}, preview) && preview.size() == kBigGroup,
         "Preview");
    for (const RECORD::DomainUser& user : preview) {
      for (const RECORD::DomainUserAlias& alias : user.ExtractDomainUserAliases()) {
        aliases.push_back(alias);
      }
    }
    Must(api.AddMembers(idx, {}, {"group0"}, aliases), "AddMembers");
  };
  const Work remove = [idx] { Must(API::DomainGroup().Delete(idx, {kFirstGid}), "Delete"); };
  RunCycle(stage, {{"group of 1,000: preview and add", add, read_holders},
                   {"group of 1,000: remove", remove, read_members}});

  const std::string name = "group of 1,000: status";
  if (!stage.IsWanted(name)) {
    return;
  }
  double least = 0;
  double floor = 0;
  Rounds([&] {
    KeepLeast(least, ProcessorMs([] {
                std::vector<std::tuple<unsigned int, std::string, std::string>> members;
                Must(API::DomainGroup().GetMemberStatus(1, kFirstGid, members) &&
                         members.size() == kBigGroup,
                     "GetMemberStatus");
              }));
    KeepLeast(floor, ProcessorMs([&] {
                Cells cells;
                Must(indexed.Select("SELECT uid, user_name, EXISTS (SELECT 1 FROM "
                                    "domain_user_alias_table AS a WHERE a.domain_idx = ?1 AND "
                                    "a.uid = m.uid) FROM group_to_user_table AS m JOIN user_table "
                                    "USING (uid) WHERE gid = ?2",
                                    {1, kFirstGid}, cells) == kBigGroup,
                     "the floor of GetMemberStatus");
              }));
  });
  stage.report.AddRatio(name, stage.company.Users(), least, floor, 3);
  stage.report.Grows(Touches::kOne);
}

void OwnerBuild(const Stage& stage, Bare& indexed) {
  const std::string name = "owner build";
  if (!stage.IsWanted(name)) {
    return;
  }
  const std::string path = MDOMAIN::PATHS::EmailOwnerDb();
  const std::string floor_path = stage.company.Root() + "/floor.db";
  const Work build = [&path] {
    MDOMAIN::UTILS::OwnerRegistryContent content;
    Must(MDOMAIN::UTILS::CollectOwners(content) &&
             MDOMAIN::UTILS::ReplaceOwnerRegistry(path, content),
         "the registry of owners");
  };
  const Work bare_build = [&] {
    const Cells domains = indexed.Select(
        "SELECT domain_name, domain_idx FROM domain_table UNION ALL SELECT additional_domain, "
        "domain_idx FROM domain_to_additional_domain_table");
    const Cells aliases = indexed.Select(
        "SELECT account_alias, domain_idx, user_name FROM domain_user_alias_table JOIN user_table "
        "USING (uid) WHERE NOT is_duplicated");
    Bare bare(floor_path);
    bare.Run("BEGIN IMMEDIATE");
    for (const Cell& schema :
         Bare(path).Select("SELECT sql FROM sqlite_master WHERE sql IS NOT NULL")) {
      bare.Run(schema.bytes);
    }
    for (size_t i = 0; i < domains.size(); i += 2) {
      bare.Write("INSERT INTO domain_part VALUES(?,?)", {domains[i], domains[i + 1]});
    }
    for (size_t i = 0; i < aliases.size(); i += 3) {
      bare.Write("INSERT INTO local_part VALUES(?,?,?)",
                 {aliases[i], aliases[i + 1], aliases[i + 2]});
    }
    bare.Run("COMMIT");
  };
  double least = 0;
  double floor = 0;
  Rounds([&] {
    KeepLeast(least, ProcessorMs(build));
    KeepLeast(floor, ProcessorMs(bare_build));
    fs::remove(floor_path);
  });
  stage.report.AddRatio(name, stage.company.Users(), least, floor, 3);
  stage.report.Grows(Touches::kAll);
}

}  // namespace bench
