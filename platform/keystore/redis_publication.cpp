// Reading the copy, and making one publication of this machine's content.
#include "platform/keystore/redis_publication.h"

#include <algorithm>
#include <ctime>

#include "platform/keystore/redis_command.h"
#include "platform/keystore/redis_reply.h"
#include "platform/keystore/snapshot.h"

namespace korvmailserver {

namespace {

using Access = RedisSession::Access;

// Names who published before there was a state.
constexpr const char* kFormer = "file:mailserver_domain_db";

// Times that another publication may come in between.
constexpr int kAttempts = 5;

const RedisCommand kDescription = {"path", "size", "digest"};

SharedState StateOf(const std::map<std::string, std::string>& fields) {
  const auto field = [&](const char* name) {
    const auto found = fields.find(name);
    return found == fields.end() ? std::string() : found->second;
  };
  SharedState state;
  state.manager = field("manager");
  state.manager_id = field("manager_id");
  state.term = atoll(field("term").c_str());
  state.version = atoll(field("version").c_str());
  state.time = atoll(field("time").c_str());
  state.token = field("token");
  state.content = field("content");
  state.followed = field("followed");
  state.exists = !state.manager_id.empty();
  return state;
}

SharedState StateOf(const redisReply& state, const redisReply& former_publisher) {
  SharedState found = StateOf(RedisHash(state));
  found.former_publisher = found.exists ? "" : RedisText(&former_publisher);
  return found;
}

// Whether `found` says all that `next` would, but for the number.
bool IsCurrent(const SharedState& found, const SharedState& next) {
  return found.exists && found.manager == next.manager && found.manager_id == next.manager_id &&
         found.term == next.term && found.content == next.content &&
         found.version == next.version - 1;
}

// Each text with its length: no two lists of texts give the same bytes.
void AddTo(Digest& digest, const std::string& text) {
  digest.Add(std::to_string(text.size()) + ":" + text);
}

using Files = std::map<std::string, SharedFile>;

std::string DigestOfContent(const std::map<std::string, std::string>& keys, const Files& files) {
  Digest digest;
  AddTo(digest, std::to_string(keys.size()));
  for (const auto& [key, value] : keys) {
    AddTo(digest, key);
    AddTo(digest, value);
  }
  for (const auto& [key, file] : files) {
    AddTo(digest, key);
    AddTo(digest, file.file.path);
    AddTo(digest, std::to_string(file.file.size));
    AddTo(digest, file.file.digest);
    AddTo(digest, file.pieces);
  }
  return digest.Text();
}

// The published files as the store has them after the publication.
Files FilesAfter(const Publication& publication, const Files& found) {
  Files files;
  for (const auto& [key, path] : publication.keys) {
    const auto own = publication.files.find(key);
    const auto stored = found.find(key);
    if (own != publication.files.end()) {
      const KnownFile& file = own->second;
      files[key] = {{key, path, file.size, file.digest}, file.pieces, 0};
    } else if (stored != found.end()) {
      files[key] = stored->second;
    }
  }
  return files;
}

}  // namespace

bool RedisPublication::ReadState(SharedState& state, std::string& error) {
  return session_.Call(Access::kRead, error, [&] {
    std::vector<RedisReply> replies;
    if (!session_.Read({{"HGETALL", Key("state")}, {"HGET", Key(kFormer), "node"}}, replies)) {
      return false;
    }
    if (!IsOtherKind(*replies[0]) && replies[0]->type != REDIS_REPLY_ARRAY) {
      return session_.Fail("an answer that is no list");
    }
    state = StateOf(*replies[0], *replies[1]);
    return true;
  });
}

// The state, and the names of all keys and files.
bool RedisPublication::ReadNames(bool watch, SharedContent& content) {
  std::vector<std::string> names = {"state", "files", "nodes", kFormer, "tree:"};
  Commands commands = {{"HGETALL", Key(names[0])},
                       {"SMEMBERS", Key(names[1])},
                       {"SCARD", Key(names[2])},
                       {"HGET", Key(names[3]), "node"},
                       {"SMEMBERS", Key(names[4])}};
  for (const std::string& tree : kKeyStoreTrees) {
    names.push_back("tree:" + tree);
    commands.push_back({"SMEMBERS", Key(names.back())});
  }
  if (watch) {
    commands.insert(commands.begin(), {"WATCH", Key("state")});
  }
  std::vector<RedisReply> replies;
  if (!session_.Read(commands, replies)) {
    return false;
  }
  content = {};
  auto reply = replies.begin() + (watch ? 1 : 0);
  for (size_t i = 0; i < names.size(); ++i) {
    const redisReply& answer = **(reply + static_cast<long>(i));
    const bool is_list = i != 2 && i != 3;
    if (IsOtherKind(answer)) {
      content.other_kinds.insert(names[i]);
    } else if (is_list && answer.type != REDIS_REPLY_ARRAY) {
      return session_.Fail("an answer that is no list");
    }
  }
  // How many machines there are is not asked for its answer.
  content.state = StateOf(*reply[0], *reply[3]);
  for (const std::string& key : RedisSet(*reply[1])) {
    content.files[key].file.key = key;
  }
  reply += 4;
  content.trees[""] = RedisSet(**reply++);
  for (const std::string& tree : kKeyStoreTrees) {
    content.trees[tree] = RedisSet(**reply++);
  }
  return true;
}

// The values of the keys and the descriptions of the files that have a name. The list of a
// content's pieces is as long as the content: a known one is not read again.
bool RedisPublication::ReadValues(const KnownFiles& known, SharedContent& content) {
  Commands commands;
  std::vector<std::string> names;
  for (const auto& tree : content.trees) {
    names.insert(names.end(), tree.second.begin(), tree.second.end());
  }
  AppendInParts({"MGET"}, names, Key("key:"), commands);
  const size_t value_commands = commands.size();
  for (const auto& file : content.files) {
    RedisCommand describe = {"HMGET", Key("file:" + file.first)};
    describe.insert(describe.end(), kDescription.begin(), kDescription.end());
    commands.push_back(describe);
    commands.push_back({"HSTRLEN", Key("file:" + file.first), "pieces"});
    commands.push_back({"HLEN", Key("pieces:" + file.first)});
  }
  std::vector<RedisReply> replies;
  if (!session_.Read(commands, replies)) {
    return false;
  }
  for (size_t i = 0; i < names.size(); ++i) {
    const redisReply& reply = *replies[i / kKeysPerCommand];
    if (i % kKeysPerCommand >= reply.elements) {
      return session_.Fail("an answer with too few values");
    }
    const redisReply& value = *reply.element[i % kKeysPerCommand];
    if (value.type == REDIS_REPLY_STRING) {
      content.keys[names[i]].assign(value.str, value.len);
    }
  }
  auto reply = replies.begin() + static_cast<long>(value_commands);
  std::vector<std::string> unknown;
  for (auto& [key, file] : content.files) {
    const redisReply& description = **reply++;
    const long long length = RedisNumber((*reply++).get());
    const redisReply& count = **reply++;
    if (IsRedisList(description, kDescription.size())) {
      file.file.path = RedisText(description.element[0]);
      file.file.size = RedisNumber(description.element[1]);
      file.file.digest = RedisText(description.element[2]);
      const auto own = known.find(key);
      if (own != known.end() && own->second.digest == file.file.digest &&
          static_cast<long long>(own->second.pieces.size()) == length) {
        file.pieces = own->second.pieces;
      } else if (length > 0) {
        unknown.push_back(key);
      }
    }
    file.piece_count = IsOtherKind(count) ? -1 : RedisNumber(&count);
    if (IsOtherKind(description)) {
      content.other_kinds.insert("file:" + key);
    }
  }
  return unknown.empty() || ReadPieceLists(unknown, content);
}

bool RedisPublication::ReadPieceLists(const std::vector<std::string>& keys,
                                      SharedContent& content) {
  Commands commands;
  for (const std::string& key : keys) {
    commands.push_back({"HGET", Key("file:" + key), "pieces"});
  }
  std::vector<RedisReply> replies;
  if (!session_.Read(commands, replies)) {
    return false;
  }
  for (size_t i = 0; i < keys.size(); ++i) {
    content.files[keys[i]].pieces = RedisText(replies[i].get());
  }
  return true;
}

bool RedisPublication::ReadContent(SharedContent& content, std::string& error) {
  return session_.Call(Access::kRead, error, [&] {
    for (int attempt = 0; attempt < kAttempts; ++attempt) {
      std::vector<RedisReply> replies;
      if (!ReadNames(false, content) || !ReadValues({}, content) ||
          !session_.Read({{"HGETALL", Key("state")}}, replies)) {
        return false;
      }
      const SharedState after = StateOf(RedisHash(*replies[0]));
      if (after.version == content.state.version && after.token == content.state.token) {
        return !after.exists || after.content == DigestOfContent(content.keys, content.files) ||
               session_.Fail("what is stored is not what was published; the next publication of " +
                             after.manager + " mends it");
      }
    }
    return session_.Fail("publications follow each other faster than they can be read");
  });
}

PublicationResult RedisPublication::Publish(Publication& publication, SharedState& state,
                                            std::string& error) {
  PublicationResult result = PublicationResult::kFailed;
  const bool is_done = session_.Call(Access::kWrite, error, [&] {
    for (int attempt = 0; attempt < kAttempts; ++attempt) {
      bool overtaken = false;
      publication.mended.clear();
      result = PublishOnce(publication, state, overtaken);
      if (!overtaken) {
        return result == PublicationResult::kDone;
      }
    }
    result = PublicationResult::kFailed;
    return session_.Fail("other publications come in between");
  });
  return !is_done && result == PublicationResult::kDone ? PublicationResult::kFailed : result;
}

PublicationResult RedisPublication::PublishOnce(Publication& publication, SharedState& state,
                                                bool& overtaken) {
  SharedContent found;
  SharedState next;
  std::string refusal;
  if (!ReadNames(true, found)) {
    return PublicationResult::kFailed;
  }
  state = found.state;
  if (!publication.follow(found.state, next, refusal)) {
    std::vector<RedisReply> ignored;
    session_.Run({{"UNWATCH"}}, ignored);
    session_.Fail(refusal);
    return PublicationResult::kRefused;
  }
  Commands transaction;
  if (!publication.gather(publication, refusal)) {
    session_.Fail(refusal);
    return PublicationResult::kFailed;
  }
  const bool reads_all = publication.is_verified;
  if (!ReadValues(reads_all ? KnownFiles() : publication.known, found)) {
    return PublicationResult::kFailed;
  }
  DropOtherKinds(publication, found, transaction);
  if (!Upload(publication, found, transaction)) {
    return PublicationResult::kFailed;
  }
  AppendKeys(publication, found, transaction);
  if (publication.is_verified && !RemoveStrayKeys(publication, found, transaction)) {
    return PublicationResult::kFailed;
  }
  next.content = DigestOfContent(publication.keys, FilesAfter(publication, found.files));
  if (transaction.empty() && IsCurrent(found.state, next)) {
    std::vector<RedisReply> ignored;
    return session_.Run({{"UNWATCH"}}, ignored) && session_.Confirm() ? PublicationResult::kDone
                                                                      : PublicationResult::kFailed;
  }
  if (!WriteAll(publication, next, transaction, overtaken)) {
    return PublicationResult::kFailed;
  }
  state = overtaken ? state : next;
  return PublicationResult::kDone;
}

std::string RedisPublication::OtherKind(const std::string& name) {
  return "the store had a value of another kind as " + name;
}

void RedisPublication::DropOtherKinds(Publication& publication, const SharedContent& found,
                                      Commands& transaction) const {
  for (const std::string& name : found.other_kinds) {
    transaction.push_back({"UNLINK", Key(name)});
    publication.mended.push_back(OtherKind(Key(name)));
  }
}

// The commands for keys that are missing, different or not ours.
void RedisPublication::AppendKeys(Publication& publication, const SharedContent& found,
                                  Commands& transaction) {
  std::map<std::string, std::vector<std::string>> added;
  size_t count = 0;
  for (const auto& [key, value] : publication.keys) {
    const auto stored = found.keys.find(key);
    const std::string tree = KeyStoreTreeOf(key);
    const bool is_named = found.trees.at(tree).count(key) != 0;
    if (is_named && stored != found.keys.end() && stored->second == value) {
      continue;
    }
    if (count++ % kKeysPerCommand == 0) {
      transaction.push_back({"MSET"});
    }
    transaction.back().push_back(Key("key:" + key));
    transaction.back().push_back(value);
    added[tree].push_back(key);
    publication.mended.push_back("the key " + key + " was " +
                                 (stored == found.keys.end() ? "missing" : "another") +
                                 " in the store");
  }
  for (const auto& [tree, names] : added) {
    AppendInParts({"SADD", Key("tree:" + tree)}, names, "", transaction);
  }
  for (const auto& [tree, names] : found.trees) {
    std::vector<std::string> removed;
    std::copy_if(names.begin(), names.end(), std::back_inserter(removed),
                 [&](const std::string& key) { return publication.keys.count(key) == 0; });
    AppendInParts({"UNLINK"}, removed, Key("key:"), transaction);
    AppendInParts({"SREM", Key("tree:" + tree)}, removed, "", transaction);
    for (const std::string& key : removed) {
      publication.mended.push_back("the store had the key " + key + ", which is not ours");
    }
  }
}

bool RedisPublication::WriteAll(Publication& publication, const SharedState& next,
                                Commands& transaction, bool& overtaken) {
  std::string reason;
  if (!publication.before_writing(next, reason)) {
    return session_.Fail(reason);
  }
  transaction.push_back({"HSET", Key("state"), "manager", next.manager, "manager_id",
                         next.manager_id, "term", std::to_string(next.term), "version",
                         std::to_string(next.version), "time", std::to_string(next.time), "token",
                         next.token, "content", next.content, "followed", next.followed});
  if (!session_.Write(transaction, &overtaken)) {
    return false;
  }
  std::vector<RedisReply> ignored;
  if (!overtaken) {
    session_.Run({{"PUBLISH", Key("published"), std::to_string(next.version)}}, ignored);
  }
  return true;
}

// Keys of ours that no set names: what is left when a set was lost.
bool RedisPublication::RemoveStrayKeys(Publication& publication, const SharedContent& found,
                                       Commands& transaction) {
  std::string cursor = "0";
  do {
    std::vector<RedisReply> replies;
    session_.Prolong();
    if (!session_.Run({{"SCAN", cursor, "MATCH", Key("*"), "COUNT", "1000"}}, replies)) {
      return false;
    }
    if (!IsRedisList(*replies[0], 2)) {
      return session_.Fail("an answer that is no part of the keys");
    }
    cursor = RedisText(replies[0]->element[0]);
    for (const std::string& name : RedisSet(*replies[0]->element[1])) {
      const auto named = [&](const char* kind) {
        const std::string start = Key(kind);
        return name.rfind(start, 0) == 0 ? name.substr(start.size()) : "";
      };
      const std::string key = named("key:");
      std::string file = named("file:");
      file = file.empty() ? named("pieces:") : file;
      const bool is_stray =
          (!key.empty() && publication.keys.count(key) == 0 &&
           found.trees.at(KeyStoreTreeOf(key)).count(key) == 0) ||
          (!file.empty() && publication.keys.count(file) == 0 && found.files.count(file) == 0) ||
          !named("upload:").empty();
      if (is_stray) {
        publication.mended.push_back("the store had " + name + ", which is not published");
        transaction.push_back({"UNLINK", name});
      }
    }
  } while (cursor != "0");
  return true;
}

}  // namespace korvmailserver
