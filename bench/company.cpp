#include "bench/company.h"

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>

#include "lib-domain/api/domain.h"
#include "lib-domain/api/updater.h"
#include "lib-domain/db/handler.h"
#include "lib-domain/db/schema.h"
#include "platform/include/maillog.h"

namespace bench {

namespace fs = std::filesystem;

namespace {

[[noreturn]] void Stop(const std::string& what) {
  std::fprintf(stderr, "%s\n", what.c_str());
  std::exit(1);
}

std::string UserName(int i) {
  return "user" + std::to_string(i);
}

void WritePasswd(const std::string& path, int users) {
  std::ofstream passwd(path);
  for (int i = 0; i < users; ++i) {
    passwd << UserName(i) << ":x:" << kFirstUid + i << ":999::/home:/bin/false\n";
  }
}

// The first group is big; the members of the others go round through all users.
void WriteGroup(const std::string& path, int users) {
  constexpr int kMembers = 20;
  std::ofstream group(path);
  int next = 0;
  for (int i = 0; i < users / 20; ++i) {
    group << "group" << i << ":x:" << kFirstGid + i << ":";
    const int members = i == 0 ? kBigGroup : kMembers;
    for (int member = 0; member < members; ++member) {
      group << (member == 0 ? "" : ",") << UserName(i == 0 ? member : next++ % users);
    }
    group << "\n";
  }
}

}  // namespace

Company::Company(int users) {
  korvmailserver::SetMailLogSink([](int level, const std::string& line) {
    if (level == 3) {
      std::fprintf(stderr, "%s\n", line.c_str());
    }
    return true;
  });
  std::string name = (fs::temp_directory_path() / "mdomain-bench.XXXXXX").string();
  if (mkdtemp(name.data()) == nullptr) {
    Stop("no temporary folder");
  }
  root_ = name;
  setenv("MDOMAIN_ROOT", root_.c_str(), 1);
  fs::create_directories(root_ + "/etc");
  fs::create_directories(root_ + "/var/packages/Postara-Server/etc");
  WritePasswd(root_ + "/etc/passwd", users);
  WriteGroup(root_ + "/etc/group", users);
  std::ofstream(root_ + "/etc/login.defs")
      << "UID_MIN 1000\nUID_MAX 600000\nGID_MIN 1000\nGID_MAX 600000\n";
}

Company::~Company() {
  MDOMAIN::DB::DomainDBHandler::CloseDomainDBHandler();
  std::error_code ignored;
  fs::remove_all(root_, ignored);
}

std::string Company::DatabasePath() {
  std::string path;
  if (!MDOMAIN::UTILS::GetUserGroupDomainConfigPath(path)) {
    Stop("no database path");
  }
  return path;
}

void Company::CreateDomains() {
  for (int i = 0; i < kDomains; ++i) {
    MDOMAIN::RECORD::Domain domain(-1, "domain" + std::to_string(i) + ".example", "", "<a>",
                                   i < kAddingDomains, false, false);
    int domain_idx = -1;
    if (!MDOMAIN::API::Domain().Create(domain, domain_idx)) {
      Stop("no domain");
    }
  }
}

void Company::Fill() {
  CreateDomains();
  if (!MDOMAIN::API::Updater().Refresh()) {
    Stop("no refresh");
  }
}

Bare::Bare(const std::string& path) {
  if (sqlite3_open(path.c_str(), &db_) != SQLITE_OK) {
    Stop(path + " cannot be opened");
  }
  Run("PRAGMA foreign_keys = on");
}

Bare::~Bare() {
  sqlite3_close(db_);
}

void Bare::Run(const std::string& sql) {
  if (sqlite3_exec(db_, sql.c_str(), nullptr, nullptr, nullptr) != SQLITE_OK) {
    Stop(sql + ": " + sqlite3_errmsg(db_));
  }
}

sqlite3_stmt* Bare::Prepare(const std::string& sql) {
  sqlite3_stmt* statement = nullptr;
  if (sqlite3_prepare_v2(db_, sql.c_str(), -1, &statement, nullptr) != SQLITE_OK) {
    Stop(sql + ": " + sqlite3_errmsg(db_));
  }
  return statement;
}

Bare::Rows Bare::Select(const std::string& sql) {
  Rows rows;
  sqlite3_stmt* statement = Prepare(sql);
  while (sqlite3_step(statement) == SQLITE_ROW) {
    Row row;
    for (int i = 0; i < sqlite3_column_count(statement); ++i) {
      const auto* text = reinterpret_cast<const char*>(sqlite3_column_text(statement, i));
      row.emplace_back(text == nullptr ? "" : text);
    }
    rows.push_back(std::move(row));
  }
  sqlite3_finalize(statement);
  return rows;
}

void Bare::ForEach(const std::string& sql, const Rows& rows) {
  sqlite3_stmt* statement = Prepare(sql);
  for (const Row& row : rows) {
    for (size_t i = 0; i < row.size(); ++i) {
      sqlite3_bind_text(statement, static_cast<int>(i) + 1, row[i].data(),
                        static_cast<int>(row[i].size()), SQLITE_STATIC);
    }
    if (sqlite3_step(statement) != SQLITE_DONE) {
      Stop(sql + ": " + sqlite3_errmsg(db_));
    }
    sqlite3_reset(statement);
  }
  sqlite3_finalize(statement);
}

}  // namespace bench
