// The files that were published in a key store which several machines share, and which machine has
// what.
//
// A machine that publishes (setFile) writes path, size, digest and content; the others pull. Paths
// are kept without the root prefix of the machine that published them and get the reader's own.
#ifndef PLATFORM_NODE_FILES_H
#define PLATFORM_NODE_FILES_H

#include <string>
#include <utility>
#include <vector>

#include "platform/include/export.h"

namespace korvmailserver {

struct PublishedFile {
  std::string key;
  std::string path;  // without a root prefix
  long long size = 0;
  std::string digest;       // SHA-256 of the content, in hexadecimal
  std::string node;         // the machine that published it
  long long published = 0;  // seconds since 1970
  unsigned mode = 0644;     // on the publishing machine; a pulled file does not get it
};

struct NodeFile {
  std::string node;
  std::string key;
  std::string digest;    // of the content that the machine has
  long long pulled = 0;  // seconds since 1970
};

enum class PullResult {
  kFailed,         // one log line; the old file is untouched
  kUnchanged,      // the file is there already with this content
  kReplaced,       // written beside the old one, synced and renamed over it
  kPublishedHere,  // this machine published it; its own file is never replaced
};

// What this machine is called in the store: "node" of the host settings; without it the host name,
// with the root prefix when there is one.
MDOMAIN_EXPORT std::string NodeName();

// The machine that published the file under `key`; the empty string when none did, or the store is
// not shared between machines. False with one log line.
MDOMAIN_EXPORT bool GetPublisher(const std::string& key, std::string& node);

// Publishes those of the files (keys and paths) that exist and differ from what is published; one
// query asks about all of them. True with nothing done when the store is not shared between
// machines. False with one log line.
MDOMAIN_EXPORT bool PublishChangedFiles(
    const std::vector<std::pair<std::string, std::string>>& files);

// All published files, ascending by key. False with one log line, also when the store is not shared
// between machines.
MDOMAIN_EXPORT bool ListPublishedFiles(std::vector<PublishedFile>& files);

// Brings the file published under `key` to where files of this key belong below the root prefix:
// owner "Postara-Server", mode 0644, missing folders made. A reader sees the old or the new file,
// whole; what a run that is killed leaves beside it is removed by the next. The store is not
// trusted: a key that is not known, a path that is not the key's, and anything but a regular file
// in the way are refused. The store records what this machine has; a record that cannot be written
// is a warning, not a failure.
MDOMAIN_EXPORT PullResult PullPublishedFile(const std::string& key);
// The same for files that ListPublishedFiles gave, with a result for each; what this machine has is
// recorded once for all.
MDOMAIN_EXPORT std::vector<PullResult> PullPublishedFiles(const std::vector<PublishedFile>& files);

// What every machine has, ascending by machine and key; publishing machines are not in it. False
// with one log line.
MDOMAIN_EXPORT bool ListNodeFiles(std::vector<NodeFile>& files);

}  // namespace korvmailserver

#endif  // PLATFORM_NODE_FILES_H
