// The operations that the table shows, by what they need. Each adds its lines to the report.
#ifndef BENCH_OPERATIONS_H
#define BENCH_OPERATIONS_H

#include <memory>
#include <regex>
#include <string>

#include "bench/bare.h"
#include "bench/company.h"
#include "bench/measure.h"
#include "bench/report.h"

namespace bench {

struct Stage {
  const Company& company;
  const Launcher& launcher;
  Report& report;
  const std::regex& only;
  std::string mdomain;  // the program

  bool IsWanted(const std::string& operation) const { return std::regex_search(operation, only); }
  // One run of mdomain in the company's root.
  Usage Run(const std::vector<std::string>& words) const {
    std::vector<std::string> command = {mdomain};
    command.insert(command.end(), words.begin(), words.end());
    return launcher.Run(command, company.Root());
  }
};

// A copy of the domain database with the indexes that the best statements want.
std::unique_ptr<Bare> MakeIndexedCopy(const Company& company);

// The first refresh, which fills the company; with `as_command` as a command, whose memory counts.
void FirstRefresh(const Stage& stage, bool as_command);
// One alias in a hundred of domain 1 collides from now on.
void AddCollisions(const Company& company);

void LaterRefreshes(const Stage& stage);
void Changes(const Stage& stage, Bare& indexed);
void Groups(const Stage& stage, Bare& indexed);
void OwnerBuild(const Stage& stage, Bare& indexed);
void LookUps(const Stage& stage, Bare& indexed);
void Listings(const Stage& stage, Bare& indexed);
// Of all sizes in turn, so that whatever else the machine does meets each of them.
void Commands(const std::vector<Stage>& stages);
// Refreshes as commands, and listings, with their time and memory at a million users.
void CommandsOfMany(const Stage& stage);
// Leaves the root with a key store that ends with this call.
void Publishing(const Stage& stage);

}  // namespace bench

#endif  // BENCH_OPERATIONS_H
