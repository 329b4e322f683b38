// What this machine remembers of a shared key store, in the local one.
#ifndef PLATFORM_KEYSTORE_NODE_STATE_H
#define PLATFORM_KEYSTORE_NODE_STATE_H

#include <string>

#include "platform/include/nodes.h"
#include "platform/keystore/local_store.h"

namespace korvmailserver {

struct NodeState {
  NodeRole role = NodeRole::kUndecided;
  std::string id;       // made with the first write
  std::string manager;  // as last seen
  long long term = 0;
  long long version = 0;
  long long time = 0;
  long long unpublished_since = 0;
  std::string token;     // of the last publication that was tried
  std::string followed;  // as SharedState::followed, of the last publication that was made
};

NodeState NodeStateOf(const LocalStore::Memory& memory);
LocalStore::Memory MemoryOf(const NodeState& state);

// 32 hexadecimal digits that nobody else has.
std::string RandomToken();

}  // namespace korvmailserver

#endif  // PLATFORM_KEYSTORE_NODE_STATE_H
