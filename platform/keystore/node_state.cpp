#include "platform/keystore/node_state.h"

#include <algorithm>
#include <cstdlib>
#include <iterator>
#include <random>

namespace korvmailserver {

namespace {

struct RoleName {
  NodeRole role;
  const char* name;
};

constexpr RoleName kRoles[] = {{NodeRole::kUndecided, "undecided"},
                               {NodeRole::kManager, "manager"},
                               {NodeRole::kMember, "member"},
                               {NodeRole::kReplaced, "replaced"}};

std::string Text(const LocalStore::Memory& memory, const std::string& name) {
  const auto found = memory.find(name);
  return found == memory.end() ? "" : found->second;
}

long long Number(const LocalStore::Memory& memory, const std::string& name) {
  return atoll(Text(memory, name).c_str());
}

}  // namespace

NodeState NodeStateOf(const LocalStore::Memory& memory) {
  NodeState state;
  const std::string name = Text(memory, "role");
  const auto role = std::find_if(std::begin(kRoles), std::end(kRoles),
                                 [&](const RoleName& one) { return name == one.name; });
  state.role = role == std::end(kRoles) ? NodeRole::kUndecided : role->role;
  state.id = Text(memory, "id");
  state.manager = Text(memory, "manager");
  state.term = Number(memory, "term");
  state.version = Number(memory, "version");
  state.time = Number(memory, "time");
  state.unpublished_since = Number(memory, "unpublished_since");
  state.token = Text(memory, "token");
  state.followed = Text(memory, "followed");
  return state;
}

LocalStore::Memory MemoryOf(const NodeState& state) {
  const auto role = std::find_if(std::begin(kRoles), std::end(kRoles),
                                 [&](const RoleName& one) { return state.role == one.role; });
  return {{"role", role == std::end(kRoles) ? "undecided" : role->name},
          {"id", state.id.empty() ? RandomToken() : state.id},
          {"manager", state.manager},
          {"term", std::to_string(state.term)},
          {"version", std::to_string(state.version)},
          {"time", std::to_string(state.time)},
          {"unpublished_since", std::to_string(state.unpublished_since)},
          {"token", state.token},
          {"followed", state.followed}};
}

std::string RandomToken() {
  constexpr char kDigits[] = "0123456789abcdef";
  std::random_device device;
  std::uniform_int_distribution<size_t> digit(0, 15);
  std::string token(32, '0');
  std::generate(token.begin(), token.end(), [&] { return kDigits[digit(device)]; });
  return token;
}

}  // namespace korvmailserver
