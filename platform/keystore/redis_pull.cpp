// What the machines that pull do with the copy: fetching contents, saying what they have, waiting;
// and what a server tells about itself.
#include <algorithm>
#include <ctime>

#include "platform/keystore/pieces.h"
#include "platform/keystore/redis_publication.h"
#include "platform/keystore/redis_reply.h"
#include "platform/keystore/snapshot.h"

namespace korvmailserver {

namespace {

using Access = RedisSession::Access;

constexpr char kDigestField[] = "file:";

// A machine that got a new id (installed anew) takes its name over after this time.
constexpr long long kNameSeconds = 3600;

void Fill(const std::map<std::string, std::string>& fields, NodeReport& node) {
  const std::string prefix = kDigestField;
  for (const auto& [field, value] : fields) {
    if (field.rfind(prefix, 0) == 0) {
      node.digests[field.substr(prefix.size())] = value;
    } else if (field == "term" || field == "version" || field == "time") {
      long long& number =
          field == "term" ? node.term : (field == "time" ? node.time : node.version);
      number = atoll(value.c_str());
    }
  }
}

// The line "NAME:value" of what a server says of itself; empty without it.
std::string InfoField(const std::string& info, const std::string& name) {
  const size_t start = ("\n" + info).find("\n" + name + ":");
  if (start == std::string::npos) {
    return "";
  }
  const size_t value = start + name.size() + 1;
  return info.substr(value, info.find_first_of("\r\n", value) - value);
}

}  // namespace

bool RedisPublication::Fetch(const std::string& key, const SharedFile& file, const OwnPiece& own,
                             const TakePiece& take, std::string& error) {
  return session_.Call(Access::kRead, error, [&] { return FetchPieces(key, file, own, take); });
}

bool RedisPublication::FetchPieces(const std::string& key, const SharedFile& file,
                                   const OwnPiece& own, const TakePiece& take) {
  const std::vector<std::string> digests = SplitPieces(file.pieces);
  std::string reason;
  for (size_t start = 0; start < digests.size(); start += kPiecesPerMessage) {
    const size_t end = std::min(start + kPiecesPerMessage, digests.size());
    std::map<size_t, std::string> pieces;
    RedisCommand command = {"HMGET", Key("pieces:" + key)};
    std::vector<size_t> asked;
    for (size_t i = start; i < end; ++i) {
      pieces[i] = own(digests[i]);
      if (pieces[i].empty()) {
        command.push_back(digests[i]);
        asked.push_back(i);
      }
    }
    std::vector<RedisReply> replies;
    session_.Prolong();
    if (!asked.empty() && !session_.Read({command}, replies)) {
      return false;
    }
    for (size_t i = 0; i < asked.size(); ++i) {
      const bool is_there = IsRedisList(*replies[0], asked.size());
      pieces[asked[i]] = is_there ? RedisText(replies[0]->element[i]) : "";
    }
    for (size_t i = start; i < end; ++i) {
      Digest digest;
      digest.Add(pieces[i]);
      if (digest.Bytes() != digests[i] || pieces[i].size() != SizeOfPiece(file.file.size, i)) {
        return session_.Fail("the content of " + key + " is " +
                             (pieces[i].empty() ? "incomplete" : "damaged"));
      }
      if (!take(pieces[i], reason)) {
        return session_.Fail(reason);
      }
    }
  }
  return digests.size() * kPieceSize >= static_cast<size_t>(file.file.size) ||
         session_.Fail("the content of " + key + " is incomplete");
}

bool RedisPublication::Report(const NodeReport& report, const std::string& id, std::string& error) {
  std::string namesake;
  if (!FindNamesake(report.name, id, namesake, error)) {
    return false;
  }
  if (!namesake.empty()) {
    error = namesake;
    return false;
  }
  const std::string name = Key("node:" + report.name);
  RedisCommand command = {"HSET",    name,
                          "id",      id,
                          "term",    std::to_string(report.term),
                          "version", std::to_string(report.version),
                          "time",    std::to_string(report.time)};
  for (const auto& [key, digest] : report.digests) {
    command.push_back(kDigestField + key);
    command.push_back(digest);
  }
  return session_.Call(Access::kWrite, error, [&] {
    return session_.Write({{"SADD", Key("nodes"), report.name}, {"DEL", name}, command});
  });
}

bool RedisPublication::ListNodes(std::vector<NodeReport>& nodes, std::string& error) {
  return session_.Call(Access::kRead, error, [&] {
    std::vector<RedisReply> replies;
    if (!session_.Read({{"SMEMBERS", Key("nodes")}}, replies)) {
      return false;
    }
    nodes.clear();
    Commands commands;
    for (const std::string& name : RedisSet(*replies[0])) {
      nodes.emplace_back();
      nodes.back().name = name;
      commands.push_back({"HGETALL", Key("node:" + name)});
    }
    if (!session_.Read(commands, replies)) {
      return false;
    }
    for (size_t i = 0; i < nodes.size(); ++i) {
      Fill(RedisHash(*replies[i]), nodes[i]);
    }
    return true;
  });
}

bool RedisPublication::FindNamesake(const std::string& name, const std::string& id,
                                    std::string& sentence, std::string& error) {
  return session_.Call(Access::kRead, error, [&] {
    std::vector<RedisReply> replies;
    if (!session_.Read({{"HMGET", Key("node:" + name), "id", "time"},
                        {"HMGET", Key("state"), "manager", "manager_id"}},
                       replies)) {
      return false;
    }
    for (const RedisReply& reply : replies) {
      if (!IsRedisList(*reply, 2) && !IsOtherKind(*reply)) {
        return session_.Fail("an answer that describes no machine");
      }
    }
    const auto field = [&](size_t question, size_t number) {
      const redisReply& answer = *replies[question];
      return IsOtherKind(answer) ? std::string() : RedisText(answer.element[number]);
    };
    const std::string other = field(0, 0);
    const bool reports =
        !other.empty() && other != id && time(nullptr) - atoll(field(0, 1).c_str()) < kNameSeconds;
    const bool manages = field(1, 0) == name && field(1, 1) != id;
    if (reports || manages) {
      sentence = "another machine is called " + name +
                 " as well; give each its own \"node\" in the host settings";
    }
    return true;
  });
}

bool RedisPublication::ListRisks(std::vector<std::string>& risks, std::string& error) {
  std::string info;
  const bool is_told = session_.Call(Access::kRead, error, [&] {
    for (const char* section : {"memory", "persistence", "replication"}) {
      std::vector<RedisReply> replies;
      if (!session_.Run({{"INFO", section}}, replies)) {
        return false;
      }
      info += RedisText(replies[0].get()) + "\n";
    }
    return true;
  });
  if (!is_told) {
    if (error.rfind("NOPERM", 0) != 0) {
      return false;
    }
    risks.push_back(
        "the server tells nothing about itself to this login (+info): whether it keeps "
        "what it is given is not known");
    return true;
  }
  const std::string policy = InfoField(info, "maxmemory_policy");
  if (policy.rfind("allkeys-", 0) == 0) {
    risks.push_back("the server evicts keys when its memory is full (maxmemory-policy " + policy +
                    "; use noeviction)");
  }
  const double limit = atof(InfoField(info, "maxmemory").c_str());
  const double used = atof(InfoField(info, "used_memory").c_str());
  if (limit > 0 && used > 0.9 * limit) {
    risks.push_back("the server's memory is nearly full (" + InfoField(info, "used_memory_human") +
                    " of " + InfoField(info, "maxmemory_human") + ")");
  }
  const bool saves = InfoField(info, "aof_enabled") == "1";
  if (!saves) {
    risks.push_back("the server may come back empty or older after a crash (appendonly no)");
  }
  if (InfoField(info, "aof_last_write_status") == "err" ||
      InfoField(info, "rdb_last_bgsave_status") == "err") {
    risks.push_back("the server could not write its content to its disk");
  }
  const int replicas = atoi(InfoField(info, "connected_slaves").c_str());
  if (InfoField(info, "role") == "master" && replicas < settings_.min_replicas) {
    risks.push_back("the server has " + std::to_string(replicas) +
                    " replicas, and min_replicas is " + std::to_string(settings_.min_replicas) +
                    ": nothing is published");
  }
  return true;
}

int RedisPublication::Wait(int seconds, std::string& error) {
  int told = -1;
  if (listener_ == nullptr) {
    listener_ = std::make_unique<RedisSession>(settings_);
  }
  const bool is_done = listener_->Call(
      Access::kRead, error, [&] { return listener_->Listen(Key("published"), seconds, told); });
  if (!is_done) {
    listener_.reset();
    return -1;
  }
  return told;
}

}  // namespace korvmailserver
