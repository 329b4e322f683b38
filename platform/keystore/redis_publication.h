// The copy on a Redis server: what it holds, written whole by the machine that manages and read
// whole by the others.
//
// Below the prefix: "state" is a hash that says who manages and which publication this is;
// "key:NAME" a value, "tree:TREE" the set of a tree's key names; "files" the set of the published
// files' keys, "file:KEY" a hash that describes one, "pieces:KEY" a hash of its content in pieces
// by their digests; "nodes" the set of machines that pull, "node:NAME" a hash of what one has. Each
// publication is told on the channel "published". "confirm" is written to be confirmed by replicas.
//
// New pieces are added before the transaction that describes the file anew and drops the old ones:
// a reader finds all pieces of a description, or that there is a newer one.
#ifndef PLATFORM_KEYSTORE_REDIS_PUBLICATION_H
#define PLATFORM_KEYSTORE_REDIS_PUBLICATION_H

#include <functional>
#include <map>
#include <set>
#include <string>
#include <vector>

#include "platform/include/nodes.h"
#include "platform/keystore/local_store.h"
#include "platform/keystore/redis_session.h"

namespace korvmailserver {

struct SharedState {
  bool exists = false;
  std::string manager;
  std::string manager_id;
  long long term = 0;
  long long version = 0;
  long long time = 0;
  std::string token;    // of the publication
  std::string content;  // digest of all keys and descriptions
  // The tokens of the publications from which other machines took the management over, the newest
  // last, separated by blanks.
  std::string followed;
  // The machine that published in the form of before terms; empty where there is a state.
  std::string former_publisher;
};

struct SharedFile {
  PublishedFile file;
  std::string pieces;         // as KnownFile::pieces
  long long piece_count = 0;  // that are stored, needed or not
};

// A name of ours that holds a value of another kind counts as one that is not there.
struct SharedContent {
  SharedState state;
  std::set<std::string> other_kinds;                   // such names, without the prefix
  std::map<std::string, std::set<std::string>> trees;  // the names of their keys
  std::map<std::string, std::string> keys;
  std::map<std::string, SharedFile> files;
};

// What a publication makes of the store.
struct Publication {
  // Sets keys, files, bytes and what is known to what this machine has. Called when the store's
  // state is watched: what another process changes here afterwards is published by that one, which
  // overtakes this.
  std::function<bool(Publication& publication, std::string& error)> gather;
  // By key; the values of files have paths without a root prefix.
  std::map<std::string, std::string> keys;
  KnownFiles files;
  std::map<std::string, std::string> bytes;  // of the files that had to be read
  // What this machine knew of the files before: lists of pieces that are not read from the store.
  KnownFiles known;
  // The state that is to follow the one in the store, manager, term, version and token set; false
  // with `error` when that one may not be replaced.
  std::function<bool(const SharedState& found, SharedState& next, std::string& error)> follow;
  // Called before the transaction; false, with `error`, ends the publication.
  std::function<bool(const SharedState& next, std::string& error)> before_writing;
  // Every content is read back, and every key on the server looked at.
  bool is_verified = false;
  // What was not so in the store.
  std::vector<std::string> mended;
};

enum class PublicationResult { kDone, kFailed, kRefused };

class RedisPublication {
 public:
  explicit RedisPublication(const KeyStoreSettings& settings)
      : session_(settings), settings_(settings), prefix_(settings.prefix) {}

  std::string Name() const { return session_.Name(); }

  bool ReadState(SharedState& state, std::string& error);
  // Of one publication, whole: a key or a description that was lost or altered since is a failure.
  bool ReadContent(SharedContent& content, std::string& error);
  // Writes what differs, in one transaction; nothing when nothing does. `state` is the store's
  // afterwards. Refused, with `error`, by `publication.follow`, also when the state changes between
  // reading and writing to one that is refused.
  PublicationResult Publish(Publication& publication, SharedState& state, std::string& error);

  // Hands the pieces of a published content to `take` in their order; `own` gives those that are
  // here already, or an empty text. A piece that is not what its digest says is a failure.
  using TakePiece = std::function<bool(const std::string& bytes, std::string& error)>;
  using OwnPiece = std::function<std::string(const std::string& digest)>;
  bool Fetch(const std::string& key, const SharedFile& file, const OwnPiece& own,
             const TakePiece& take, std::string& error);

  // Writes what this machine has, unless another one of its name has just done so: `error` then.
  bool Report(const NodeReport& report, const std::string& id, std::string& error);
  bool ListNodes(std::vector<NodeReport>& nodes, std::string& error);
  // Adds a sentence for each risk.
  bool ListRisks(std::vector<std::string>& risks, std::string& error);
  // Adds to `risks` when another machine reports under this name.
  bool FindNamesake(const std::string& name, const std::string& id, std::string& sentence,
                    std::string& error);

  // Waits for the channel. 1: told, 0: the seconds are over, -1: cannot listen, with `error`.
  int Wait(int seconds, std::string& error);

 private:
  using Commands = std::vector<RedisCommand>;

  std::string Key(const std::string& name) const { return prefix_ + name; }
  bool ReadNames(bool watch, SharedContent& content);
  bool ReadValues(const KnownFiles& known, SharedContent& content);
  bool ReadPieceLists(const std::vector<std::string>& keys, SharedContent& content);
  PublicationResult PublishOnce(Publication& publication, SharedState& state, bool& overtaken);
  static std::string OtherKind(const std::string& name);
  void DropOtherKinds(Publication& publication, const SharedContent& found,
                      Commands& transaction) const;
  void AppendKeys(Publication& publication, const SharedContent& found, Commands& transaction);
  bool WriteAll(Publication& publication, const SharedState& next, Commands& transaction,
                bool& overtaken);
  bool Upload(Publication& publication, const SharedContent& found, Commands& transaction);
  bool UploadFile(Publication& publication, const std::string& key, KnownFile& file,
                  const SharedContent& found, Commands& transaction);
  bool ListGoodPieces(Publication& publication, const std::string& key, const SharedContent& found,
                      std::set<std::string>& stored, std::set<std::string>& good);
  bool SendPieces(const std::string& key, const std::string& bytes,
                  const std::vector<std::string>& digests, const std::set<std::string>& missing);
  bool RemoveStrayKeys(Publication& publication, const SharedContent& found, Commands& transaction);
  bool FetchPieces(const std::string& key, const SharedFile& file, const OwnPiece& own,
                   const TakePiece& take);

  RedisSession session_;
  const KeyStoreSettings settings_;
  const std::string prefix_;
  std::unique_ptr<RedisSession> listener_;
};

}  // namespace korvmailserver

#endif  // PLATFORM_KEYSTORE_REDIS_PUBLICATION_H
