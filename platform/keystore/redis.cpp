// The key store on a Redis server.
//
// Below the prefix: "key:NAME" a value, "tree:TREE" the set of a tree's key names, so that listing
// needs no walk over the server's keys; "confirm" and "health" are written to be confirmed by
// replicas, and what redis_files.cpp keeps. A write is one transaction: a server that dies in the
// middle has all of it or nothing.
#include <algorithm>

#include "platform/keystore/backend.h"
#include "platform/keystore/redis_files.h"
#include "platform/keystore/redis_session.h"

namespace korvmailserver {

namespace {

using Access = RedisSession::Access;

// Keys in one command: what the server works on without serving others in between.
constexpr size_t kKeysPerCommand = 1000;

class RedisBackend : public KeyStoreBackend {
 public:
  explicit RedisBackend(const KeyStoreSettings& settings)
      : session_(settings), prefix_(settings.prefix), files_(session_, prefix_) {}

  std::string Name() const override { return session_.Name(); }
  FileShare* Files() override { return &files_; }

  bool Get(const std::vector<std::string>& keys, std::map<std::string, std::string>& values,
           std::string& error) override {
    return session_.Call(Access::kRead, error, [&] { return Read(keys, values); });
  }

  bool Set(const Entries& entries, std::string& error) override {
    std::vector<std::string> keys;
    keys.reserve(entries.size());
    for (const auto& entry : entries) {
      keys.push_back(entry.first);
    }
    return session_.Call(Access::kWrite, error, [&] {
      std::map<std::string, std::string> stored;
      if (!Read(keys, stored)) {
        return false;
      }
      const Entries changed = ChangedEntries(entries, stored);
      return changed.empty() ? session_.Confirm() : session_.Write(SetCommands(changed));
    });
  }

  bool Remove(const std::vector<std::string>& keys, std::string& error) override {
    std::vector<RedisCommand> commands;
    for (const std::string& key : keys) {
      for (RedisCommand& command : files_.RemoveCommands(key)) {
        commands.push_back(std::move(command));
      }
      commands.push_back({"UNLINK", ValueKey(key)});
      commands.push_back({"SREM", TreeKey(KeyStoreTreeOf(key)), key});
    }
    return keys.empty() ||
           session_.Call(Access::kWrite, error, [&] { return session_.Write(commands); });
  }

  bool List(const std::string& tree, std::vector<std::string>& keys, std::string& error) override {
    return session_.Call(Access::kRead, error, [&] { return ReadTree(tree, keys); });
  }

  bool All(std::map<std::string, std::string>& values, std::string& error) override {
    return session_.Call(Access::kRead, error, [&] {
      std::vector<std::string> keys;
      if (!ReadTree("", keys)) {
        return false;
      }
      for (const std::string& tree : kKeyStoreTrees) {
        std::vector<std::string> more;
        if (!ReadTree(tree, more)) {
          return false;
        }
        keys.insert(keys.end(), more.begin(), more.end());
      }
      values.clear();
      return Read(keys, values);
    });
  }

  bool SetFile(const std::string& key, const std::string& path, std::string& error) override {
    return files_.Publish(key, path, SetCommands({{key, path}}), error);
  }

  // The server in charge must take a write, and as many replicas as the settings ask for must get
  // it: a replica that has it has everything before it.
  bool IsHealthy(std::string& error) override {
    return session_.Call(Access::kCheck, error, [&] {
      return session_.Write({{"SET", prefix_ + "health", "1", "EX", "60"}});
    });
  }

 private:
  std::string ValueKey(const std::string& key) const { return prefix_ + "key:" + key; }
  std::string TreeKey(const std::string& tree) const { return prefix_ + "tree:" + tree; }

  bool Read(const std::vector<std::string>& keys, std::map<std::string, std::string>& values) {
    std::vector<RedisCommand> commands;
    for (size_t i = 0; i < keys.size(); ++i) {
      if (i % kKeysPerCommand == 0) {
        commands.push_back({"MGET"});
      }
      commands.back().push_back(ValueKey(keys[i]));
    }
    std::vector<RedisReply> replies;
    if (!session_.Run(commands, replies)) {
      return false;
    }
    for (size_t i = 0; i < keys.size(); ++i) {
      const redisReply& reply = *replies[i / kKeysPerCommand];
      const size_t position = i % kKeysPerCommand;
      if (position >= reply.elements) {
        return session_.Fail("an answer with too few values");
      }
      const redisReply& value = *reply.element[position];
      if (value.type == REDIS_REPLY_STRING) {
        values[keys[i]].assign(value.str, value.len);
      }
    }
    return true;
  }

  std::vector<RedisCommand> SetCommands(const Entries& entries) const {
    std::map<std::string, RedisCommand> trees;
    std::vector<RedisCommand> commands;
    for (size_t i = 0; i < entries.size(); ++i) {
      const auto& [key, value] = entries[i];
      if (i % kKeysPerCommand == 0) {
        commands.push_back({"MSET"});
      }
      commands.back().push_back(ValueKey(key));
      commands.back().push_back(value);
      RedisCommand& tree = trees[KeyStoreTreeOf(key)];
      if (tree.empty()) {
        tree = {"SADD", TreeKey(KeyStoreTreeOf(key))};
      }
      tree.push_back(key);
    }
    for (const auto& tree : trees) {
      commands.push_back(tree.second);
    }
    return commands;
  }

  bool ReadTree(const std::string& tree, std::vector<std::string>& keys) {
    return ReadRedisSet(session_, TreeKey(tree), keys);
  }

  RedisSession session_;
  const std::string prefix_;
  RedisFiles files_;
};

}  // namespace

std::unique_ptr<KeyStoreBackend> MakeRedisBackend(const KeyStoreSettings& settings) {
  return std::make_unique<RedisBackend>(settings);
}

}  // namespace korvmailserver
