// Below the prefix: "file:KEY" is a hash of a file's description and of its content in pieces "0",
// "1", ...; "files" the set of their keys; "upload:..." a content on its way, which expires when
// its publisher dies; "node:NODE" a hash of what a machine has, "nodes" the set of machines.
//
// A new content is written under a name of its own and renamed over the old one, so what is under
// "file:KEY" is always one whole file. A reader that takes it piece by piece asks for the digest
// with each, and begins again when it changed.
#include "platform/keystore/redis_files.h"

#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <map>
#include <set>

#include "platform/include/root_path.h"
#include "platform/keystore/snapshot.h"

namespace korvmailserver {

namespace {

using Access = RedisSession::Access;

constexpr long long kPiece = 1 << 20;
constexpr char kUploadSeconds[] = "3600";

// Times that another publication may cut a fetch short.
constexpr int kFetchAttempts = 5;

std::string Text(const redisReply* reply) {
  return reply->type == REDIS_REPLY_STRING ? std::string(reply->str, reply->len) : std::string();
}

long long Number(const redisReply* reply) {
  return atoll(Text(reply).c_str());
}

const RedisCommand kDescription = {"path", "size", "digest", "node", "published", "mode"};

RedisCommand Describe(const std::string& name, const PublishedFile& file) {
  return {"HSET",      name,
          "path",      file.path,
          "size",      std::to_string(file.size),
          "digest",    file.digest,
          "node",      file.node,
          "published", std::to_string(file.published),
          "mode",      std::to_string(file.mode)};
}

RedisCommand DescriptionOf(const std::string& name) {
  RedisCommand command = {"HMGET", name};
  command.insert(command.end(), kDescription.begin(), kDescription.end());
  return command;
}

// False when the key has no published file.
bool ReadDescription(const redisReply& reply, PublishedFile& file) {
  if (reply.type != REDIS_REPLY_ARRAY || reply.elements != kDescription.size() ||
      reply.element[2]->type != REDIS_REPLY_STRING) {
    return false;
  }
  file.path = Text(reply.element[0]);
  file.size = Number(reply.element[1]);
  file.digest = Text(reply.element[2]);
  file.node = Text(reply.element[3]);
  file.published = Number(reply.element[4]);
  file.mode = static_cast<unsigned>(Number(reply.element[5])) & 0777;
  return true;
}

std::string WithoutRoot(const std::string& path) {
  const std::string root = RootPrefix();
  return path.rfind(root + "/", 0) == 0 ? path.substr(root.size()) : path;
}

// Reads a file as this machine would publish it now.
bool ReadFileToPublish(const std::string& key, const std::string& path, PublishedFile& file,
                       std::string& bytes, std::string& error) {
  struct stat status = {};
  if (!ReadSnapshot(path, bytes, error)) {
    return false;
  }
  if (stat(path.c_str(), &status) != 0) {
    error = "cannot read " + path + ": " + strerror(errno);
    return false;
  }
  file.key = key;
  file.path = WithoutRoot(path);
  file.size = static_cast<long long>(bytes.size());
  file.digest = DigestOf(bytes);
  file.node = NodeName();
  file.published = time(nullptr);
  file.mode = status.st_mode & 0777;
  return true;
}

bool HasSameContent(const PublishedFile& a, const PublishedFile& b) {
  return a.digest == b.digest && a.size == b.size;
}

bool IsSamePublication(const PublishedFile& a, const PublishedFile& b) {
  return HasSameContent(a, b) && a.path == b.path && a.node == b.node && a.mode == b.mode;
}

}  // namespace

bool ReadRedisSet(RedisSession& session, const std::string& name,
                  std::vector<std::string>& members) {
  std::set<std::string> found;
  std::string cursor = "0";
  do {
    std::vector<RedisReply> replies;
    if (!session.Run({{"SSCAN", name, cursor, "COUNT", "1000"}}, replies)) {
      return false;
    }
    const redisReply& reply = *replies[0];
    if (reply.type != REDIS_REPLY_ARRAY || reply.elements != 2) {
      return session.Fail("an answer that is no part of a set");
    }
    cursor = Text(reply.element[0]);
    for (size_t i = 0; i < reply.element[1]->elements; ++i) {
      found.insert(Text(reply.element[1]->element[i]));
    }
  } while (cursor != "0");
  members.assign(found.begin(), found.end());
  return true;
}

bool RedisFiles::Publish(const std::string& key, const std::string& path,
                         const std::vector<RedisCommand>& commands, std::string& error) {
  std::string bytes;
  PublishedFile file;
  return ReadFileToPublish(key, path, file, bytes, error) &&
         session_.Call(Access::kWrite, error,
                       [&] { return PublishOnce(file, bytes, path, commands); });
}

bool RedisFiles::PublishOnce(const PublishedFile& file, const std::string& bytes,
                             const std::string& value, const std::vector<RedisCommand>& commands) {
  const std::string name = FileKey(file.key);
  PublishedFile old;
  std::vector<RedisReply> replies;
  if (!session_.Run({DescriptionOf(name), {"GET", prefix_ + "key:" + file.key}}, replies)) {
    return false;
  }
  const bool there = ReadDescription(*replies[0], old) && HasSameContent(old, file);
  if (there && IsSamePublication(old, file) && Text(replies[1].get()) == value) {
    return session_.Confirm();
  }
  std::vector<RedisCommand> transaction = commands;
  transaction.push_back({"SADD", prefix_ + "files", file.key});
  if (there) {
    transaction.push_back(Describe(name, file));
    return session_.Write(transaction);
  }
  const std::string upload =
      prefix_ + "upload:" + file.node + ":" + std::to_string(getpid()) + ":" + file.key;
  transaction.push_back(Describe(upload, file));
  transaction.push_back({"PERSIST", upload});
  transaction.push_back({"RENAME", upload, name});
  return Upload(upload, bytes) && session_.Write(transaction);
}

// Piece by piece, each within the time-outs of a call of its own.
bool RedisFiles::Upload(const std::string& name, const std::string& bytes) {
  std::vector<RedisReply> replies;
  if (!session_.Run({{"UNLINK", name}}, replies)) {
    return false;
  }
  for (size_t start = 0; start < bytes.size(); start += kPiece) {
    session_.Prolong();
    if (!session_.Run({{"HSET", name, std::to_string(start / kPiece), bytes.substr(start, kPiece)},
                       {"EXPIRE", name, kUploadSeconds}},
                      replies)) {
      return false;
    }
  }
  session_.Prolong();
  return true;
}

std::vector<RedisCommand> RedisFiles::RemoveCommands(const std::string& key) const {
  return {{"UNLINK", FileKey(key)}, {"SREM", prefix_ + "files", key}};
}

bool RedisFiles::ListFiles(std::vector<PublishedFile>& files, std::string& error) {
  return session_.Call(Access::kRead, error, [&] {
    std::vector<std::string> keys;
    if (!ReadRedisSet(session_, prefix_ + "files", keys)) {
      return false;
    }
    files.clear();
    return ReadDescriptions(keys, files);
  });
}

bool RedisFiles::DescribeFile(const std::string& key, std::vector<PublishedFile>& files,
                              std::string& error) {
  return session_.Call(Access::kRead, error, [&] {
    files.clear();
    return ReadDescriptions({key}, files);
  });
}

// Adds those that are published to `files`, in the order of the keys.
bool RedisFiles::ReadDescriptions(const std::vector<std::string>& keys,
                                  std::vector<PublishedFile>& files) {
  std::vector<RedisCommand> commands;
  commands.reserve(keys.size());
  for (const std::string& key : keys) {
    commands.push_back(DescriptionOf(FileKey(key)));
  }
  std::vector<RedisReply> replies;
  if (!session_.Run(commands, replies)) {
    return false;
  }
  for (size_t i = 0; i < keys.size(); ++i) {
    PublishedFile file;
    file.key = keys[i];
    if (ReadDescription(*replies[i], file)) {
      files.push_back(file);
    }
  }
  return true;
}

bool RedisFiles::FindChanged(const std::vector<std::pair<std::string, std::string>>& files,
                             std::vector<std::pair<std::string, std::string>>& changed,
                             std::string& error) {
  std::vector<std::string> keys;
  std::vector<PublishedFile> here(files.size());
  for (size_t i = 0; i < files.size(); ++i) {
    std::string bytes;
    if (!ReadFileToPublish(files[i].first, files[i].second, here[i], bytes, error)) {
      return false;
    }
    keys.push_back(files[i].first);
  }
  std::map<std::string, PublishedFile> published;
  const bool read = session_.Call(Access::kRead, error, [&] {
    std::vector<PublishedFile> found;
    if (!ReadDescriptions(keys, found)) {
      return false;
    }
    published.clear();
    for (const PublishedFile& file : found) {
      published[file.key] = file;
    }
    return true;
  });
  for (size_t i = 0; read && i < files.size(); ++i) {
    const auto old = published.find(files[i].first);
    if (old == published.end() || !IsSamePublication(old->second, here[i])) {
      changed.push_back(files[i]);
    }
  }
  return read;
}

bool RedisFiles::Fetch(const std::string& key, PublishedFile& file, Receiver& receiver,
                       std::string& error) {
  return session_.Call(Access::kRead, error, [&] { return FetchOnce(key, file, receiver); });
}

bool RedisFiles::FetchOnce(const std::string& key, PublishedFile& file, Receiver& receiver) {
  for (int attempt = 0; attempt < kFetchAttempts; ++attempt) {
    std::vector<RedisReply> replies;
    if (!session_.Run({DescriptionOf(FileKey(key))}, replies)) {
      return false;
    }
    file.key = key;
    if (!ReadDescription(*replies[0], file)) {
      return session_.Fail("no file is published as " + key);
    }
    bool replaced = false;
    if (!FetchPieces(key, file, receiver, replaced)) {
      return false;
    }
    if (!replaced) {
      return true;
    }
  }
  return session_.Fail(key + " is published faster than it can be fetched");
}

bool RedisFiles::FetchPieces(const std::string& key, const PublishedFile& file, Receiver& receiver,
                             bool& replaced) {
  std::string reason;
  Digest digest;
  if (!receiver.Begin(reason)) {
    return session_.Fail(reason);
  }
  long long left = file.size;
  for (int number = 0; left > 0; ++number) {
    session_.Prolong();
    std::vector<RedisReply> replies;
    if (!session_.Run({{"HMGET", FileKey(key), "digest", std::to_string(number)}}, replies)) {
      return false;
    }
    const redisReply& reply = *replies[0];
    if (reply.elements != 2 || Text(reply.element[0]) != file.digest) {
      replaced = true;
      return true;
    }
    const std::string piece = Text(reply.element[1]);
    if (static_cast<long long>(piece.size()) != std::min(left, kPiece)) {
      return session_.Fail("the content of " + key + " is incomplete");
    }
    digest.Add(piece);
    left -= static_cast<long long>(piece.size());
    if (!receiver.Append(piece, reason)) {
      return session_.Fail(reason);
    }
  }
  return digest.Text() == file.digest || session_.Fail("the content of " + key + " is damaged");
}

bool RedisFiles::RecordNodeFiles(const std::vector<NodeFile>& files, std::string& error) {
  std::vector<RedisCommand> commands;
  for (const NodeFile& file : files) {
    commands.push_back({"SADD", prefix_ + "nodes", file.node});
    commands.push_back(
        {"HSET", NodeKey(file.node), file.key, file.digest + " " + std::to_string(file.pulled)});
  }
  return files.empty() ||
         session_.Call(Access::kWrite, error, [&] { return session_.Write(commands); });
}

bool RedisFiles::ListNodeFiles(std::vector<NodeFile>& files, std::string& error) {
  return session_.Call(Access::kRead, error, [&] {
    std::vector<std::string> nodes;
    if (!ReadRedisSet(session_, prefix_ + "nodes", nodes)) {
      return false;
    }
    std::vector<RedisCommand> commands;
    commands.reserve(nodes.size());
    for (const std::string& node : nodes) {
      commands.push_back({"HGETALL", NodeKey(node)});
    }
    std::vector<RedisReply> replies;
    if (!session_.Run(commands, replies)) {
      return false;
    }
    files.clear();
    for (size_t i = 0; i < nodes.size(); ++i) {
      std::map<std::string, std::string> records;
      for (size_t j = 0; j + 1 < replies[i]->elements; j += 2) {
        records[Text(replies[i]->element[j])] = Text(replies[i]->element[j + 1]);
      }
      for (const auto& [key, record] : records) {
        const size_t blank = record.find(' ');
        const long long pulled = blank == std::string::npos ? 0 : atoll(record.c_str() + blank + 1);
        files.push_back({nodes[i], key, record.substr(0, blank), pulled});
      }
    }
    return true;
  });
}

}  // namespace korvmailserver
