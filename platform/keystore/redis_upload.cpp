// Sending the published files' pieces that the store lacks.
#include <algorithm>

#include "platform/keystore/pieces.h"
#include "platform/keystore/redis_command.h"
#include "platform/keystore/redis_publication.h"
#include "platform/keystore/redis_reply.h"
#include "platform/keystore/snapshot.h"

namespace korvmailserver {

namespace {

// What must be stored under the pieces of a file.
std::set<std::string> NeededPieces(const std::string& pieces) {
  const std::vector<std::string> digests = SplitPieces(pieces);
  return {digests.begin(), digests.end()};
}

bool IsDescribed(const KnownFile& file, const SharedFile& stored, const std::string& path) {
  return stored.file.path == path && stored.file.size == file.size &&
         stored.file.digest == file.digest && stored.pieces == file.pieces;
}

}  // namespace

// Sends the pieces that the store lacks, and adds the commands that put them in force.
bool RedisPublication::Upload(Publication& publication, const SharedContent& found,
                              Commands& transaction) {
  for (auto& [key, file] : publication.files) {
    if (!UploadFile(publication, key, file, found, transaction)) {
      return false;
    }
  }
  for (const auto& file : found.files) {
    if (publication.keys.count(file.first) == 0) {
      transaction.push_back({"UNLINK", Key("file:" + file.first), Key("pieces:" + file.first)});
      transaction.push_back({"SREM", Key("files"), file.first});
    }
  }
  return true;
}

bool RedisPublication::UploadFile(Publication& publication, const std::string& key, KnownFile& file,
                                  const SharedContent& found, Commands& transaction) {
  const std::string& path = publication.keys[key];
  const auto stored = found.files.find(key);
  const std::set<std::string> before = NeededPieces(file.pieces);
  const bool is_there = stored != found.files.end() && IsDescribed(file, stored->second, path) &&
                        stored->second.piece_count == static_cast<long long>(before.size());
  if (is_there && !publication.is_verified) {
    return true;
  }
  std::set<std::string> stored_pieces;
  std::set<std::string> good;
  if (!ListGoodPieces(publication, key, found, stored_pieces, good)) {
    return false;
  }
  if (is_there && good.size() == before.size()) {
    return true;
  }
  publication.mended.push_back("the file " + key + " was " +
                               (stored == found.files.end() ? "missing"
                                : is_there                  ? "damaged"
                                                            : "another or incomplete") +
                               " in the store");
  std::string& bytes = publication.bytes[key];
  if (bytes.empty() && file.size > 0) {
    // What is sent is what is there now, not what was known of it.
    std::string reason;
    file.stamp.clear();
    if (!LookAtFile(file.path, file, bytes, reason)) {
      return session_.Fail(reason);
    }
  }
  const std::vector<std::string> digests = SplitPieces(file.pieces);
  const std::set<std::string> needed(digests.begin(), digests.end());
  std::set<std::string> missing;
  std::set_difference(needed.begin(), needed.end(), good.begin(), good.end(),
                      std::inserter(missing, missing.end()));
  std::vector<std::string> dropped;
  std::set_difference(stored_pieces.begin(), stored_pieces.end(), needed.begin(), needed.end(),
                      std::back_inserter(dropped));
  if (!SendPieces(key, bytes, digests, missing)) {
    return false;
  }
  transaction.push_back({"SADD", Key("files"), key});
  transaction.push_back({"DEL", Key("file:" + key)});
  transaction.push_back({"HSET", Key("file:" + key), "path", path, "size",
                         std::to_string(file.size), "digest", file.digest, "pieces", file.pieces});
  AppendInParts({"HDEL", Key("pieces:" + key)}, dropped, "", transaction);
  return true;
}

// Which pieces of a file are stored, and which of them are what their digests say; only a verified
// publication reads them.
bool RedisPublication::ListGoodPieces(Publication& publication, const std::string& key,
                                      const SharedContent& found, std::set<std::string>& stored,
                                      std::set<std::string>& good) {
  const auto described = found.files.find(key);
  if (described != found.files.end() && described->second.piece_count == 0) {
    return true;
  }
  if (described != found.files.end() && !publication.is_verified) {
    stored = NeededPieces(described->second.pieces);
    if (static_cast<long long>(stored.size()) == described->second.piece_count) {
      good = stored;
      return true;
    }
  }
  std::vector<RedisReply> replies;
  const std::string name = Key("pieces:" + key);
  if (!session_.Read({{"HKEYS", name}}, replies)) {
    return false;
  }
  if (IsOtherKind(*replies[0])) {
    // Before the transaction, as the pieces come.
    publication.mended.push_back(OtherKind(name));
    return session_.Run({{"UNLINK", name}}, replies);
  }
  stored = RedisSet(*replies[0]);
  if (!publication.is_verified) {
    good = stored;
    return true;
  }
  const std::vector<std::string> digests(stored.begin(), stored.end());
  for (size_t start = 0; start < digests.size(); start += kPiecesPerMessage) {
    const size_t end = std::min(start + kPiecesPerMessage, digests.size());
    RedisCommand command = {"HMGET", Key("pieces:" + key)};
    command.insert(command.end(), digests.begin() + static_cast<long>(start),
                   digests.begin() + static_cast<long>(end));
    session_.Prolong();
    if (!session_.Run({command}, replies) || !IsRedisList(*replies[0], end - start)) {
      return false;
    }
    for (size_t i = start; i < end; ++i) {
      const redisReply* piece = replies[0]->element[i - start];
      Digest digest;
      digest.Add(RedisText(piece));
      if (digest.Bytes() == digests[i]) {
        good.insert(digests[i]);
      }
    }
  }
  return true;
}

// Pieces of a publication that does not come about are taken back at once where that is possible,
// else by the next one: there are more of them than the description needs.
bool RedisPublication::SendPieces(const std::string& key, const std::string& bytes,
                                  const std::vector<std::string>& digests,
                                  const std::set<std::string>& missing) {
  std::set<std::string> left = missing;
  std::vector<std::string> sent;
  RedisCommand command;
  const auto flush = [&] {
    std::vector<RedisReply> replies;
    session_.Prolong();
    return command.empty() || session_.Run({command}, replies);
  };
  bool is_sent = true;
  for (size_t i = 0; is_sent && i < digests.size() && !left.empty(); ++i) {
    if (left.erase(digests[i]) == 0) {
      continue;
    }
    if (command.empty()) {
      command = {"HSET", Key("pieces:" + key)};
    }
    command.push_back(digests[i]);
    command.push_back(bytes.substr(i * kPieceSize, kPieceSize));
    sent.push_back(digests[i]);
    if (command.size() >= 2 * kPiecesPerMessage) {
      is_sent = flush();
      command.clear();
    }
  }
  is_sent = is_sent && flush();
  session_.Prolong();
  if (!is_sent) {
    session_.RemoveFields(Key("pieces:" + key), sent);
  }
  return is_sent;
}

}  // namespace korvmailserver
