// Published files on a Redis server: content, description, and which machine has what.
#ifndef PLATFORM_KEYSTORE_REDIS_FILES_H
#define PLATFORM_KEYSTORE_REDIS_FILES_H

#include <string>
#include <vector>

#include "platform/keystore/backend.h"
#include "platform/keystore/redis_session.h"

namespace korvmailserver {

// The members of a set, ascending; within a call. Read in steps that do not hold up the server.
bool ReadRedisSet(RedisSession& session, const std::string& name,
                  std::vector<std::string>& members);

class RedisFiles : public FileShare {
 public:
  RedisFiles(RedisSession& session, const std::string& prefix)
      : session_(session), prefix_(prefix) {}

  // Publishes a file and runs `commands` with it. The content is sent only when its digest is not
  // the published one; nothing is written when nothing about the file is new.
  bool Publish(const std::string& key, const std::string& path,
               const std::vector<RedisCommand>& commands, std::string& error);
  // The commands that remove a published file; the caller runs them in its transaction.
  std::vector<RedisCommand> RemoveCommands(const std::string& key) const;

  bool ListFiles(std::vector<PublishedFile>& files, std::string& error) override;
  bool DescribeFile(const std::string& key, std::vector<PublishedFile>& files,
                    std::string& error) override;
  bool Fetch(const std::string& key, PublishedFile& file, Receiver& receiver,
             std::string& error) override;
  bool FindChanged(const std::vector<std::pair<std::string, std::string>>& files,
                   std::vector<std::pair<std::string, std::string>>& changed,
                   std::string& error) override;
  bool RecordNodeFiles(const std::vector<NodeFile>& files, std::string& error) override;
  bool ListNodeFiles(std::vector<NodeFile>& files, std::string& error) override;

 private:
  bool ReadDescriptions(const std::vector<std::string>& keys, std::vector<PublishedFile>& files);
  bool PublishOnce(const PublishedFile& file, const std::string& bytes, const std::string& value,
                   const std::vector<RedisCommand>& commands);
  bool Upload(const std::string& name, const std::string& bytes);
  bool FetchOnce(const std::string& key, PublishedFile& file, Receiver& receiver);
  bool FetchPieces(const std::string& key, const PublishedFile& file, Receiver& receiver,
                   bool& replaced);

  std::string FileKey(const std::string& key) const { return prefix_ + "file:" + key; }
  std::string NodeKey(const std::string& node) const { return prefix_ + "node:" + node; }

  RedisSession& session_;
  const std::string& prefix_;
};

}  // namespace korvmailserver

#endif  // PLATFORM_KEYSTORE_REDIS_FILES_H
