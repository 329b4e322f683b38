// mdomain node check: mends what this machine can mend, and tells what may go wrong next.
#include <algorithm>
#include <iterator>

#include "tools/mdomain/node.h"
#include "tools/mdomain/node_standing.h"
#include "tools/mdomain/text.h"

namespace mdomain {
namespace {

using korvmailserver::NodeRole;
using korvmailserver::PulledFile;
using korvmailserver::PullResult;

std::vector<std::string> MendStore() {
  std::vector<std::string> mended;
  if (!korvmailserver::PublishVerified(mended)) {
    throw Failure(kFailed, "the key store is not what this machine has, and could not be mended");
  }
  return mended;
}

std::vector<std::string> MendHere() {
  const Pulled pulled = PullAndFollow(false);
  RequireNotOlder(pulled.report);
  RequirePulled(pulled);
  std::vector<std::string> mended;
  for (const PulledFile& file : pulled.report.files) {
    if (file.result != PullResult::kUnchanged) {
      mended.push_back("file " + file.key +
                       (file.result == PullResult::kRemoved ? " was removed" : " was pulled"));
    }
  }
  for (const std::string& key : pulled.report.keys) {
    mended.push_back("key " + key + " was pulled");
  }
  return mended;
}

void Print(Call& call, const std::vector<std::string>& mended,
           const std::vector<std::string>& risks) {
  if (call.out().json()) {
    Json::Value record;
    record["mended"] = JsonTexts(mended);
    record["risks"] = JsonTexts(risks);
    call.out().Record(record, {});
    return;
  }
  call.out().Speak();  // --quiet leaves out only that all is well
  std::vector<std::string> lines;
  const auto with = [](const char* head) {
    return [head](const std::string& text) { return head + text; };
  };
  std::transform(mended.begin(), mended.end(), std::back_inserter(lines), with("mended: "));
  std::transform(risks.begin(), risks.end(), std::back_inserter(lines), with("risk: "));
  if (lines.empty() && !call.IsQuiet()) {
    lines.emplace_back("everything is in order");
  }
  for (const std::string& line : lines) {
    call.out().Line(line);
  }
}

}  // namespace

void CheckMachine(Call& call) {
  const NodeRole role = SharedStanding().role;
  if (role != NodeRole::kMember) {
    RequireManager();
  }
  const auto mended = role == NodeRole::kManager ? MendStore() : MendHere();
  std::vector<std::string> risks;
  const bool is_known = korvmailserver::ListStoreRisks(risks);
  Print(call, mended, risks);
  call.out().Flush();  // before the message, and whole although the command fails
  if (!is_known) {
    throw Failure(kFailed, "what may lose the key store's content could not be told");
  }
  if (!risks.empty()) {
    throw Failure(kFailed, Counted(risks.size(), "risk") +
                               " to what the key store has: " + FirstOf(risks, "; "));
  }
}

}  // namespace mdomain
