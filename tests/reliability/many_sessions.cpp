// many_sessions ROUNDS : threads with sessions of their own and shared ones make every kind of call
// at once, while the process forks. Ends with 1 when a call did not end as it must, or the model is
// not as it was before.
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <functional>
#include <string>
#include <thread>
#include <vector>

#include "lib-domain/session/mdomain.h"
#include "lib-domain/session/mdomain.hpp"

namespace {

using mdomain::Copy;
using mdomain::Reason;
using mdomain::Session;

constexpr unsigned int kAnna = 1001;
constexpr unsigned int kBen = 1002;
constexpr unsigned int kSales = 2001;

constexpr const char* kDisclaimer =
    R"({"id": 1, "name": "d", "enabled": true, "op": "or", "match_rule_list":
        [{"target": "sender", "pattern_type": "email", "pattern": "*@two.example"}]})";

std::atomic<int> failures{0};

void Must(bool is_so, const char* what) {
  if (!is_so) {
    ++failures;
    std::fprintf(stderr, "FAILED: %s\n", what);
  }
}

void Read(Session& session, int /*round*/) {
  Must(session.Domains() && session.GetDomain(2) && session.FindDomain("two.example"), "domains");
  for (const std::size_t size : {1, 100}) {
    auto users = session.Users(2, {"", mdomain::UserColumn::kAlias, true, size});
    std::size_t count = 0;
    for (const mdomain::User& user : users) {
      count += user.name.empty() ? 0 : 1;
    }
    Must(users.IsWhole() && count >= 2, "users");
  }
  Must(*session.FindUser(2, kAnna) && session.Preview(2, {{kBen}, {kSales}}), "one user");
  Must(session.Addresses(kAnna) && *session.Owner("anna@two.example"), "addresses");
  for (const mdomain::Group& group : session.Groups(2)) {
    Must(bool(session.GroupMembers(2, group.gid)), "members");
  }
  Must(session.ListUsers(2, {"", mdomain::UserColumn::kName, false, 100, false, true}) &&
           session.RefreshProgress() && session.Published() &&
           session.TryDisclaimer(2, kDisclaimer),
       "what pages show");
  Must(session.Entries(2) && session.Copies(2) && session.GetDisclaimers(2), "policies");
  Must(*session.FindAccount("ben") && *session.FindAccountGroup("sales"), "accounts");
}

void Change(Session& session, int round) {
  static std::atomic<int> number{0};
  // A forked process counts on by itself.
  const std::string own = "x" + std::to_string(getpid()) + "x" + std::to_string(++number);
  Must(bool(session.SetUser(2, kBen, {{}, {}, {own}, {}})), "an alias");
  Must((*session.Owner(own + "@two.example")).value_or("") == "ben", "its owner");
  Must(bool(session.CreateEntry(2, {own + "e", {"anna"}, {}, {}, ""})), "an entry");
  Must(bool(session.AddCopies(2, {{Copy::Of::kMailTo, own, "anna"}})), "a copy");
  Must(bool(session.SetDisclaimers(2, "[]")), "disclaimers");
  Must(bool(session.SetDomain(2, {{}, own, {}, {}})), "a description");
  Must(bool(session.RemoveCopies(2, {{Copy::Of::kMailTo, own, "anna"}})), "no copy");
  Must(bool(session.DeleteEntry(2, own + "e")), "no entry");
  Must(bool(session.SetUser(2, kBen, {{}, {}, {}, {own}})), "no alias");
  const bool is_kept = round % 2 == 0;
  const auto both = session.Together("both", [&](Session& one) {
    return one.SetUser(2, kBen, {{}, {}, {own}, {}}) && one.ListUsers(2) &&
           one.SetUser(2, kBen, {{}, {}, {}, {own}}) && is_kept;
  });
  Must(bool(both) == is_kept, "several at once");
}

void Refresh(Session& session, int round) {
  Must(session.Refresh() && session.Publish(), "a refresh");
  const auto created = session.CreateDomain({"r" + std::to_string(round) + ".example"});
  Must(created && session.AddNames(created->idx, {"n.example"}) && session.History(10), "a domain");
  Must(created && session.DeleteDomains({created->idx}), "no domain");
  const auto undone = session.Undo(0);
  Must(undone.GetError().reason == Reason::kRefused, "taking back what is not there");
}

void Administer(Session& session, int round) {
  Session hers = session.As(kAnna);
  Must(hers.Domains()->size() == 1 && hers.GetDomain(1).GetError().reason == Reason::kNotFound &&
           hers.Refresh().GetError().reason == Reason::kRefused,
       "an administrator's rights");
  Change(hers, round);
}

void CallInC(Session& /*session*/, int /*round*/) {
  mdomain_session* session = mdomain_open(nullptr);
  for (const char* name : {"domains", "history", "nothing"}) {
    char* answer = mdomain_call(session, name, nullptr);
    Must(answer != nullptr && std::string(answer).find('{') == 0, name);
    mdomain_free(answer);
  }
  mdomain_close(session);
}

void Follow(Session& session, int /*round*/) {
  for (int i = 0; i < 1000; ++i) {
    Must(bool(session.RefreshProgress()), "how far a refresh is");
  }
}

void Fork(Session& session, int round) {
  const pid_t child = fork();
  if (child == 0) {
    failures = 0;
    Change(session, round);
    _exit(failures == 0 ? 0 : 1);
  }
  int status = -1;
  waitpid(child, &status, 0);
  Must(status == 0, "a forked process");
}

}  // namespace

int main(int count, char** words) {
  const int rounds = count > 1 ? std::atoi(words[1]) : 1;
  Session session({600, "many"});
  bool is_set_up = session.CreateDomain({"one.example"}) &&
                   session.CreateDomain({"two.example", "", "<a>", false}) && session.Refresh() &&
                   session.AddMembers(2, {{kAnna, kBen}, {kSales}}) &&
                   session.SetUser(2, kAnna, {mdomain::Role::kDomainAdmin, {}, {}, {}});
  Must(is_set_up, "the beginning");
  const auto before = session.ListUsers(2);
  std::vector<std::thread> threads;
  for (const auto& work :
       {Read, Read, Change, Change, Refresh, Administer, CallInC, Follow, Fork}) {
    threads.emplace_back([&session, work, rounds, own = threads.size() % 2 == 0] {
      Session mine = own ? Session({600, "own"}) : session;
      for (int round = 0; round < rounds; ++round) {
        work(mine, round);
      }
    });
  }
  for (std::thread& thread : threads) {
    thread.join();
  }
  const auto after = session.ListUsers(2);
  Must(before && after && before->items.size() == after->items.size(), "the same users");
  for (std::size_t i = 0; failures == 0 && i < after->items.size(); ++i) {
    Must(before->items[i].version == after->items[i].version, "the same aliases");
  }
  return failures == 0 ? 0 : 1;
}
